"""A whole measurement as JSON, for the exchange between the suite and the embedded library.

    document = qar.transfer.dump.dump(source)        # on one machine
    qar.transfer.dump.load(document, "copy.qar")     # on the other

The document contains all values of all parameters of the dictionary by class, record and entry,
the spectrum, and a list of the values that could not be read. Missing values are not listed. A date
is a string such as 2024-01-24T21:02:12.000Z; numbers that JSON does not have are the strings "NaN",
"Infinity" and "-Infinity".
"""

import json
import math
import os
import re
from typing import Any, Counter, Dict, Iterator, List, NamedTuple, Optional, Tuple

import pyORV3

from .. import dictionary
from ..atomic_files import Path, new_file
from ..constants import QAR_CLS_SPECTRUM
from ..dictionary import MAX_CLASS, Parameter
from ..display.printable import printable
from ..errors import NotFoundError, QarError, check
from ..formats import FormatError
from ..formats.measurement import reading
from ..formats.parsing import read_file
from ..records import RecordSource
from ..status import NO_VALUE
from ..status import describe as describe_status
from ..status import unsigned
from ..values import MAX_WRITABLE_CHANNELS
from .present_classes import present_classes

Document = Dict[str, Any]

VERSION = 1
MAX_BYTES = 256 << 20
"""The size of the largest document that is read."""

_KEY = "qar_measurement"
_MAX_DIGITS = 20  # of an integer


# ---- From a data source ------------------------------------------------------------------------


def dump(source: RecordSource, max_number: int = dictionary.MAX_NUMBER) -> Document:
    """Return the whole content of an open source.

    max_number: the largest number within a class for which a parameter is tried.
    """
    document: Document = {_KEY: VERSION, "source": printable(os.path.basename(source.path))}
    failures: "Counter[str]" = Counter()
    known: Dict[str, Parameter] = {}
    classes = []
    for number in present_classes(source):
        parameters = dictionary.parameters_of(number, max_number)
        if number == QAR_CLS_SPECTRUM:
            continue
        if not parameters:
            failures[
                f"{dictionary.class_name(number)}: the dictionary has no parameter of this class"
            ] += 1
            continue
        cells = Cells(source, number, parameters, failures)
        known.update({parameter.name: parameter for parameter in cells.parameters_with_values()})
        classes.append({"class": number, "records": list(cells.records())})
    document["parameters"] = {name: _described(known[name]) for name in sorted(known)}
    document["classes"] = classes
    if source.record_count(QAR_CLS_SPECTRUM):
        document["spectrum"] = _spectrum(source, failures)
    document["not_reached"] = [
        text if count == 1 else f"{text} ({count} times)" for text, count in failures.items()
    ]
    return document


def _described(parameter: Parameter) -> Dict[str, Any]:
    return {
        "code": parameter.code,
        "type": parameter.type_name,
        "description": parameter.description,
    }


def _spectrum(source: RecordSource, failures: "Counter[str]") -> List[int]:
    try:
        return list(source.spectrum())
    except QarError as error:
        failures[f"the spectrum: {error.text}"] += 1
        return []


