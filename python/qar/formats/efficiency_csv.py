"""Certificates of sources and tables of total efficiencies as CSV files.

    nuclide, activity, activity_uncertainty, reference_date
    Am-241, 3821, 38, 2024-01-01
    Co-60, 2950, 22, 2024-01-01T12:00:00Z

Activities are in Bq, uncertainties one sigma. A date without a time means 12:00 UTC.

    energy, efficiency, uncertainty
    45, 0.052, 0.005
    1500, 0.031, 0.003

Energies are in keV. The column `uncertainty` (one sigma) is optional.
"""

import os
import re
from datetime import datetime, timezone
from typing import Dict, List

from ..analysis.certified_source import CertifiedActivity, plain_name
from ..analysis.summing import USUAL_UNCERTAINTY, TotalEfficiency
from ..atomic_files import Path
from ..display.printable import quoted
from . import named_columns, parsing
from .measurement import FormatError, reading
from .named_columns import Row, positive

_CERTIFICATE = ("nuclide", "activity", "activity_uncertainty", "reference_date")
_TOTAL = ("energy", "efficiency")


def read_certificate(path: Path) -> List[CertifiedActivity]:
    """Return the certified activities in a CSV file. Raises FormatError with the line number."""
    with reading(path):
        entries: Dict[str, CertifiedActivity] = {}
        for number, row in named_columns.rows(
            parsing.read_file(os.fspath(path)), _CERTIFICATE, _CERTIFICATE
        ):
            try:
                entry = _certified(row)
                if plain_name(entry.nuclide) in entries:
                    raise FormatError(f"the nuclide {quoted(entry.nuclide)} is given twice")
                entries[plain_name(entry.nuclide)] = entry
            except FormatError as error:
                raise FormatError(f"line {number}: {error}") from None
        if not entries:
            raise FormatError("no nuclide in the file")
        return list(entries.values())


def _certified(row: Row) -> CertifiedActivity:
    if not row["nuclide"]:
        raise FormatError("the nuclide has no name")
    activity, uncertainty = (_positive(row, name) for name in _CERTIFICATE[1:3])
    if uncertainty >= activity:
        raise FormatError(f"the uncertainty {uncertainty:g} Bq is not below the activity")
    return CertifiedActivity(row["nuclide"], activity, uncertainty, _date(row["reference_date"]))


def _positive(row: Row, name: str) -> float:
    try:
        return positive(row[name])
    except FormatError as error:
        raise FormatError(f"{name}: {error}") from None


def _date(text: str) -> datetime:
    full = f"{text}T12:00:00Z" if re.fullmatch(r"\d{4}-\d\d-\d\d", text, re.ASCII) else text
    try:
        date = parsing.read_date(full)
    except FormatError:
        raise FormatError(
            f"reference_date: {quoted(text)} is not a date; expected one such as 2024-01-24"
        ) from None
    if date > datetime.now(timezone.utc):
        raise FormatError(f"reference_date: {quoted(text)} is in the future")
    return date


def read_total(path: Path) -> TotalEfficiency:
    """Return the total efficiency in a CSV file. Raises FormatError with the line number.

    Its uncertainty is the largest relative one of the table, or USUAL_UNCERTAINTY if the table
    has none.
    """
    with reading(path):
        energies: List[float] = []
        values: List[float] = []
        uncertainties: List[float] = []
        for number, row in named_columns.rows(
            parsing.read_file(os.fspath(path)), _TOTAL, (*_TOTAL, "uncertainty")
        ):
            try:
                energies.append(_positive(row, "energy"))
                values.append(_positive(row, "efficiency"))
                if row["uncertainty"]:
                    uncertainties.append(_positive(row, "uncertainty") / values[-1])
                if values[-1] > 1:
                    raise FormatError(f"efficiency: {values[-1]:g} is above 1")
                if energies[-2:-1] >= energies[-1:]:
                    raise FormatError(f"energy: {energies[-1]:g} keV is not above the line before")
            except FormatError as error:
                raise FormatError(f"line {number}: {error}") from None
        if not energies:
            raise FormatError("no efficiency in the file")
        uncertainty = max(uncertainties, default=USUAL_UNCERTAINTY)
        return TotalEfficiency(tuple(energies), tuple(values), uncertainty)
