"""Fields that the binary formats share: dates, energy and width calibrations."""

import re
from datetime import datetime, timezone
from fractions import Fraction
from typing import List, Optional, Sequence, Tuple

from ..analysis.calibration import counted_from_one
from . import calibration_conversion
from .measurement import FormatError

MONTHS = "JAN FEB MAR APR MAY JUN JUL AUG SEP OCT NOV DEC".split()


def start_of(date: str, clock: str) -> Optional[datetime]:
    """Return the start from a date such as "17-SEP-121" or "17SEP121" and a time "HHMMSS".

    The last digit of the date is 1 from the year 2000. None if they are not a date and a time.
    """
    match = re.match(r"(\d\d)-?([A-Za-z]{3})-?(\d\d)(\d?)", date)
    digits = re.sub(r"\D", "", clock)
    if not match or match.group(2).upper() not in MONTHS or len(digits) not in (4, 6):
        return None
    year = int(match.group(3)) + (2000 if match.group(4) == "1" else 1900)
    month = MONTHS.index(match.group(2).upper()) + 1
    hour, minute, second = int(digits[:2]), int(digits[2:4]), int(digits[4:] or "0")
    try:
        return datetime(year, month, int(match.group(1)), hour, minute, second, tzinfo=timezone.utc)
    except ValueError:
        return None


def energy_polynomial(coefficients: Tuple[float, ...], notes: List[str]) -> Tuple[float, ...]:
    """Return the calibration for channels counted from 1; empty, with a note, if it has no slope.

    coefficients: keV as a polynomial in the channel counted from 0.
    """
    if not all(abs(value) < 1e9 for value in coefficients):
        raise FormatError("the energy calibration is out of range")
    if not any(coefficients[1:]) or coefficients[:2] == (0.0, 1.0):
        notes.append("no energy calibration")
        return ()
    numbers = [Fraction(value) for value in coefficients]
    while numbers[-1] == 0:
        numbers.pop()
    return counted_from_one(numbers)


def width_polynomial(
    widths: Sequence[float], energy: Sequence[float], channels: int, notes: List[str]
) -> Tuple[float, ...]:
    """Return the shape calibration; empty, with a note, if the widths are impossible.

    widths: FWHM in channels as a polynomial in the channel counted from 0. energy: the calibration
    for channels counted from 1; without one the result is empty.
    """
    if not energy or not any(widths):
        return ()
    if not all(abs(value) < 1e6 for value in widths):
        notes.append("left out: the width calibration, which is out of range")
        return ()
    shape = calibration_conversion.shape_from_channel_widths(
        [Fraction(value) for value in widths], energy, channels
    )
    if not shape.coefficients:
        notes.append("left out: the width calibration, which gives impossible widths")
    return shape.coefficients
