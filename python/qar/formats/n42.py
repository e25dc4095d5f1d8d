"""Read ANSI/IEEE N42.42 spectra (.n42) in the schemas of 2006 and 2011.

Each spectrum of a file becomes a measurement, named after its detector (2006) or its id (2011).
Channels count from 0. Widths are a polynomial in the channel, in channels (2006), or a table over
the energy, in keV (2011).
"""

from datetime import datetime
from fractions import Fraction
from typing import Callable, Dict, List, NamedTuple, Optional, Sequence, Set, Tuple

from ..analysis.calibration import counted_from_one
from ..display.printable import quoted
from . import calibration_conversion, parsing
from .measurement import FormatError, Measurement, checked
from .xml_tree import Element, parse

TITLE = "Title: "
"""The beginning of the remark that contains the title of a spectrum."""

DETECTOR = "Detector"
"""The id of a detector without a name."""

_MAX_SPECTRA = 5000
_MAX_TOTAL_CHANNELS = 20000000
_MAX_REMARKS = 50
_MAX_NAMES = 8  # in a note

_WITHOUT_SAMPLE = {"Background", "Calibration", "IntrinsicActivity"}

# The elements that are read, and those that are about the file rather than the spectrum.
_READ = set(
    "Remark StartTime RealTime LiveTime Coefficients ChannelData InstrumentID SampleRealTime"
    " SpectrumAvailable RadInstrumentIdentifier RadDetectorName StartDateTime RealTimeDuration"
    " LiveTimeDuration CoefficientValues EnergyBoundaryValues EnergyValues FWHMValues"
    " RadInstrumentDataCreatorName RadInstrumentClassCode RadDetectorCategoryCode"
    " MeasurementClassCode RadInstrumentManufacturerName RadInstrumentModelName"
    " RadInstrumentComponentName RadInstrumentComponentVersion".split()
)


class _Document(NamedTuple):
    """The parts of a file that its spectra refer to."""

    by_id: Dict[str, Element]
    instrument: str


class _Spectrum(NamedTuple):
    """The parts of a spectrum, independent of the schema."""

    counts: Element
    live_time: str
    real_time: str
    start: str
    detector: str
    instrument: str
    name: str
    energy: Callable[[int, List[str]], Tuple[float, ...]]
    shape: Callable[[Sequence[float], int, List[str]], Tuple[float, ...]]


def read(data: bytes) -> List[Measurement]:
    """Return all spectra in the content of a file, in order. Raises FormatError."""
    root = parse(data)
    parts = {"N42InstrumentData": _parts_2006, "RadInstrumentData": _parts_2011}.get(root.name)
    if parts is None:
        raise FormatError(
            f"the root element is {quoted(root.name)};"
            " expected N42InstrumentData or RadInstrumentData"
        )
    document = _document(root)
    measurements: List[Measurement] = []
    names: Set[str] = set()
    channels = 0
    for element in root.walk():
        if element.name != "Spectrum" or element.child("ChannelData") is None:
            continue
        spectrum = parts(document, element)
        name = _distinct(spectrum.name or f"spectrum-{len(measurements) + 1}", names)
        try:
            measurements.append(_measurement(element, spectrum, name))
        except FormatError as error:
            raise FormatError(f"spectrum {quoted(name)}: {error}") from None
        channels += len(measurements[-1].counts)
        if len(measurements) > _MAX_SPECTRA or channels > _MAX_TOTAL_CHANNELS:
            raise FormatError("too many spectra or channels in one file")
    if not measurements:
        raise FormatError("there is no spectrum in the file")
    left_out = _left_out(root)
    return [m._replace(notes=m.notes + left_out) for m in measurements]


def _document(root: Element) -> _Document:
    by_id: Dict[str, Element] = {}
    instrument = ""
    for element in root.walk():
        identity = element.attributes.get("id", element.attributes.get("ID"))
        if identity is not None:
            by_id.setdefault(identity, element)
        if element.name in ("InstrumentID", "RadInstrumentIdentifier"):
            instrument = instrument or element.text.strip()
    return _Document(by_id, instrument)


def _distinct(name: str, names: Set[str]) -> str:
    distinct, number = name, 1
    while distinct in names:
        number += 1
        distinct = f"{name}-{number}"
    names.add(distinct)
    return distinct


