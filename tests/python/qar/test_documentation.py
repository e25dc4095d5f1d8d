"""The code blocks of the pages and the examples."""

import json
import os
import re
import sys

import pyORV3
import qar
import support
from qar import formats, optional_imports
from support import FULL

PAGES = [
    "README.md", "docs/functions.md", "docs/qar.md", "docs/command-line.md", "docs/formats.md", "docs/efficiency.md", "docs/writing-an-engine.md",
    "docs/suite-scripts-on-linux.md", "docs/reports.md", "docs/status-codes.md", "docs/windows.md", "examples/README.md",
    "python/README.md", "docs/releasing.md",
]  # fmt: skip
WITH_PICTURES = {"docs/qar.md", "docs/command-line.md"}
LANGUAGES = {"python", "sh", "cpp", "cmake", "text"}  # text is not run
# .ci/run runs installations and builds, which need root rights or minutes.
RUN_ELSEWHERE = re.compile(
    r"(scripts/\w[\w-]*|sudo |pip |cmake --(preset|build --preset|install) )"
)

DRAWS = re.compile(r"qar plot |figure|.*\.plot\(")

RUNNER = """
import json, subprocess, sys
names = {"__name__": "__main__"}
for language, text in json.load(open(sys.argv[1], encoding="utf-8")):
    if language == "python":
        exec(compile(text, "the page:\\n" + text, "exec"), names)
    elif language == "sh":
        subprocess.run(["bash", "-euc", text], check=True)
    else:
        name = text.split()[1].rstrip(":")  # the first line contains the file name
        open(name, "w", encoding="utf-8").write(text)
"""


class TestPages(support.TestCase):
    def blocks(self, page):
        text = (support.PROJECT / page).read_text(encoding="utf-8")
        blocks = re.findall(r"^ *```(\w*)\n(.*?)^ *```$", text, re.MULTILINE | re.DOTALL)
        self.assertEqual(2 * len(blocks), len(re.findall(r"^ *```", text, re.MULTILINE)), page)
        self.assertLessEqual({language for language, _ in blocks}, LANGUAGES, page)
        return [
            (language, self.here(page, text)) for language, text in blocks if language != "text"
        ]

    def here(self, page, text):
        """Return a block without the commands that run elsewhere; check that their scripts exist."""
        lines = text.splitlines()
        for line in lines:
            script = re.match(r"scripts/[\w-]+", line)
            if script:
                self.assertTrue((support.PROJECT / script.group()).exists(), (page, line))
        left_out = [RUN_ELSEWHERE]
        left_out += [] if optional_imports.optional("matplotlib") else [DRAWS]
        kept = [line for line in lines if not any(pattern.match(line) for pattern in left_out)]
        return "\n".join(kept) + "\n"

    def test_code_blocks_run(self):
        os.mkdir("programs")
        command = f'#!/bin/sh\nexec "{sys.executable}" -B '
        for name, words in (("python3", '"$@"\n'), ("qar", '-m qar "$@"\n')):
            os.chmod(self.write(f"programs/{name}", command + words), 0o755)
        path = f"{self.folder / 'programs'}{os.pathsep}{os.environ['PATH']}"
        self.write("spectrum.csv", self.python(support.PROJECT / "examples" / "simulation.py"))
        self.write("runner.py", RUNNER)
        for page in PAGES:
            with self.subTest(page):
                if page in WITH_PICTURES and not optional_imports.optional("matplotlib"):
                    self.skipTest("matplotlib is not installed")
                folder = self.folder / page.replace("/", "-")
                folder.mkdir()
                for shared in (support.PROJECT / "examples", self.folder / "spectrum.csv"):
                    os.symlink(str(shared), str(folder / shared.name))
                blocks = self.write("blocks.json", json.dumps(self.blocks(page)))
                self.python("../runner.py", f"../{blocks}", folder=folder, PATH=path)

    def test_linked_files_exist(self):
        for page in PAGES:
            path = support.PROJECT / page
            for link in re.findall(r"\]\(([^)#:]+)\)", path.read_text(encoding="utf-8")):
                self.assertTrue((path.parent / link).exists(), f"{page}: {link}")

    def test_page_and_stubs_describe_each_function(self):
        page = (support.PROJECT / "docs/functions.md").read_text(encoding="utf-8")
        headings = " ".join(re.findall(r"^### (.*)", page, re.MULTILINE))
        described = re.findall(r"(\w+)\(", headings)
        expected = [name for name in vars(pyORV3) if not name.startswith("__")]
        self.assertEqual(sorted(described), sorted(expected))
        stubs = (support.PRODUCT / "pyORV3-stubs/__init__.pyi").read_text(encoding="utf-8")
        self.assertEqual(re.findall(r"^def (\w+)", stubs, re.MULTILINE), expected)


class TestExamples(support.TestCase):
    def example(self, name, *arguments):
        return self.python(support.PROJECT / "examples" / name, *arguments)

    def test_sample_is_a_spectrum_of_the_simulation(self):
        rows = self.example("simulation.py").splitlines()
        (sample,) = formats.read(support.PROJECT / "examples" / "sample.n42")
        self.assertEqual(sample.counts, tuple(int(row.split(",")[1]) for row in rows))
        self.assertEqual(sample.shape, ())

    def test_folder_is_converted_again_for_new_spectra(self):
        os.mkdir("in")
        formats.write("in/a.spe", FULL)
        self.assertIn("a.spe -> a.qar", self.example("convert_folder.py", "in", "out"))
        formats.write("in/b.n42", FULL)
        again = self.example("convert_folder.py", "in", "out")
        self.assertRegex(again, "a.qar\n    exists already\nb.n42 -> b.qar")
        self.assertEqual(formats.read("out/b.qar")[0].counts, FULL.counts)

    def test_acquisition_saves_the_shown_counts(self):
        output = self.example("acquisition.py", "a.qar", "0.3", "0.1")
        self.assertRegex(output, r"\.{10} .* counts(.|\n)*#{30} .* counts")
        with qar.open("a.qar") as source:
            self.assertEqual(sum(source.spectrum()), source["QAR_Q_TOTALCOUNT"])
            self.assertGreaterEqual(source["QAR_D_REALTIME"], 0.3)
            self.assertIs(source["QAR_B_ACQACTIVE"], False)

    def test_report_is_created_from_an_n42_file(self):
        formats.write("a.n42", formats.read(support.make_spectrum("a.qar"))[0])
        output = self.example(
            "peak_report.py", "a.n42", self.write("l.csv", support.LIBRARY), "out"
        )
        self.assertRegex(output, r"2 peaks(.|\n)*Cs-137")
        self.assertLessEqual({"a.html", "a.qar"}, set(os.listdir("out")))
