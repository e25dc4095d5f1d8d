"""Access to the values, records and spectrum of an open data source."""

from typing import Any, Dict, Iterable, Iterator, List, Mapping, Optional, Tuple, Union

import pyORV3

from . import dictionary, values
from .dictionary import Key, Parameter
from .enums import EnergySearch, NameSearch, ResultLevel
from .errors import QarError, check, refuse
from .handle import OpenSource
from .optional_imports import required
from .status import BAD_ARGUMENTS, NO_VALUE, unsigned
from .values import MAX_INDEX

Cell = Union[Key, Tuple[Key, int], Tuple[Key, int, int]]
"""The key of a value: a parameter, its record (default 1) and its entry (default 1)."""


class RecordSource(OpenSource):
    """An open data source as values, records and a spectrum.

    Parameters are given by their names in the dictionary, in any case, or by their codes; a class
    by its number, its name or any parameter of it. Records, entries and channels count from 1.
    """

    is_scratch = False  # True for a temporary copy, which may be changed freely

    # ---- Values --------------------------------------------------------------------------------

    def __getitem__(self, cell: Cell) -> Any:
        """Return a value: bool, int, float or str; a date as str (2024-01-24T21:02:12.000Z).

        Raises NotFoundError if the parameter, record, entry or value does not exist.
        """
        key, record, entry = _key_record_entry("reading", cell)
        answer = pyORV3.getParameter(self.handle, dictionary.code_of(key), record, entry)
        return check(answer, _attempt("reading", record, entry), key)

    def __setitem__(self, cell: Cell, value: Any) -> None:
        """Write a value. The record or entry after the last one is created.

        Raises BadArgumentError, without writing anything, if the value has another type, is out
        of range, too long or not in the code page; ReadOnlyError; NotFoundError if there is no
        such parameter, or for a record or entry further on.
        """
        key, record, entry = _key_record_entry("writing", cell)
        parameter = dictionary.describe(key)
        attempt = _attempt("writing", record, entry)
        try:
            converted = values.to_library(parameter, value)
        except (TypeError, ValueError) as error:
            raise refuse(attempt, key, f"{value!r}: {error}") from None
        self._write(parameter, record, entry, converted, attempt)
        if parameter.type_name == "Date" and self[key, record, entry] != converted:
            # A date is a floating-point number, and reading cuts off digits below the millisecond.
            # A number just below the millisecond is replaced by one five microseconds later.
            self._write(parameter, record, entry, converted[:-1] + "005Z", attempt)

    def _write(
        self, parameter: Parameter, record: int, entry: int, value: Any, attempt: str
    ) -> None:
        status = pyORV3.setParameter(self.handle, parameter.code, value, record, entry)
        if unsigned(status) == BAD_ARGUMENTS and parameter.type_name == "Date":
            raise refuse(attempt, parameter.name, f"{value!r}: {values.DATE_HINT}")
        check(status, attempt, parameter.name)

    def __contains__(self, cell: Cell) -> bool:
        """Return True if a value exists."""
        return self.get(*_key_record_entry("reading", cell)) is not None

    def get(self, key: Key, record: int = 1, entry: int = 1, default: Any = None) -> Any:
        """Return source[key, record, entry], or the default if there is no value."""
        try:
            return self[key, record, entry]
        except QarError as error:
            if error.status in NO_VALUE:
                return default
            raise

    def update(self, items: Mapping[str, Any], record: int = 1) -> None:
        """Write several values of a record; a list, tuple or array is written to the entries."""
        for key, value in items.items():
            if isinstance(value, (str, bytes)) or not hasattr(value, "__len__"):
                self[key, record] = value
            else:
                self.set_column(key, value, record)

    def column(self, key: Key, record: int = 1) -> List[Any]:
        """Return the values in the entries of a record, up to the first entry without a value.

        Examples are the coefficients of a calibration and the line energies of a nuclide.
        """
        column: List[Any] = []
        for entry in range(1, self._entries_of(key, record) + 1):
            value = self.get(key, record, entry)
            if value is None:
                break
            column.append(value)
        return column

    def _entries_of(self, key: Key, record: int) -> int:
        """Return the maximum number of values of a parameter in a record."""
        if dictionary.describe(key).per_entry is False:
            return 1
        answer = pyORV3.count(self.handle, dictionary.class_of(key), _checked_record(key, record))
        if unsigned(answer[0]) in NO_VALUE:
            return 0
        return int(check(answer, "counting the entries of", key))

    def set_column(self, key: Key, column: Iterable[Any], record: int = 1) -> None:
        """Write the entries of a record from the first one on.

        The columns of a class share their entries, so none is deleted: if the old column was
        longer, its remaining entries become 0 or the empty string. `delete` removes entries.
        """
        new = list(column)
        old = len(self.column(key, record))
        filler: Any = "" if dictionary.describe(key).type_name == "str" else 0
        for entry, value in enumerate(new + [filler] * (old - len(new)), start=1):
            self[key, record, entry] = value

    def parameters(self, class_key: Key, record: int = 1) -> Iterator[Tuple[Parameter, Any]]:
        """Yield each parameter of a class that has a value in a record, with the value.

        The value is a list if the parameter has one in each entry.
        """
        for parameter in dictionary.parameters_of(class_key):
            value = self.get(parameter.code, record)
            if value is not None:
                yield parameter, (
                    self.column(parameter.code, record) if parameter.per_entry else value
                )

    # ---- Records -------------------------------------------------------------------------------

    def record_count(self, class_key: Key) -> int:
        """Return the number of records of a class."""
        answer = pyORV3.count(self.handle, dictionary.class_of(class_key), 0)
        return int(check(answer, "counting the records of", class_key))

    def entry_count(self, class_key: Key, record: int = 1) -> int:
        """Return the number of entries in a record of a class."""
        number = _checked_record(class_key, record)
        answer = pyORV3.count(self.handle, dictionary.class_of(class_key), number)
        return int(check(answer, f"counting the entries in record {record} of", class_key))

    def records(self, class_key: Key) -> List[Dict[str, Any]]:
        """Return the records of a class, each as its values by the names of their parameters."""
        return [
            {parameter.name: value for parameter, value in self.parameters(class_key, record)}
            for record in range(1, self.record_count(class_key) + 1)
        ]

    def table(self, class_key: Key) -> Any:
        """Return `records` as a pandas table with the record numbers as its index.

        Raises ImportError if pandas is not installed.
        """
        rows = self.records(class_key)
        return required("pandas").DataFrame(rows, index=range(1, len(rows) + 1))

    def append(self, items: Mapping[str, Any]) -> int:
        """Add a record with values of one class and return its number.

        A list, tuple or array is written to the entries.
        """
        if not items:
            raise refuse("appending a record", None, "no value was given")
        record = self.record_count(next(iter(items))) + 1
        self.update(items, record)
        return record

    def insert(self, class_key: Key, record: int, entry: int = 0) -> None:
        """Insert an empty record (entry 0) or an empty entry; those from there on move up."""
        attempt = _attempt("inserting", record, entry)
        _check_indices(attempt, class_key, record, entry)
        answer = pyORV3.insert(self.handle, dictionary.class_of(class_key), record, entry)
        check(answer, attempt, class_key)

    def delete(self, class_key: Key, record: int, entry: int = 0) -> None:
        """Delete a record (entry 0) or an entry; those after it move down."""
        attempt = _attempt("deleting", record, entry)
        _check_indices(attempt, class_key, record, entry)
        answer = pyORV3.delete(self.handle, dictionary.class_of(class_key), record, entry)
        check(answer, attempt, class_key)

    def clear(self, class_key: Key) -> None:
        """Delete all records of a class."""
        answer = pyORV3.deleteBlock(self.handle, dictionary.class_of(class_key))
        check(answer, "deleting the records of", class_key)

    def delete_results(self, level: ResultLevel = ResultLevel.PEAKS) -> None:
        """Delete the results of an analysis: peaks and nuclides, or the nuclides only."""
        check(pyORV3.deleteLevel(self.handle, level), "deleting the results", level)

    def copy_to(self, destination: "RecordSource", class_key: Optional[Key] = None) -> None:
        """Copy a class, or the whole source, into another source."""
        number = 0 if class_key is None else dictionary.class_of(class_key)
        answer = pyORV3.copyTo(self.handle, destination.handle, number)
        check(answer, f"copying {self.path} to", destination.path)

    def copy_record_to(
        self, destination: "RecordSource", class_key: Key, record: int, destination_record: int
    ) -> None:
        """Copy one record into another source."""
        attempt = f"copying record {record} of {class_key!r} to"
        _check_indices(attempt, destination.path, record, destination_record)
        answer = pyORV3.moveRecordsTo(
            self.handle,
            destination.handle,
            dictionary.class_of(class_key),
            record,
            destination_record,
        )
        check(answer, attempt, destination.path)

    def copy_analysis_sequence_to(self, destination: "RecordSource") -> None:
        """Copy analysis control, settings and geometry into another source.

        If the source refers to a calibration file, the calibration of that file is copied too.
        The settings of reports are not copied.
        """
        answer = pyORV3.copyAnalysisSequenceTo(self.handle, destination.handle)
        check(answer, f"copying the analysis sequence of {self.path} to", destination.path)

    def find_nuclide(
        self, name: str, option: NameSearch = NameSearch.EXACT_THEN_BEGINNING, after: int = 0
    ) -> int:
        """Return the first record after record `after` of a nuclide.

        Raises NotFoundError if there is none.
        """
        word = _search_word("searching for the nuclide", name, option, after)
        answer = pyORV3.findNuclideByName(self.handle, name, word)
        return int(check(answer, "searching for the nuclide", name))

    def find_nuclide_at(
        self,
        energy: float,
        tolerance: float,
        option: EnergySearch = EnergySearch.NEAREST,
        after: int = 0,
    ) -> int:
        """Return a record after record `after` of a nuclide with a line near an energy in keV.

        tolerance: the maximum distance of the line from the energy, in keV. Raises NotFoundError
        if there is none.
        """
        attempt = f"searching for a line within {tolerance:g} keV of"
        word = _search_word(attempt, energy, option, after)
        answer = pyORV3.findNuclideByEnergy(self.handle, energy, tolerance, word)
        return int(check(answer, attempt, energy))

    # ---- The spectrum --------------------------------------------------------------------------

    def spectrum(self) -> Tuple[int, ...]:
        """Return the contents of all channels; item 0 is channel 1.

        Raises NotFoundError if the source has no spectrum.
        """
        channels: Tuple[int, ...] = check(
            pyORV3.getSpectrum(self.handle, 0, 0), "reading the spectrum of", self.path
        )
        return channels

    def spectrum_array(self) -> Any:
        """Return `spectrum` as a numpy array of 32-bit integers.

        Raises ImportError if numpy is not installed.
        """
        return required("numpy").array(self.spectrum(), dtype="int32")

    def set_spectrum(self, channels: Iterable[Any]) -> None:
        """Write the spectrum; its length becomes the number of channels, 1 to 32,768.

        channels: a sequence or array of 32-bit integers, channel 1 first; floating-point numbers
        without a fraction are accepted. Raises BadArgumentError, without writing anything, for
        anything else.
        """
        attempt = "writing the spectrum of"
        try:
            contents = values.channel_contents(channels)
        except (TypeError, ValueError) as error:
            raise refuse(attempt, self.path, str(error)) from None
        self["QAR_L_CHANNELS"] = len(contents)
        check(pyORV3.setSpectrum(self.handle, contents, 0, 0), attempt, self.path)