def _measurement(element: Element, spectrum: _Spectrum, name: str) -> Measurement:
    notes: List[str] = []
    attributes = spectrum.counts.attributes
    compression = attributes.get("Compression", attributes.get("compressionCode", "None"))
    if compression.lower() not in ("none", "countedzeroes"):
        raise FormatError(f"unknown compression {quoted(compression)}; expected CountedZeroes")
    counts = parsing.counts_of(spectrum.counts.text, compression.lower() == "countedzeroes", notes)
    title, remarks = _remarks(element)
    energy = spectrum.energy(len(counts), notes)
    shape = spectrum.shape(energy, len(counts), notes) if energy else ()
    if not energy:
        notes.append("no energy calibration")
    return checked(
        Measurement(
            counts=tuple(counts),
            live_time=_duration(spectrum.live_time, "live time", notes),
            real_time=_duration(spectrum.real_time, "real time", notes),
            start=_date(spectrum.start, notes),
            title=title,
            detector=spectrum.detector,
            instrument=spectrum.instrument,
            remarks=remarks,
            energy=energy,
            shape=shape,
            is_background=_is_background(element),
            name=name,
            notes=tuple(notes),
        )
    )


def _is_background(spectrum: Element) -> bool:
    """Return True if a spectrum was taken without the sample: background or calibration."""
    parts = [spectrum.child("SourceType")]
    parts += [element.child("MeasurementClassCode") for element in spectrum.ancestors()]
    kinds = {part.text.strip() for part in parts if part is not None}
    return bool(kinds & _WITHOUT_SAMPLE)


def _duration(text: str, field: str, notes: List[str]) -> Optional[float]:
    if not text:
        notes.append(f"no {field}")
        return None
    return parsing.read_duration(text)


def _date(text: str, notes: List[str]) -> Optional[datetime]:
    if not text:
        notes.append("no start")
        return None
    return parsing.read_date(text)


def _remarks(element: Element) -> Tuple[str, str]:
    """Return the title and the remarks of a spectrum and its ancestors, outermost first."""
    remarks = [
        remark.text.strip()
        for ancestor in reversed(list(element.ancestors()))
        for remark in ancestor.all("Remark")[:_MAX_REMARKS]
    ]
    titles = [text[len(TITLE) :] for text in remarks if text.startswith(TITLE)]
    others = [text for text in remarks if text and not text.startswith(TITLE)]
    return (titles[-1] if titles else ""), "\n".join(others)


def _left_out(root: Element) -> Tuple[str, ...]:
    """Return a note with the names of the elements whose text is not read."""
    names: Dict[str, None] = {}
    for element in root.walk():
        if element.text.strip() and element.name not in _READ:
            names.setdefault(element.name[:40])
    if not names:
        return ()
    listed = list(names)[:_MAX_NAMES]
    more = len(names) - len(listed)
    return ("left out: " + ", ".join(listed) + (f" and {more} more" if more else ""),)


def _nearest(element: Element, *names: str) -> str:
    """Return the text of the first named child of the element or its nearest ancestor."""
    for ancestor in element.ancestors():
        for name in names:
            text = ancestor.text_of(name)
            if text:
                return text
    return ""


# ---- The schema of 2006 ------------------------------------------------------------------------


def _parts_2006(document: _Document, element: Element) -> _Spectrum:
    detector = element.attributes.get("Detector", "")
    references = element.attributes.get("CalibrationIDs", "").split()[:8]
    calibrations = element.all("Calibration") + [
        document.by_id[reference] for reference in references if reference in document.by_id
    ]
    counts = element.child("ChannelData")
    assert counts is not None
    return _Spectrum(
        counts=counts,
        live_time=element.text_of("LiveTime"),
        real_time=_nearest(element, "RealTime", "SampleRealTime"),
        start=_nearest(element, "StartTime"),
        detector=detector,
        instrument=document.instrument,
        name=detector,
        energy=lambda _, notes: _energy_2006(calibrations, notes),
        shape=lambda energy, channels, notes: _shape_2006(calibrations, energy, channels, notes),
    )


def _coefficients_2006(
    calibrations: Sequence[Element], kind: str, units: Dict[str, int], notes: List[str]
) -> List[Fraction]:
    """Return the polynomial of a kind; an empty list, with a note, for another equation."""
    for calibration in calibrations:
        if calibration.attributes.get("Type") != kind:
            continue
        equation = calibration.child("Equation")
        model = equation.attributes.get("Model", "Polynomial") if equation else "a table"
        unit = calibration.attributes.get(f"{kind}Units", "keV")
        if equation is None or model != "Polynomial" or unit not in units:
            notes.append(f"left out: the {kind} calibration, {model} in {unit}")
            return []
        numbers = parsing.exact_list(
            equation.text_of("Coefficients"), calibration_conversion.MAX_COEFFICIENTS
        )
        return [number * units[unit] for number in numbers]
    return []


