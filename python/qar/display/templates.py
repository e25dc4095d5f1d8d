"""HTML from templates. Values are escaped unless they are HTML themselves.

The templates are those of the standard library (`string.Template`), so that reports need no
further package.
"""

import os
from functools import lru_cache
from html import escape
from string import Template
from typing import Iterable, Union

from .printable import printable

FOLDER = os.path.join(os.path.dirname(os.path.dirname(os.path.abspath(__file__))), "data", "report")


class Html(str):
    """A string of HTML, which is not escaped again."""


def html(value: Union[str, int]) -> Html:
    """Return HTML that shows a value, without control characters."""
    return value if isinstance(value, Html) else Html(escape(printable(str(value))))


def fill(template: str, **values: Union[str, int]) -> Html:
    """Fill a template, in which `$name` stands for a value."""
    escaped = {name: html(value) for name, value in values.items()}
    return Html(Template(template).substitute(escaped))


def fill_file(name: str, **values: Union[str, int]) -> Html:
    """Fill a template in a file of the package."""
    return fill(read(name), **values)


def each(template: str, values: Iterable[str]) -> Html:
    """Return the template for each value, which it names `$value`."""
    return joined(fill(template, value=value) for value in values)


def joined(parts: Iterable[Html], separator: str = "") -> Html:
    return Html(separator.join(parts))


@lru_cache(maxsize=None)
def read(name: str) -> str:
    """Return a file of the folder `data/report`."""
    with open(os.path.join(FOLDER, name), encoding="utf-8") as file:
        return file.read()
