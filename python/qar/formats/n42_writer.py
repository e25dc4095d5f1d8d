"""Write ANSI/IEEE N42.42 spectra (.n42) in the schema of 2011."""

import html
import re
from datetime import datetime, timezone
from typing import List, Sequence, Tuple

from ..analysis.calibration import polynomial
from ..display.printable import quoted
from . import calibration_conversion, parsing
from .measurement import Measurement
from .n42 import DETECTOR, TITLE

NAMESPACE = "http://physics.nist.gov/N42/2011/N42"

_ENERGY, _WIDTH = "EnergyCalibration", "FWHMCalibration"
_COUNTS_PER_LINE = 16
_NOT_IN_XML = re.compile("[^\t\n\x20-\ud7ff\ue000-\ufffd\U00010000-\U0010ffff]")


def write(measurement: Measurement) -> Tuple[str, List[str]]:
    """Return the text of a file and notes of everything that it cannot store."""
    import uuid  # loads many modules, which other commands do not need

    notes: List[str] = []
    now = datetime.now(timezone.utc)
    lines = [
        '<?xml version="1.0" encoding="utf-8"?>',
        f'<RadInstrumentData xmlns="{NAMESPACE}" n42DocUUID="{uuid.uuid4()}"'
        f' n42DocDateTime="{parsing.precise_date_text(now.replace(microsecond=0))}">',
        "<RadInstrumentDataCreatorName>qar</RadInstrumentDataCreatorName>",
        *_instrument(measurement, notes),
        *_detector(measurement, notes),
    ]
    references = f'radDetectorInformationReference="{DETECTOR}"'
    if measurement.energy:
        lines += _energy(measurement)
        references += f' energyCalibrationReference="{_ENERGY}"'
    width = _width(measurement, notes)
    if width:
        lines += width
        references += f' FWHMCalibrationReference="{_WIDTH}"'
    lines += _measurement(measurement, references, notes)
    lines.append("</RadInstrumentData>")
    return "\n".join(lines) + "\n", notes


def _text(text: str, field: str, notes: List[str]) -> str:
    """Return a string as the text of an element."""
    valid = _NOT_IN_XML.sub("?", text).strip()
    if valid != text:
        notes.append(f"the {field} is changed to {quoted(valid)}")
    return html.escape(valid, quote=False)


def _instrument(measurement: Measurement, notes: List[str]) -> List[str]:
    """Return the lines of the instrument; the schema requires maker and model."""
    lines = [
        '<RadInstrumentInformation id="Instrument">',
        "  <RadInstrumentManufacturerName>unknown</RadInstrumentManufacturerName>",
    ]
    if measurement.instrument:
        identifier = _text(measurement.instrument, "instrument", notes)
        lines.append(f"  <RadInstrumentIdentifier>{identifier}</RadInstrumentIdentifier>")
    return lines + [
        "  <RadInstrumentModelName>unknown</RadInstrumentModelName>",
        "  <RadInstrumentClassCode>Other</RadInstrumentClassCode>",
        "  <RadInstrumentVersion>",
        "    <RadInstrumentComponentName>Software</RadInstrumentComponentName>",
        "    <RadInstrumentComponentVersion>qar</RadInstrumentComponentVersion>",
        "  </RadInstrumentVersion>",
        "</RadInstrumentInformation>",
    ]


def _detector(measurement: Measurement, notes: List[str]) -> List[str]:
    lines = [f'<RadDetectorInformation id="{DETECTOR}">']
    if measurement.detector:
        name = _text(measurement.detector, "detector", notes)
        lines.append(f"  <RadDetectorName>{name}</RadDetectorName>")
    return lines + [
        "  <RadDetectorCategoryCode>Gamma</RadDetectorCategoryCode>",
        "  <RadDetectorKindCode>Other</RadDetectorKindCode>",
        "</RadDetectorInformation>",
    ]


def _energy(measurement: Measurement) -> List[str]:
    coefficients = calibration_conversion.decimals_from_zero(measurement.energy)
    coefficients += ["0"] * (3 - len(coefficients))  # the schema requires three
    return [
        f'<EnergyCalibration id="{_ENERGY}">',
        f"  <CoefficientValues>{' '.join(coefficients)}</CoefficientValues>",
        "</EnergyCalibration>",
    ]


def _width(measurement: Measurement, notes: List[str]) -> List[str]:
    """Return a table of widths; an empty list, with a note, if the shape does not give them."""
    if not measurement.shape:
        return []
    max_energy = 2000.0
    if measurement.energy:
        max_energy = polynomial(measurement.energy, len(measurement.counts))
    energies, widths = calibration_conversion.width_table(measurement.shape, max_energy)
    if not energies:
        notes.append("left out: the shape calibration, which gives no width at every energy")
        return []
    return [
        f'<FWHMCalibration id="{_WIDTH}">',
        f"  <EnergyValues>{' '.join(energies)}</EnergyValues>",
        f"  <FWHMValues>{' '.join(widths)}</FWHMValues>",
        "</FWHMCalibration>",
    ]


def _measurement(measurement: Measurement, references: str, notes: List[str]) -> List[str]:
    lines = [
        '<RadMeasurement id="Measurement">',
        "  <MeasurementClassCode>Foreground</MeasurementClassCode>",
    ]
    if measurement.start is not None:
        lines.append(
            f"  <StartDateTime>{parsing.precise_date_text(measurement.start)}</StartDateTime>"
        )
    if measurement.real_time is not None:
        duration = parsing.duration_text(measurement.real_time)
        lines.append(f"  <RealTimeDuration>{duration}</RealTimeDuration>")
    if measurement.start is None or measurement.real_time is None:
        notes.append(
            "left out: the start or the real time, which the schema requires, is not known"
        )
    name = re.sub(r"[^\w.-]", "_", measurement.name, flags=re.ASCII)
    identity = name if re.match(r"[A-Za-z_]", name) else f"Spectrum{name}"
    lines.append(f'  <Spectrum id="{identity}" {references}>')
    remarks = [TITLE + measurement.title] if measurement.title else []
    remarks += [line for line in measurement.remarks.split("\n") if line]
    lines += [f"    <Remark>{_text(remark, 'remark', notes)}</Remark>" for remark in remarks]
    if measurement.live_time is not None:
        duration = parsing.duration_text(measurement.live_time)
        lines.append(f"    <LiveTimeDuration>{duration}</LiveTimeDuration>")
    lines.append('    <ChannelData compressionCode="CountedZeroes">')
    lines += _rows(_counted_zeroes(measurement.counts))
    return lines + ["    </ChannelData>", "  </Spectrum>", "</RadMeasurement>"]


def _counted_zeroes(counts: Sequence[int]) -> List[str]:
    """Return the counts with each run of zeroes as one 0 and its length."""
    numbers: List[str] = []
    zeroes = 0
    for count in (*counts, None):
        if count == 0:
            zeroes += 1
            continue
        if zeroes:
            numbers += ["0", str(zeroes)]
            zeroes = 0
        if count is not None:
            numbers.append(str(count))
    return numbers


def _rows(numbers: Sequence[str]) -> List[str]:
    starts = range(0, len(numbers), _COUNTS_PER_LINE)
    return [" ".join(numbers[start : start + _COUNTS_PER_LINE]) for start in starts]
