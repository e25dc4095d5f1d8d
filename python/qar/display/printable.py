"""Strings from a file in a form that is safe to print, in one line, a table or a page."""

from typing import Any


def printable(text: str) -> str:
    """Return a string on one line, with "?" for each character that cannot be printed.

    Control characters, also those that change the direction of text, could otherwise change how a
    terminal or a browser shows everything after them.
    """
    return "".join(c if c.isprintable() else " " if c.isspace() else "?" for c in text)


def quoted(text: str, max_length: int = 40) -> str:
    """Return a string for a message: printable, in double quotes, shortened."""
    end = "..." if len(text) > max_length else ""
    return f'"{printable(text[:max_length])}{end}"'


def csv_cell(text: str) -> str:
    """Return a string for a cell of a CSV table, which no spreadsheet takes for a formula.

    A string that begins like a formula but is not a number gets an apostrophe in front.
    """
    cell = printable(text)
    if cell.lstrip()[:1] not in ("=", "+", "-", "@"):
        return cell
    try:
        float(cell)
    except ValueError:
        return "'" + cell
    return cell


def value_text(value: Any) -> str:
    """Return the value of a parameter as people read it; a list is the values of its entries."""
    if isinstance(value, list):
        return ", ".join(map(value_text, value))
    if isinstance(value, bool):
        return "yes" if value else "no"
    return f"{value:.10g}" if isinstance(value, float) else printable(str(value))