def _energy_2006(calibrations: Sequence[Element], notes: List[str]) -> Tuple[float, ...]:
    numbers = _coefficients_2006(calibrations, "Energy", {"keV": 1, "MeV": 1000}, notes)
    return counted_from_one(numbers) if any(numbers[1:]) else ()


def _shape_2006(
    calibrations: Sequence[Element], energy: Sequence[float], channels: int, notes: List[str]
) -> Tuple[float, ...]:
    widths = _coefficients_2006(calibrations, "FWHM", {"Channels": 1}, notes)
    if not widths:
        return ()
    shape = calibration_conversion.shape_from_channel_widths(widths, energy, channels)
    if not shape.coefficients:
        notes.append("left out: the FWHM calibration, which gives impossible peak widths")
    elif shape.deviation > 1e-6:
        notes.append(f"the widths are read within {shape.deviation:.2g} of the width")
    return shape.coefficients


# ---- The schema of 2011 ------------------------------------------------------------------------


def _parts_2011(document: _Document, element: Element) -> _Spectrum:
    attributes = element.attributes
    detector = attributes.get("radDetectorInformationReference", "")
    information = document.by_id.get(detector)
    counts = element.child("ChannelData")
    assert counts is not None
    energy = document.by_id.get(attributes.get("energyCalibrationReference", ""))
    width = document.by_id.get(attributes.get("FWHMCalibrationReference", ""))
    return _Spectrum(
        counts=counts,
        live_time=element.text_of("LiveTimeDuration"),
        real_time=_nearest(element, "RealTimeDuration"),
        start=_nearest(element, "StartDateTime"),
        detector=(information.text_of("RadDetectorName") if information else "")
        or detector.replace(DETECTOR, ""),
        instrument=document.instrument,
        name=attributes.get("id", ""),
        energy=lambda channels, notes: _energy_2011(energy, channels, notes),
        shape=lambda _, __, notes: _shape_2011(width, notes),
    )


def _energy_2011(
    calibration: Optional[Element], channels: int, notes: List[str]
) -> Tuple[float, ...]:
    if calibration is None:
        return ()
    deviations = parsing.exact_list(calibration.text_of("EnergyDeviationValues"), 1000)
    if any(deviations):
        notes.append("left out: the deviations from the energy calibration")
    boundaries = calibration.text_of("EnergyBoundaryValues")
    if boundaries:
        return _energy_of_boundaries(boundaries, channels, notes)
    numbers = parsing.exact_list(
        calibration.text_of("CoefficientValues"), calibration_conversion.MAX_COEFFICIENTS
    )
    while len(numbers) > 2 and numbers[-1] == 0:  # the schema requires three
        numbers.pop()
    return counted_from_one(numbers) if any(numbers[1:]) else ()


def _energy_of_boundaries(text: str, channels: int, notes: List[str]) -> Tuple[float, ...]:
    """Return the polynomial through the middles of the channels."""
    edges = parsing.exact_list(text, channels + 1)
    if len(edges) != channels + 1:
        notes.append("left out: the energy calibration, which has the wrong number of boundaries")
        return ()
    middles = [(low + high) / 2 for low, high in zip(edges, edges[1:])]
    half = calibration_conversion.printed_tolerance(min(text.split()[:64], key=len))
    max_tolerance = max(abs(edges[0]), abs(edges[-1]), Fraction(1)) / 10**9
    points = calibration_conversion.Points(
        [Fraction(channel) for channel in range(channels)],
        middles,
        [min(half, max_tolerance)] * channels,
    )
    fit = calibration_conversion.polynomial_through(points, range(1, 5))
    if not fit.exact:
        notes.append("the energy calibration is close to the boundaries of the channels, not exact")
    return counted_from_one(fit.coefficients)


def _shape_2011(calibration: Optional[Element], notes: List[str]) -> Tuple[float, ...]:
    if calibration is None:
        return ()
    energies = calibration.text_of("EnergyValues").split()[:1000]
    widths = calibration.text_of("FWHMValues").split()[:1000]
    for number in energies + widths:
        parsing.exact(number)
    shape = calibration_conversion.shape_from_table(energies, widths)
    if not shape.coefficients:
        notes.append("left out: the FWHM calibration, which is not a table of widths")
    elif shape.deviation > 1e-6:
        notes.append(f"the widths are read within {shape.deviation:.2g} of the width")
    return shape.coefficients
