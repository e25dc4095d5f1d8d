"""Make the pages of the browser tests in the current directory: report.html, batch/*.html."""

import qar
import support
from qar.atomic_files import write_text
from qar.display import report

HOSTILE = "</script><img src=http://127.0.0.1:9/x onerror=isHarmed=1><b>x"
LIBRARY = support.LIBRARY + "Na-22, 2.6 y, 511.0, 1.8\nNa-22, 2.6 y, 1274.5, 0.999\n"


def main():
    support.make_spectrum("sample.qar", title=HOSTILE)
    support.make_spectrum("blank.qar", peak_height=200)
    with open("library.csv", "w", encoding="utf-8") as file:
        file.write(LIBRARY)
    with qar.open("sample.qar", "r+") as source:
        source.set_calibration(efficiency=(-3.0, -0.5))
    arguments = ("--library", "library.csv", "--set", "QAR_D_MATCHTOL=2")
    ran = support.run("analyse", "sample.qar", "blank.qar", *arguments, "--report", "batch")
    if ran.code != 0:
        raise SystemExit("\n".join(ran.err))
    with qar.open("sample.qar") as source, qar.open("blank.qar") as blank:
        overlay = report.overlay_of(source, blank, HOSTILE)
        page = report.page(source, source.results(), report.Options(overlays=[overlay]))
        write_text("report.html", page)


if __name__ == "__main__":
    main()
