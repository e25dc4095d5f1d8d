"""Nuclide libraries as CSV files, with one line for each gamma line.

    nuclide, half_life, energy, photons, energy_uncertainty, photons_uncertainty, key
    Cs-137, 30.05 y, 661.657, 0.8499, 0.003, 0.0020, 1
    Co-60, 5.2711 y, 1173.228, 0.9985
    Co-60, , 1332.492, 0.9998

The first line contains the names of the columns. The first four are required; the others, and
half_life_uncertainty, parent and active, are optional. Energies are in keV, photons per decay,
uncertainties one sigma; half-lives in seconds or with a unit: s, min, h, d or y (365.242198 d).
Data of the nuclide, such as the half-life, are only needed in its first line. "#" begins a remark.
"""

import csv
import io
import os
from typing import Any, Dict, Iterable, List, Optional

from ..analysis.results import GammaLine, Nuclide
from ..atomic_files import Path
from ..display.printable import csv_cell, quoted
from ..values import is_known
from . import named_columns, parsing
from .measurement import FormatError, reading
from .named_columns import Row

_REQUIRED = ("nuclide", "half_life", "energy", "photons")
_COLUMNS = (
    *_REQUIRED,
    *("energy_uncertainty", "photons_uncertainty", "key"),
    *("half_life_uncertainty", "parent", "active"),
)
_SECONDS = {"s": 1.0, "min": 60.0, "h": 3600.0, "d": 86400.0, "y": 365.242198 * 86400.0}
_FLAGS = {"1": True, "yes": True, "true": True, "0": False, "no": False, "false": False}


def read(path: Path) -> List[Nuclide]:
    """Return the nuclides in a CSV file, in order. Raises FormatError with the line number."""
    with reading(path):
        return _nuclides(parsing.read_file(os.fspath(path)))


def _nuclides(data: bytes) -> List[Nuclide]:
    nuclides: Dict[str, Nuclide] = {}
    lines: Dict[str, List[GammaLine]] = {}
    for number, row in named_columns.rows(data, _REQUIRED, _COLUMNS):
        try:
            name = row["nuclide"]
            if not name:
                raise FormatError("the nuclide has no name")
            if name not in nuclides:
                nuclides[name] = _nuclide(row)
            lines.setdefault(name, []).append(_line(row))
        except FormatError as error:
            raise FormatError(f"line {number}: {error}") from None
    if not nuclides:
        raise FormatError("no nuclide in the file")
    return [nuclide._replace(lines=tuple(lines[name])) for name, nuclide in nuclides.items()]


def _nuclide(row: Row) -> Nuclide:
    fields: Dict[str, Any] = {"name": row["nuclide"], "half_life": _time(row["half_life"])}
    if row["half_life_uncertainty"]:
        fields["half_life_uncertainty"] = _time(row["half_life_uncertainty"])
    if row["parent"]:
        fields["parent"] = row["parent"]
    if row["active"]:
        fields["active"] = _flag(row["active"])
    return Nuclide(**fields)


def _line(row: Row) -> GammaLine:
    photons = named_columns.positive(row["photons"])
    fields: Dict[str, Any] = {"energy": named_columns.positive(row["energy"]), "photons": photons}
    for name in ("energy_uncertainty", "photons_uncertainty"):
        if row[name]:
            fields[name] = parsing.seconds(row[name])
    if row["key"]:
        fields["key"] = _flag(row["key"])
    return GammaLine(**fields)


def _time(text: str) -> float:
    number, unit = text, "s"
    for known in sorted(_SECONDS, key=len, reverse=True):
        if text.lower().endswith(known):
            number, unit = text[: -len(known)], known
            break
    return named_columns.positive(number) * _SECONDS[unit]


def _flag(text: str) -> bool:
    if text.lower() not in _FLAGS:
        raise FormatError(f"{quoted(text)} is not a flag; expected yes or no")
    return _FLAGS[text.lower()]


def text_of(nuclides: Iterable[Nuclide]) -> str:
    """Return the text of a CSV file of nuclides; half-lives are in seconds."""

    def cell(value: Optional[object]) -> str:
        return csv_cell(str(value)) if is_known(value) else ""

    text = io.StringIO()
    writer = csv.writer(text, lineterminator="\n")
    writer.writerow(_COLUMNS)
    for nuclide in nuclides:
        for line in nuclide.lines:
            fields = {**nuclide._asdict(), **line._asdict(), "nuclide": nuclide.name}
            writer.writerow([cell(fields[column]) for column in _COLUMNS])
    return text.getvalue()