class Cells:
    """The values of one class that can be read, by parameter, record and entry."""

    def __init__(
        self,
        source: RecordSource,
        class_number: int,
        parameters: Tuple[Parameter, ...],
        failures: "Counter[str]",
    ) -> None:
        self._handle = source.handle
        self._parameters = parameters
        self._failures = failures
        count = source.record_count(class_number)
        self.entry_counts = [
            self._entries(source, class_number, record) for record in range(1, count + 1)
        ]
        self.values: Dict[str, Dict[Tuple[int, int], Any]] = {}
        for parameter in parameters:
            cells = dict(self._cells(parameter))
            if cells:
                self.values[parameter.name] = cells

    def _entries(self, source: RecordSource, class_number: int, record: int) -> int:
        try:
            return source.entry_count(class_number, record)
        except QarError as error:
            self._failures[f"{dictionary.class_name(class_number)}: entries: {error.text}"] += 1
            return 0

    def _cells(self, parameter: Parameter) -> Iterator[Tuple[Tuple[int, int], Any]]:
        code = dictionary.signed(parameter.code)
        for record, entries in enumerate(self.entry_counts, start=1):
            last = 1 if parameter.per_entry is False else max(1, entries)
            for entry in range(1, last + 1):
                status, value = pyORV3.getParameter(self._handle, code, record, entry)
                if status == 0:
                    yield (record, entry), _to_json(value)
                elif unsigned(status) not in NO_VALUE:
                    text = describe_status(status).text
                    self._failures[f"{parameter.name}: {text} (0x{unsigned(status):08X})"] += 1

    def parameters_with_values(self) -> List[Parameter]:
        """Return the parameters that have at least one value."""
        return [parameter for parameter in self._parameters if parameter.name in self.values]

    def per_entry(self, parameter: Parameter) -> bool:
        """Return True if a parameter has a value in each entry rather than in each record.

        If the dictionary does not give it, the values decide: a parameter of the record can be
        read in the first entry only.
        """
        if parameter.per_entry is not None:
            return parameter.per_entry
        return any(entry > 1 for _, entry in self.values.get(parameter.name, ()))

    def records(self) -> Iterator[Dict[str, Any]]:
        """Yield each record: its values, and those of each entry."""
        of_entries = {p.name for p in self.parameters_with_values() if self.per_entry(p)}
        for record, entries in enumerate(self.entry_counts, start=1):
            values = {
                name: cells[record, 1]
                for name, cells in self.values.items()
                if name not in of_entries and (record, 1) in cells
            }
            content: Dict[str, Any] = {"values": values}
            if entries:
                content["entries"] = [
                    {
                        name: self.values[name][record, entry]
                        for name in sorted(of_entries)
                        if (record, entry) in self.values[name]
                    }
                    for entry in range(1, entries + 1)
                ]
            yield content


def _to_json(value: Any) -> Any:
    """Return a value in a form that JSON can store."""
    if isinstance(value, float) and not math.isfinite(value):
        return "NaN" if math.isnan(value) else ("Infinity" if value > 0 else "-Infinity")
    return value


def text_of(document: Document) -> str:
    """Return a document as readable JSON, with the spectrum on one line."""
    text = json.dumps(document, indent=1, ensure_ascii=False, allow_nan=False)
    return re.sub(r"\[\n\s+(-?\d[-\d,\s]*?)\n\s+\]", _on_one_line, text) + "\n"


def _on_one_line(match: "re.Match[str]") -> str:
    return "[" + re.sub(r"\s+", " ", match.group(1)) + "]"


# ---- To a new file -----------------------------------------------------------------------------


def read(path: Path) -> Document:
    """Return the document in a JSON file. Raises FormatError, OSError."""
    with reading(path):
        return _document_of(read_file(os.fspath(path), MAX_BYTES))


def _document_of(data: bytes) -> Document:
    try:
        document = json.loads(data.decode("utf-8"), parse_int=_integer)
    except RecursionError:
        raise FormatError("not a dump: nested too deeply") from None
    except ValueError as error:
        raise FormatError(f"not JSON: {error}") from None
    return _checked(document)


def _integer(text: str) -> int:
    if len(text) > _MAX_DIGITS:
        raise ValueError(f"a number of {len(text)} digits; expected at most {_MAX_DIGITS}")
    return int(text)


def _checked(document: Any) -> Document:
    """Return the document. Raises FormatError if it does not have the structure of a dump."""
    if not isinstance(document, dict) or document.get(_KEY) != VERSION:
        raise FormatError(f'not a dump; expected an object with "{_KEY}": {VERSION}')
    spectrum = document.get("spectrum", [])
    parameters = document.get("parameters", {})
    classes = document.get("classes", [])
    if not isinstance(spectrum, list) or not all(type(content) is int for content in spectrum):
        raise FormatError('"spectrum" is not a list of integers')
    if not isinstance(parameters, dict) or not all(
        isinstance(p, dict) and type(p.get("code")) is int for p in parameters.values()
    ):
        raise FormatError('"parameters" is not an object of parameters, each with a code')
    if not isinstance(classes, list):
        raise FormatError('"classes" is not a list')
    for content in classes:
        number = content.get("class") if isinstance(content, dict) else None
        if type(number) is not int or not 0 < number <= MAX_CLASS:
            raise FormatError('a class without a number from 1 to 65535 as "class"')
        records = content.get("records")
        if not isinstance(records, list) or not all(map(_is_record, records)):
            raise FormatError(f'class {number}: "records" is not a list of records')
    return document


