"""A whole measurement as JSON, through the functions of pyORV3 alone.

    document = qar.transfer.dump.dump(source)        # in one world
    qar.transfer.dump.load(document, "copy.qar")     # in the other

The document holds every value of every parameter that the dictionary knows, by class, record and
entry, the spectrum, and a list of what could not be reached. A value that is missing is not in
it. A date is a text such as 2024-01-24T21:02:12.000Z; a number that JSON has not is the text
"NaN", "Infinity" or "-Infinity".
"""

import json
import math
import os
import re
from typing import Any, Counter, Dict, Iterator, List, NamedTuple, Optional, Tuple

import pyORV3

from .. import dictionary
from ..atomic_files import Path, new_file
from ..dictionary import Parameter
from ..errors import NotFoundError, QarError, check
from ..formats import FormatError
from ..formats.measurement import reading
from ..formats.parsing import read_file
from ..source import DataSource
from ..source import open as open_source
from ..status import NO_VALUE
from ..status import describe as describe_status
from ..status import unsigned
from ..values import MOST_CHANNELS
from .conversion import write_date

Document = Dict[str, Any]

VERSION = 1
SPECTRUM_CLASS = 0x2005
MOST_BYTES = 256 << 20
HIGHEST_CLASS = 0xFFFF

_KEY = "qar_measurement"
_LONGEST_WHOLE_NUMBER = 20


# ---- Out of a data source ----------------------------------------------------------------------


def dump(source: DataSource, highest_number: int = dictionary.HIGHEST_NUMBER) -> Document:
    """The whole content of an open data source.

    highest_number: up to which number within a class parameters are looked for.
    """
    document: Document = {_KEY: VERSION, "source": os.path.basename(source.path)}
    failures: "Counter[str]" = Counter()
    known: Dict[str, Parameter] = {}
    classes = []
    for number in present_classes(source):
        parameters = dictionary.parameters_of(number, highest_number)
        if number == SPECTRUM_CLASS:
            continue
        records = source.record_count(number)
        if not parameters:
            failures[f"{dictionary.class_name(number)}: no parameter of it is known"] += 1
            continue
        cells = Cells(source, number, parameters, failures)
        known.update({parameter.name: parameter for parameter in cells.found()})
        classes.append({"class": number, "records": list(cells.records())})
    document["parameters"] = {name: _described(known[name]) for name in sorted(known)}
    document["classes"] = classes
    if source.record_count(SPECTRUM_CLASS):
        document["spectrum"] = _spectrum(source, failures)
    document["not_reached"] = [
        text if count == 1 else f"{text} ({count} times)" for text, count in failures.items()
    ]
    return document


def present_classes(source: DataSource) -> List[int]:
    """The classes of which the source has records, by asking for each number there is."""
    count, handle = pyORV3.count, source.handle
    found = []
    for number in range(1, HIGHEST_CLASS + 1):
        status, records = count(handle, number, 0)
        if status == 0 and records:
            found.append(number)
    return found


def _described(parameter: Parameter) -> Dict[str, Any]:
    return {
        "code": parameter.code,
        "type": parameter.type_name,
        "description": parameter.description,
    }


def _spectrum(source: DataSource, failures: "Counter[str]") -> List[int]:
    try:
        return list(source.spectrum())
    except QarError as error:
        failures[f"the spectrum: {error.text}"] += 1
        return []


