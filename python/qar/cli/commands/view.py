"""The command `view`: spectra as pages in a browser on this machine."""

import os
import sys

from ...regular_files import open_regular
from ..command import DONE, Arguments, Command, CommandError, Parser, add_recursive, number_up_to
from ..inputs import files_of
from ..output import inform
from ..reading import add_reading, reading_of
from ..viewer.catalogue import catalogue
from ..viewer.pages import Pages


def view(arguments: Arguments) -> int:
    import webbrowser  # loads modules that other commands do not need

    try:
        from ..viewer.server import Server
    except ImportError as failure:  # small Pythons on Windows lack sockets
        raise CommandError(f"qar view needs sockets, which this Python lacks: {failure}") from None

    files = files_of(arguments.files, arguments.recursive)
    if not files:
        raise CommandError(f"no spectrum in {', '.join(map(repr, arguments.files))}")
    for path in arguments.files:
        if not os.path.isdir(path):
            open_regular(path).close()  # failures are reported now and not in the browser
    shown = catalogue(files, arguments.library, reading_of(arguments))
    with Server(arguments.port, Pages(shown)) as server:
        address = server.address + ("1" if len(files) == 1 else "")
        print(address, flush=True)
        inform("only programs that know this address see the spectra; Ctrl-C stops")
        try:
            if not arguments.no_browser and _has_display():
                webbrowser.open(address)
            server.serve_forever()
        except KeyboardInterrupt:
            pass
        finally:
            server.finish()
    return DONE


def _has_display() -> bool:
    """Return True if a browser would get a window; without a display it might use this terminal."""
    has_own = sys.platform in ("win32", "darwin")
    return has_own or any(os.environ.get(name) for name in ("DISPLAY", "WAYLAND_DISPLAY"))


def _add_arguments(command: Parser) -> None:
    command.add_argument(
        "files", metavar="FILE", nargs="+", help="A file of any format, or a directory."
    )
    add_recursive(command)
    add_reading(command)
    command.add_argument(
        "--library", "-l", metavar="CSV", action="append", default=[],
        help="Offer this nuclide library beside the built-in one; repeatable.",
    )  # fmt: skip
    command.add_argument(
        "--port", metavar="N", type=number_up_to(65535), default=0,
        help="Use this port (default: a free one).",
    )  # fmt: skip
    command.add_argument(
        "--no-browser", action="store_true", help="Print the address and open no browser."
    )


COMMAND = Command(
    "view",
    view,
    "Show spectra as pages in a browser on this machine and analyse copies of them.",
    _add_arguments,
    """\
examples:
  qar view sample.n42                             show one spectrum
  qar view spectra --recursive --no-browser       print the address of a list of spectra
  qar view spectra --library lab.csv              offer another nuclide library
""",
)
