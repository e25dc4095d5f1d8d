"""Data sources: a QAR file, or an input of the suite, as an object."""

import os
from datetime import datetime, timezone
from typing import Any, Dict, Iterable, Iterator, List, Mapping, Optional, Tuple, Union

import pyORV3

from . import dictionary, values
from .analysis import known_lines, results
from .analysis.calibration import Calibration
from .analysis.known_lines import LineCalibration
from .analysis.results import Analysis, Nuclide
from .dictionary import Key, Parameter
from .display import notebook
from .enums import AccessMode, EnergySearch, NameSearch, ResultLevel
from .errors import QarError, check, refuse
from .handle import INPUT, OpenSource
from .optional_imports import required
from .status import BAD_ARGUMENTS, NO_VALUE, unsigned

CALIBRATIONS = {
    "energy": "QAR_D_ENERGYCAL",
    "shape": "QAR_D_SHAPECAL",
    "efficiency": "QAR_D_EFFICCAL",
}
Place = Union[Key, Tuple[Key, int], Tuple[Key, int, int]]
"""Where a value stands: a parameter, its record (else 1), its entry of that record (else 1)."""


def open(path: Union[str, "os.PathLike[str]"], mode: Union[str, int] = "r") -> "DataSource":
    """Opens a QAR file: "r" reads, "r+" reads and writes, "x" makes a new one.

    A file is never overwritten: "x" raises ExistsError where the name is taken. NotFoundError:
    there is no such file; InUseError: another process writes it; DamagedError;
    BadArgumentError: it is no QAR file.
    """
    return DataSource(path, mode)


def open_input(name: str, mode: Union[str, int] = "r") -> "DataSource":
    """Opens an input of the suite's environment by its name, one of `inputs`."""
    return DataSource(name, mode, INPUT)


