"""XML files of hand-held scintillation spectrometers (<ResultDataFile>), reading.

Each <EnergySpectrum> is a spectrum, and so is its <BackgroundEnergySpectrum> if it has contents.
The energy is a polynomial in the channel, counted from 0. <LiveTime> may be missing; the
measurement time then serves as live and real time.
"""

from fractions import Fraction
from typing import List, Optional, Tuple

from ..analysis.calibration import counted_from_one
from . import calibration_conversion, parsing
from .measurement import FormatError, Measurement, checked
from .xml_tree import Element, parse

ROOT = "ResultDataFile"
_SPECTRA = ("EnergySpectrum", "BackgroundEnergySpectrum")
_MAX_SPECTRA = 5000


def matches(data: bytes) -> bool:
    """True if the first element is that of this format."""
    return b"<" + ROOT.encode() in data[:4096]


def read(data: bytes) -> List[Measurement]:
    """Return all spectra in the file, in its order. Raises FormatError."""
    root = parse(data)
    if root.name != ROOT:
        raise FormatError(f"<{root.name[:40]}> is not a file of spectra; expected <{ROOT}>")
    measurements: List[Measurement] = []
    for result in (element for element in root.walk() if element.name == "ResultData"):
        for element in filter(None, map(result.child, _SPECTRA)):
            measurement = _measurement(element, result, len(measurements) + 1)
            if measurement is not None:
                measurements.append(measurement)
            if len(measurements) > _MAX_SPECTRA:
                raise FormatError(f"more than {_MAX_SPECTRA} spectra in one file")
    if not measurements:
        raise FormatError("there is no spectrum in the file")
    return measurements


def _measurement(element: Element, result: Element, number: int) -> Optional[Measurement]:
    """The spectrum of an element, None if it has no contents."""
    contents = element.child("Spectrum")
    points = contents.all("DataPoint") if contents is not None else []
    if not points:
        return None
    notes: List[str] = []
    counts = parsing.counts_of(" ".join(point.text for point in points))
    real_time = _seconds(element, "MeasurementTime")
    live_time = _seconds(element, "LiveTime")
    if live_time is None and real_time is not None:
        live_time = real_time
        notes.append("the file has no live time; its measurement time is used")
    start = result.text_of("StartTime")
    reference = result.child("DeviceConfigReference")
    measurement = Measurement(
        counts=tuple(counts),
        live_time=live_time,
        real_time=real_time,
        start=parsing.read_date(start) if start else None,
        title=element.text_of("SpectrumName"),
        detector=reference.text_of("Name") if reference is not None else "",
        instrument=element.text_of("SerialNumber"),
        energy=_energy(element, notes),
        name=f"{'background' if element.name == _SPECTRA[1] else 'spectrum'}-{number}",
    )
    return checked(measurement)._replace(notes=tuple(notes))


def _seconds(element: Element, name: str) -> Optional[float]:
    text = element.text_of(name)
    return parsing.seconds(text) if text else None


def _energy(element: Element, notes: List[str]) -> Tuple[float, ...]:
    calibration = element.child("EnergyCalibration")
    listed = calibration.child("Coefficients") if calibration is not None else None
    texts = [item.text for item in listed.all("Coefficient")] if listed is not None else []
    numbers: List[Fraction] = [
        parsing.exact(text) for text in texts[: calibration_conversion.MAX_COEFFICIENTS]
    ]
    if not any(numbers[1:]):
        notes.append("no energy calibration")
        return ()
    return counted_from_one(numbers)