# ---- Record and entry numbers ------------------------------------------------------------------


def _key_record_entry(doing: str, cell: Cell) -> Tuple[Key, int, int]:
    """Return the parameter, record and entry of a cell. Raises BadArgumentError."""
    if not isinstance(cell, tuple):
        return cell, 1, 1
    if not 1 <= len(cell) <= 3:
        raise refuse(doing, cell, "expected a parameter, a record and an entry")
    key, record, entry = (*cell, 1, 1)[:3]
    _check_indices(_attempt(doing, record, entry), key, record, entry)
    return key, int(record), int(entry)


def _check_indices(attempt: str, argument: Any, *numbers: int) -> None:
    """Raise BadArgumentError for a number that the library would cut to 16 bits."""
    for number in numbers:
        if not 0 <= number <= MAX_INDEX:
            raise refuse(
                attempt, argument, f"number {number}; expected a record or entry up to {MAX_INDEX}"
            )


def _checked_record(key: Key, record: int) -> int:
    _check_indices(_attempt("counting the entries in", record, 1), key, record)
    return record


def _search_word(attempt: str, argument: Any, option: int, after: int) -> int:
    """Return the option of a search with the record after which it begins."""
    _check_indices(attempt, argument, after)
    return dictionary.signed(after << 16 | option)


def _attempt(doing: str, record: int, entry: int) -> str:
    if entry > 1:
        return f"{doing} record {record}, entry {entry} of"
    return doing if record == 1 else f"{doing} record {record} of"
