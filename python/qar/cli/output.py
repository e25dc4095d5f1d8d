"""Output of the commands: results on standard output, messages on standard error."""

import json
import math
import os
import re
import sys
from typing import Any, Dict, Iterable

from ..display.printable import printable
from ..display.tables import Heading
from .colours import FAILURE, HEADING, WARNING, styled

_UNSAFE = re.compile("[\x7f-\x9f\ud800-\udfff\u2028-\u202e\u2066-\u2069]")


def warn(path: str, notes: Iterable[str]) -> None:
    """Print one line on standard error for each note about a file."""
    for note in notes:
        _print_message(f"{shown_path(path)}: {note}", WARNING)


def print_failure(text: str) -> None:
    """Print the reason why a command failed on standard error."""
    _print_message(text, FAILURE)


def _print_message(text: str, style: str) -> None:
    print(styled("qar:", style, sys.stderr), printable(text), file=sys.stderr)


def inform(text: str) -> None:
    """Print one line on standard error."""
    print(printable(f"qar: {text}"), file=sys.stderr)


def print_lines(lines: Iterable[str]) -> None:
    """Print lines that may contain strings from a file."""
    for line in lines:
        text = printable(line)
        print(styled(text, HEADING, sys.stdout) if isinstance(line, Heading) else text)


def print_path(path: str) -> None:
    """Print the name of a file that was written, exactly as the system has it.

    Names on Windows are strings, which are printed in the encoding of all other output.
    """
    if sys.stdout.isatty() or os.name == "nt":
        print(printable(path))
    else:
        sys.stdout.flush()
        buffer = getattr(sys.stdout, "buffer", None)  # None if a test captures the output
        if buffer is None:
            print(path)
        else:
            buffer.write(os.fsencode(path) + b"\n")
            buffer.flush()


def shown_path(path: str) -> str:
    """Return a path as the user knows it."""
    return "standard input" if path == STANDARD_INPUT else path


STANDARD_INPUT = STANDARD_OUTPUT = "-"


def failure_text(error: BaseException, named: bool = False) -> str:
    """Return the reason of a failure on one line; if `named`, after the name of the file."""
    reason = error.strerror if isinstance(error, OSError) and error.strerror else str(error)
    text = " ".join(reason.split()) or type(error).__name__
    if isinstance(error, FileExistsError):
        text = "the file exists; use --force to replace it"
    filename = getattr(error, "filename", None)
    if named and isinstance(filename, (str, bytes)) and filename:
        text = f"{os.fsdecode(filename)}: {text}"
    return printable(text)


def failure_of(path: str, error: BaseException) -> str:
    """Return the reason why a file failed on one line, which names other files only."""
    return failure_text(error, named=getattr(error, "filename", None) != path)


def print_json(value: Any) -> None:
    """Print a value as JSON."""
    text = json.dumps(_plain(value), indent=1, ensure_ascii=False, allow_nan=False)
    print(escaped(text))


def escaped(json_text: str) -> str:
    """Return JSON with the control characters escaped that JSON itself allows in strings."""
    return _UNSAFE.sub(lambda match: f"\\u{ord(match.group()):04x}", json_text)


def _plain(value: Any) -> Any:
    """Return the value in the types of JSON; a number that is not finite becomes null."""
    if isinstance(value, float) and not math.isfinite(value):
        return None
    if hasattr(value, "_asdict"):
        fields: Dict[str, Any] = value._asdict()
        value = fields
    if isinstance(value, dict):
        return {key: _plain(item) for key, item in value.items()}
    return [_plain(item) for item in value] if isinstance(value, (list, tuple)) else value