class DataSource(OpenSource):
    """An open data source. Use it in a `with` statement, which saves and closes it.

        with qar.open("sample.qar", "r+") as source:
            source["QAR_C_OPERATOR"] = "J. Miller"
            print(source["QAR_D_LIVETIME"], source["QAR_D_PEAKENERGY", 3])

    Parameters are named as the dictionary names them, in any case, or by their code. Records and
    entries count from 1, and so do channels. Where a class is meant, its number or name serves,
    or any parameter of it. A failure raises a QarError of the family that the status belongs to.
    """

    # ---- Values --------------------------------------------------------------------------------

    def __getitem__(self, place: Place) -> Any:
        """The value at a place: bool, int, float or str, of a date a str such as
        2024-01-24T21:02:12.000Z. NotFoundError: no such parameter, record, entry, or no value.
        """
        key, record, entry = _place(place)
        answer = pyORV3.getParameter(self.handle, dictionary.code_of(key), record, entry)
        return check(answer, _at("reading", record, entry), key)

    def __setitem__(self, place: Place, value: Any) -> None:
        """Writes a value; a record or entry one behind the last is made.

        BadArgumentError: of another type, out of range, a text that is too long or that the code
        page has not; nothing has been written then. ReadOnlyError. NotFoundError: no such
        parameter, or a record or entry further on.
        """
        key, record, entry = _place(place)
        parameter = dictionary.describe(key)
        attempt = _at("writing", record, entry)
        try:
            converted = values.to_library(parameter, value)
        except (TypeError, ValueError) as error:
            raise refuse(attempt, key, f"{value!r}: {error}") from None
        status = pyORV3.setParameter(self.handle, parameter.code, converted, record, entry)
        if unsigned(status) == BAD_ARGUMENTS and parameter.type_name == "Date":
            raise refuse(attempt, key, f"{value!r}: {values.DATE_HINT}")
        check(status, attempt, key)

    def __contains__(self, place: Place) -> bool:
        """Whether there is a value at the place."""
        key, record, entry = _place(place)
        return self.get(key, record, entry) is not None

    def get(self, key: Key, record: int = 1, entry: int = 1, default: Any = None) -> Any:
        """As source[key, record, entry], but the default where there is no value."""
        try:
            return self[key, record, entry]
        except QarError as error:
            if error.status in NO_VALUE:
                return default
            raise

    def update(self, items: Mapping[str, Any], record: int = 1) -> None:
        """Writes several values of a record; a list, tuple or array goes to the entries."""
        for key, value in items.items():
            if isinstance(value, (str, bytes)) or not hasattr(value, "__len__"):
                self[key, record] = value
            else:
                self.set_column(key, value, record)

    def column(self, key: Key, record: int = 1) -> List[Any]:
        """The values in the entries of a record, up to the first entry without one.

        The coefficients of a calibration for instance, or the line energies of a nuclide.
        """
        found: List[Any] = []
        for entry in range(1, self._entries_of(key, record) + 1):
            value = self.get(key, record, entry)
            if value is None:
                break
            found.append(value)
        return found

    def _entries_of(self, key: Key, record: int) -> int:
        """How many values a record may have of a parameter."""
        if dictionary.describe(key).per_entry is False:
            return 1
        answer = pyORV3.count(self.handle, dictionary.class_of(key), record)
        return (
            0 if unsigned(answer[0]) in NO_VALUE else int(check(answer, "counting entries of", key))
        )

    def set_column(self, key: Key, column: Iterable[Any], record: int = 1) -> None:
        """Writes the entries of a record from the first on.

        Entries are shared by the columns of a class, so none is deleted: what a longer column had
        behind the new one becomes 0 or the empty text. `delete` removes whole entries.
        """
        new = list(column)
        old = len(self.column(key, record))
        filler: Any = "" if dictionary.describe(key).type_name == "str" else 0
        for entry, value in enumerate(new + [filler] * (old - len(new)), start=1):
            self[key, record, entry] = value

    def parameters(self, class_key: Key, record: int = 1) -> Iterator[Tuple[Parameter, Any]]:
        """Every parameter of a class that has a value in a record, with the value.

        A parameter with a value in each entry comes with a list of them.
        """
        for parameter in dictionary.parameters_of(class_key):
            value = self.get(parameter.code, record)
            if value is not None:
                yield parameter, self.column(
                    parameter.code, record
                ) if parameter.per_entry else value

    # ---- Records -------------------------------------------------------------------------------

    def record_count(self, class_key: Key) -> int:
        """How many records a class has."""
        answer = pyORV3.count(self.handle, dictionary.class_of(class_key), 0)
        return int(check(answer, "counting the records of", class_key))

    def entry_count(self, class_key: Key, record: int = 1) -> int:
        """How many entries a record of a class has."""
        answer = pyORV3.count(self.handle, dictionary.class_of(class_key), record)
        return int(check(answer, f"counting the entries in record {record} of", class_key))

    def records(self, class_key: Key) -> List[Dict[str, Any]]:
        """The records of a class, each as the values that are set by their parameters' names."""
        return [
            {parameter.name: value for parameter, value in self.parameters(class_key, record)}
            for record in range(1, self.record_count(class_key) + 1)
        ]

    def table(self, class_key: Key) -> Any:
        """As `records`, as a pandas table with the record numbers as its index. ImportError:
        pandas is missing.
        """
        rows = self.records(class_key)
        frame = required("pandas", "pandas", "analysis").DataFrame
        return frame(rows, index=range(1, len(rows) + 1))

    def append(self, items: Mapping[str, Any]) -> int:
        """Adds a record with these values, all of one class (lists go to the entries).

        Returns the number of the record.
        """
        if not items:
            raise refuse("appending a record", None, "no value was given")
        record = self.record_count(next(iter(items))) + 1
        self.update(items, record)
        return record

    def insert(self, class_key: Key, record: int, entry: int = 0) -> None:
        """Inserts an empty record (entry 0) or entry; those at and behind it move down."""
        answer = pyORV3.insert(self.handle, dictionary.class_of(class_key), record, entry)
        check(answer, _at("inserting", record, entry), class_key)

    def delete(self, class_key: Key, record: int, entry: int = 0) -> None:
        """Deletes a record (entry 0) or an entry; those behind it move up."""
        answer = pyORV3.delete(self.handle, dictionary.class_of(class_key), record, entry)
        check(answer, _at("deleting", record, entry), class_key)

    def clear(self, class_key: Key) -> None:
        """Deletes all records of a class."""
        answer = pyORV3.deleteBlock(self.handle, dictionary.class_of(class_key))
        check(answer, "deleting the records of", class_key)

    def delete_results(self, level: ResultLevel = ResultLevel.PEAKS) -> None:
        """Deletes the results of an analysis: the peaks and nuclides, or the nuclides alone."""
        check(pyORV3.deleteLevel(self.handle, level), "deleting the results", level)

    def copy_to(self, destination: "DataSource", class_key: Optional[Key] = None) -> None:
        """Copies a class, or the whole source, into another one."""
        number = 0 if class_key is None else dictionary.class_of(class_key)
        answer = pyORV3.copyTo(self.handle, destination.handle, number)
        check(answer, f"copying {self.path} to", destination.path)

    def copy_record_to(
        self, destination: "DataSource", class_key: Key, record: int, destination_record: int
    ) -> None:
        """Copies one record into another source."""
        number = dictionary.class_of(class_key)
        answer = pyORV3.moveRecordsTo(
            self.handle, destination.handle, number, record, destination_record
        )
        check(answer, f"copying record {record} of {class_key!r} to", destination.path)

    def copy_analysis_sequence_to(self, destination: "DataSource") -> None:
        """Copies analysis control, settings, geometry and, where the source says so, the
        calibration of the file that it refers to. What concerns reports stays the destination's.
        """
        answer = pyORV3.copyAnalysisSequenceTo(self.handle, destination.handle)
        check(answer, f"copying the analysis sequence of {self.path} to", destination.path)

    def find_nuclide(
        self, name: str, option: NameSearch = NameSearch.EXACT_THEN_BEGINNING, after: int = 0
    ) -> int:
        """The record of a nuclide, searched for behind record `after`; NotFoundError without."""
        answer = pyORV3.findNuclideByName(self.handle, name, after << 16 | option)
        return int(check(answer, "searching for the nuclide", name))

    def find_nuclide_at(
        self,
        energy: float,
        tolerance: float,
        option: EnergySearch = EnergySearch.NEAREST,
        after: int = 0,
    ) -> int:
        """The record of a nuclide with a line within the tolerance of an energy, both in keV,
        searched for behind record `after`; NotFoundError without.
        """
        answer = pyORV3.findNuclideByEnergy(self.handle, energy, tolerance, after << 16 | option)
        return int(check(answer, f"searching for a line within {tolerance:g} keV of", energy))

    # ---- The spectrum --------------------------------------------------------------------------

    def spectrum(self) -> Tuple[int, ...]:
        """The contents of all channels; item 0 is channel 1. NotFoundError without a spectrum."""
        channels: Tuple[int, ...] = check(
            pyORV3.getSpectrum(self.handle, 0, 0), "reading the spectrum of", self.path
        )
        return channels

    def spectrum_array(self) -> Any:
        """As `spectrum`, as a numpy array of 32-bit integers. ImportError: numpy is missing."""
        return required("numpy", "numpy", "analysis").array(self.spectrum(), dtype="int32")

    def set_spectrum(self, channels: Iterable[Any]) -> None:
        """Makes the spectrum as long as the channels, 1 to 32,768, and writes them.

        channels: any sequence or array of whole numbers of 32 bits, channel 1 first;
        floating-point numbers without a fraction serve too. BadArgumentError: something else is
        among them; nothing has been written then.
        """
        attempt = "writing the spectrum of"
        try:
            contents = values.channel_contents(channels)
        except (TypeError, ValueError) as error:
            raise refuse(attempt, self.path, str(error)) from None
        self["QAR_L_CHANNELS"] = len(contents)
        check(pyORV3.setSpectrum(self.handle, contents, 0, 0), attempt, self.path)

    # ---- Calibrations and the analysis ---------------------------------------------------------

    def calibration(self) -> Calibration:
        """The energy, shape and efficiency calibrations of the file, as functions."""
        columns = (tuple(self.column(name)) for name in CALIBRATIONS.values())
        return Calibration(*columns)

    def set_calibration(
        self,
        energy: Optional[Iterable[float]] = None,
        shape: Optional[Iterable[float]] = None,
        efficiency: Optional[Iterable[float]] = None,
    ) -> None:
        """Writes calibrations, each as the coefficients of a polynomial (see Calibration); what
        is not given stays. The energy polynomial takes channels counted from 1:
        calibration.counted_from_one converts one for channels counted from 0.
        """
        for key, coefficients in zip(CALIBRATIONS.values(), (energy, shape, efficiency)):
            if coefficients is not None:
                self.set_column(key, coefficients)

    def calibrate(self, lines: Mapping[float, float], degree: int = 1) -> LineCalibration:
        """Calibrates energy and peak width by known lines and writes both, with the time.

        lines: energies in keV, each with the channel (counted from 1) near which its peak lies.
        degree: of the energy polynomial. BadArgumentError: no peak at one of them, too few lines,
        or energies that do not rise with the channel; nothing has been written then.
        """
        try:
            found = known_lines.calibrate(self.spectrum(), lines, degree)
        except ValueError as error:
            raise refuse("calibrating", self.path, str(error)) from None
        self.set_calibration(found.calibration.energy, found.calibration.shape)
        self["QAR_T_ENERGYTIME"] = datetime.now(timezone.utc)
        return found

    def nuclide_library(self) -> List[Nuclide]:
        """The nuclides that an identification works with."""
        return results.nuclide_library(self)

    def set_nuclide_library(self, nuclides: Iterable[Nuclide]) -> None:
        """Replaces the nuclides that an identification works with."""
        results.write_nuclide_library(self, nuclides)

    def analyse(
        self,
        engine: str = results.ENGINE,
        entry_point: str = results.ENTRY_POINT,
        options: int = 0,
        **settings: Any,
    ) -> Analysis:
        """Writes processing settings, runs an engine and returns its results.

        settings: parameters by name, such as QAR_D_PEAKLIMIT=4.0; what is not given stays as the
        file has it. options: the engine's option word. EngineError: the engine failed or is
        missing; its text says why, a calibration that is not there for instance.
        """
        self.update(settings)
        results.run_engine(self, engine, entry_point, options)
        return self.results()

    def results(self) -> Analysis:
        """The peaks and nuclides of the last analysis."""
        return results.results(self)

    # ---- In a console and in a notebook --------------------------------------------------------

    def __repr__(self) -> str:
        if self.closed:
            return f"<qar.DataSource {self.path!r}, closed>"
        channels = self.get("QAR_L_CHANNELS")
        size = "no spectrum" if channels is None else f"{channels:,} channels"
        access = (
            "" if self.mode & AccessMode.WRITE or self.mode & AccessMode.CREATE else ", read only"
        )
        return f"<qar.DataSource {self.path!r}, {size}{access}>"

    def _repr_html_(self) -> str:
        return notebook.of_source(self)


def _place(place: Place) -> Tuple[Key, int, int]:
    if not isinstance(place, tuple):
        return place, 1, 1
    if not 1 <= len(place) <= 3:
        raise refuse("using the place", place, "wanted are a parameter, a record and an entry")
    key, record, entry = (*place, 1, 1)[:3]
    return key, int(record), int(entry)


def _at(doing: str, record: int, entry: int) -> str:
    if entry > 1:
        return f"{doing} record {record}, entry {entry} of"
    return doing if record == 1 else f"{doing} record {record} of"