def _is_record(record: Any) -> bool:
    return (
        isinstance(record, dict)
        and isinstance(record.get("values", {}), dict)
        and isinstance(record.get("entries", []), list)
        and all(isinstance(entry, dict) for entry in record.get("entries", []))
    )


def load(document: Document, path: Path, replace: bool = False) -> List[str]:
    """Create a file from a document; return one line for each kind of value that was not stored.

    The file appears complete or not at all. Raises FileExistsError if it exists and `replace` is
    false.
    """
    failures: "Counter[str]" = Counter()
    with new_file(path, replace) as temporary, RecordSource(temporary, "x") as source:
        _Loading(_checked(document), source, failures).run()
    return [text if count == 1 else f"{text} ({count} times)" for text, count in failures.items()]


class _Loading(NamedTuple):
    document: Document
    source: RecordSource
    failures: "Counter[str]"

    def run(self) -> None:
        for content in self.document.get("classes", []):
            self._class(content["class"], content["records"])
        if "spectrum" in self.document:
            self._spectrum(self.document["spectrum"])

    def _class(self, number: int, records: List[Dict[str, Any]]) -> None:
        """Store records up to the first one that does not fit; those after it cannot either."""
        name = dictionary.class_name(number)
        for record, content in enumerate(records, start=1):
            try:
                self._insert(number, record)
            except QarError as error:
                self.failures[f"{name}: records {record:,} to {len(records):,}: {error.text}"] += 1
                return
            self._values(content.get("values", {}), record, 1)
            try:
                for entry, values in enumerate(content.get("entries", []), start=1):
                    self.source.insert(number, record, entry)
                    self._values(values, record, entry)
            except QarError as error:
                self.failures[f"{name}: entries of record {record:,}: {error.text}"] += 1

    def _insert(self, number: int, record: int) -> None:
        try:
            self.source.insert(number, record)
        except QarError:  # some libraries require the class to be created first
            check(pyORV3.createBlock(self.source.handle, number, 0), "creating a class", number)
            self.source.insert(number, record)

    def _values(self, values: Dict[str, Any], record: int, entry: int) -> None:
        for name, value in values.items():
            parameter = self._parameter(name)
            if parameter is None:
                self.failures[f"{name}: the dictionary has no such parameter"] += 1
                continue
            try:
                self.source[parameter.code, record, entry] = _from_json(parameter, value)
            except QarError as error:
                self.failures[f"{name}: {error.text}"] += 1

    def _parameter(self, name: str) -> Optional[Parameter]:
        """Return a parameter of the same type by its name, otherwise by its code, or None."""
        with_code = self.document.get("parameters", {}).get(name, {})
        for key in (name, with_code.get("code", 0)):
            try:
                parameter = dictionary.describe(key)
            except (NotFoundError, OverflowError):
                continue
            if with_code.get("type", parameter.type_name) == parameter.type_name:
                return parameter
        return None

    def _spectrum(self, spectrum: List[int]) -> None:
        if len(spectrum) > MAX_WRITABLE_CHANNELS:
            rest = f"channels {MAX_WRITABLE_CHANNELS + 1:,} to {len(spectrum):,}"
            limit = f"a spectrum has at most {MAX_WRITABLE_CHANNELS:,}"
            self.failures[f"{rest}: {limit}"] += 1
        try:
            contents = tuple(spectrum[:MAX_WRITABLE_CHANNELS])
            check(pyORV3.setSpectrum(self.source.handle, contents, 0, 0), "writing the spectrum")
        except QarError as error:
            self.failures[f"the spectrum: {error.text}"] += 1


def _from_json(parameter: Parameter, value: Any) -> Any:
    """Return a value of a document in the type of its parameter."""
    if parameter.type_name in ("float", "double") and value in ("NaN", "Infinity", "-Infinity"):
        return float(value)
    return value
