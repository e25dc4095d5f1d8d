"""Colours of the output: only on a terminal unless the user has disabled them."""

import os
from typing import Any

HEADING, WARNING, FAILURE = "1", "1;33", "1;31"  # bold; in yellow; in red


def styled(text: str, style: str, stream: Any) -> str:
    """Return a string as the terminal behind a stream shows it in a style.

    It is unchanged if the stream is not a terminal, NO_COLOR is not empty or TERM is "dumb", and
    on Windows, whose older consoles print the control characters.
    """
    can_colour = stream.isatty() and os.name != "nt"
    if not can_colour or os.environ.get("NO_COLOR") or os.environ.get("TERM", "dumb") == "dumb":
        return text
    return f"\x1b[{style}m{text}\x1b[0m"