class Cells:
    """The values of one class, read where they can be: (parameter, record, entry)."""

    def __init__(
        self,
        source: DataSource,
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

    def _entries(self, source: DataSource, class_number: int, record: int) -> int:
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
                    yield (record, entry), _written(value)
                elif unsigned(status) not in NO_VALUE:
                    text = describe_status(status).text
                    self._failures[f"{parameter.name}: {text} (0x{unsigned(status):08X})"] += 1

    def found(self) -> List[Parameter]:
        """The parameters that have a value somewhere."""
        return [parameter for parameter in self._parameters if parameter.name in self.values]

    def per_entry(self, parameter: Parameter) -> bool:
        """Whether the values stand in entries, for which the values speak where nothing is known.

        A parameter of the record can be read at its first entry at most.
        """
        if parameter.per_entry is not None:
            return parameter.per_entry
        return any(entry > 1 for _, entry in self.values.get(parameter.name, ()))

    def records(self) -> Iterator[Dict[str, Any]]:
        """Each record: its values, and those of each entry."""
        of_entries = {p.name for p in self.found() if self.per_entry(p)}
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


def _written(value: Any) -> Any:
    """The value as JSON has it."""
    if isinstance(value, float) and not math.isfinite(value):
        return "NaN" if value != value else ("Infinity" if value > 0 else "-Infinity")
    return value


def text_of(document: Document) -> str:
    """The document as JSON that a person can read: a spectrum is on one line."""
    text = json.dumps(document, indent=1, ensure_ascii=False, allow_nan=False)
    return re.sub(r"\[\n\s+(-?\d[-\d,\s]*?)\n\s+\]", _on_one_line, text) + "\n"


def _on_one_line(match: "re.Match[str]") -> str:
    return "[" + re.sub(r"\s+", " ", match.group(1)) + "]"


# ---- Into a new file ---------------------------------------------------------------------------


def read(path: Path) -> Document:
    """The document in a JSON file. Raises FormatError where it is none."""
    with reading(path):
        return _document_of(read_file(os.fspath(path), MOST_BYTES))


def _document_of(data: bytes) -> Document:
    try:
        document = json.loads(data.decode("utf-8"), parse_int=_whole_number)
    except RecursionError:
        raise FormatError("no measurement: nested too deeply") from None
    except ValueError as error:
        raise FormatError(f"not JSON: {error}") from None
    return _checked(document)


def _whole_number(text: str) -> int:
    if len(text) > _LONGEST_WHOLE_NUMBER:
        raise ValueError(f"a number of {len(text)} digits")
    return int(text)


def _checked(document: Any) -> Document:
    """The document; FormatError where its parts are not of the kinds that `dump` makes."""
    if not isinstance(document, dict) or document.get(_KEY) != VERSION:
        raise FormatError(f'no measurement: wanted is an object with "{_KEY}": {VERSION}')
    spectrum = document.get("spectrum", [])
    parameters = document.get("parameters", {})
    classes = document.get("classes", [])
    if not isinstance(spectrum, list) or not all(type(content) is int for content in spectrum):
        raise FormatError('"spectrum" is no list of whole numbers')
    if not isinstance(parameters, dict) or not all(
        isinstance(p, dict) and type(p.get("code")) is int for p in parameters.values()
    ):
        raise FormatError('"parameters" is no object of parameters, each with a code')
    if not isinstance(classes, list):
        raise FormatError('"classes" is no list')
    for content in classes:
        number = content.get("class") if isinstance(content, dict) else None
        if type(number) is not int or not 0 < number <= HIGHEST_CLASS:
            raise FormatError('a class without its number as "class"')
        records = content.get("records")
        if not isinstance(records, list) or not all(map(_is_record, records)):
            raise FormatError(f'class {number}: "records" is no list of records')
    return document


def _is_record(record: Any) -> bool:
    return (
        isinstance(record, dict)
        and isinstance(record.get("values", {}), dict)
        and isinstance(record.get("entries", []), list)
        and all(isinstance(entry, dict) for entry in record.get("entries", []))
    )


def load(document: Document, path: Path, replace: bool = False) -> List[str]:
    """Makes a file of a document; returns what could not be stored, a line for each kind.

    The file appears complete or not at all. FileExistsError: the name is taken and is not to be
    replaced.
    """
    failures: "Counter[str]" = Counter()
    with new_file(path, replace) as temporary, open_source(temporary, "x") as source:
        _Loading(_checked(document), source, failures).run()
    return [text if count == 1 else f"{text} ({count} times)" for text, count in failures.items()]


class _Loading(NamedTuple):
    document: Document
    source: DataSource
    failures: "Counter[str]"

    def run(self) -> None:
        for content in self.document.get("classes", []):
            for record, values in enumerate(content["records"], start=1):
                self._record(content["class"], record, values)
        if "spectrum" in self.document:
            self._spectrum(self.document["spectrum"])

    def _record(self, number: int, record: int, content: Dict[str, Any]) -> None:
        entries = content.get("entries", [])
        try:
            self._begin(number, record, len(entries))
        except QarError as error:
            self.failures[f"{dictionary.class_name(number)}: {error.text}"] += 1
            return
        self._values(content.get("values", {}), record, 1)
        for entry, values in enumerate(entries, start=1):
            self._values(values, record, entry)

    def _begin(self, number: int, record: int, entries: int) -> None:
        try:
            self.source.insert(number, record)
        except QarError:  # a library that wants the class to be made first
            check(pyORV3.createBlock(self.source.handle, number, record), "making a class", number)
            self.source.insert(number, record)
        for entry in range(1, entries + 1):
            self.source.insert(number, record, entry)

    def _values(self, values: Dict[str, Any], record: int, entry: int) -> None:
        for name, value in values.items():
            parameter = self._parameter(name)
            if parameter is None:
                self.failures[f"{name}: the dictionary has no such parameter"] += 1
                continue
            try:
                if parameter.type_name == "Date" and isinstance(value, str):
                    write_date(self.source, parameter.code, record, entry, value)
                else:
                    self.source[parameter.code, record, entry] = _read(parameter, value)
            except QarError as error:
                self.failures[f"{name}: {error.text}"] += 1

    def _parameter(self, name: str) -> Optional[Parameter]:
        """By its name; where that is not known by its code, if it is of the same type."""
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
        if len(spectrum) > MOST_CHANNELS:
            more = f"{MOST_CHANNELS + 1:,} to {len(spectrum):,}"
            self.failures[f"channels {more}: more than can be written"] += 1
        try:
            contents = tuple(spectrum[:MOST_CHANNELS])
            check(pyORV3.setSpectrum(self.source.handle, contents, 0, 0), "writing the spectrum")
        except QarError as error:
            self.failures[f"the spectrum: {error.text}"] += 1


def _read(parameter: Parameter, value: Any) -> Any:
    """The value of the document as the parameter's type wants it."""
    if parameter.type_name in ("float", "double") and value in ("NaN", "Infinity", "-Infinity"):
        return float(value)
    return value
