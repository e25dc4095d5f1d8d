"""Data sources, a QAR file or an input of the suite, as objects."""

import os
from datetime import datetime, timezone
from typing import (
    Any,
    Callable,
    Collection,
    Iterable,
    List,
    Mapping,
    Optional,
    Sequence,
    Tuple,
    Union,
)

from . import dictionary
from .analysis import blank as blanks
from .analysis import calibration, dates, known_lines, line_peaks, results
from .analysis.blank import Blank
from .analysis.calibration import Calibration
from .analysis.efficiency import forget_uncertainty, write_total
from .analysis.known_lines import LineCalibration
from .analysis.provenance import record_analysis
from .analysis.results import Analysis, Nuclide
from .analysis.settings import check_settings
from .analysis.summing import TotalEfficiency
from .constants import QAR_CLS_SPECTRUM
from .display import notebook, plot
from .display.notebook import Results
from .display.plot import Drawing
from .enums import AccessMode
from .errors import refuse
from .handle import INPUT
from .nuclides import builtin_library, coincidences
from .records import RecordSource
from .scratch import copy_of, rehearsal


def open(path: Union[str, "os.PathLike[str]"], mode: Union[str, int] = "r") -> "DataSource":
    """Open a QAR file: "r" reads, "r+" reads and writes, "x" creates a new file.

    Raises NotFoundError if there is no such file, ExistsError if "x" would overwrite a file,
    InUseError if another process writes the file, DamagedError, and BadArgumentError if it is
    not a QAR file.
    """
    return DataSource(path, mode)


def open_input(name: str, mode: Union[str, int] = "r") -> "DataSource":
    """Open an input of the suite's environment by its name, one of `inputs`."""
    return DataSource(name, mode, INPUT)


class DataSource(RecordSource):
    """An open data source. Use it in a `with` statement, which saves and closes it.

        with qar.open("sample.qar", "r+") as source:
            source["QAR_C_OPERATOR"] = "J. Miller"
            print(source["QAR_D_LIVETIME"], source["QAR_D_PEAKENERGY", 3])

    Parameters are given by their names in the dictionary, in any case, or by their codes; a class
    by its number, its name or any parameter of it. Records, entries and channels count from 1.
    A failure raises a QarError of the family of its status.
    """

    def calibration(self) -> Calibration:
        """Return the energy, shape and efficiency calibrations of the source as functions."""
        columns = (tuple(self.column(name)) for name in calibration.PARAMETERS.values())
        return Calibration(*columns)

    def set_calibration(
        self,
        energy: Optional[Iterable[float]] = None,
        shape: Optional[Iterable[float]] = None,
        efficiency: Optional[Iterable[float]] = None,
    ) -> None:
        """Write calibrations, each as the coefficients of a polynomial (see Calibration).

        A calibration that is not given stays unchanged. The energy polynomial takes channels
        counted from 1; calibration.counted_from_one converts one for channels counted from 0.
        """
        columns = (energy, shape, efficiency)
        if efficiency is not None:
            forget_uncertainty(self)
        for name, coefficients in zip(calibration.PARAMETERS.values(), columns):
            if coefficients is not None:
                self.set_column(name, coefficients)

    def calibrate(
        self, lines: Mapping[float, float], degree: Optional[int] = None, force: bool = False
    ) -> LineCalibration:
        """Calibrate energy and peak width from known lines and write both, with the time.

        lines: energies in keV, each with the channel (counted from 1) near which its peak is. One
        line is enough for the width if there is an energy calibration. degree: of the energy
        polynomial; None: the residuals choose it. An existing energy calibration that describes
        the lines better is kept, unless `force`.

        Raises BadArgumentError, without writing anything, if there is no peak at a line, if there
        are too few lines or if the energies do not rise with the channels. The engine peak_search
        measures the peaks.
        """
        existing = tuple(self.column("QAR_D_ENERGYCAL"))
        return self._calibrated(
            lambda copy: line_peaks.near_channels(copy, lines, existing), degree, force
        )

    def calibrate_from_nuclides(
        self,
        names: Sequence[str],
        background: bool = False,
        degree: Optional[int] = None,
        force: bool = False,
    ) -> LineCalibration:
        """Calibrate energy and peak width from nuclides that are known to be in the spectrum.

        The peaks are assigned to the lines without an earlier calibration. names: of nuclides in
        the library of the source or in the built-in one. background: also use the lines of natural
        background. degree, force: see `calibrate`.

        Raises BadArgumentError if a nuclide is unknown or if too few lines are resolved, and
        EngineError if the peaks cannot be assigned without doubt.
        """
        chosen = [*names, *(line_peaks.NATURAL_BACKGROUND if background else ())]
        libraries = (self.nuclide_library(), builtin_library.load(short_lived=True))
        nuclides = line_peaks.named_nuclides(list(dict.fromkeys(chosen)), libraries, self.path)
        return self._calibrated(lambda copy: line_peaks.of_nuclides(copy, nuclides), degree, force)

    def _calibrated(
        self,
        measure: Callable[[RecordSource], Mapping[float, known_lines.MeasuredPeak]],
        degree: Optional[int],
        force: bool,
    ) -> LineCalibration:
        """Calibrate with the peaks that a function measures in a scratch copy."""
        before = self.calibration()
        try:
            with copy_of(self) as copy:
                peaks = measure(copy)
            result = known_lines.calibrate(
                peaks, before, self["QAR_L_CHANNELS"] or 0, degree, force
            )
        except ValueError as error:
            raise refuse("calibrating", self.path, str(error)) from None
        self.set_calibration(result.calibration.energy, result.calibration.shape)
        self["QAR_T_ENERGYTIME"] = datetime.now(timezone.utc)
        return result

    def nuclide_library(self) -> List[Nuclide]:
        """Return the nuclides that an identification searches for."""
        return results.nuclide_library(self)

    def set_nuclide_library(self, nuclides: Iterable[Nuclide]) -> None:
        """Replace the nuclides that an identification searches for."""
        results.write_nuclide_library(self, nuclides)

    def analyse(
        self,
        engine: str = results.ENGINE,
        entry_point: str = results.ENTRY_POINT,
        options: int = 0,
        groups: Collection[str] = (),
        total_efficiency: Optional[TotalEfficiency] = None,
        blank: Optional[Blank] = None,
        **settings: Any,
    ) -> Results:
        """Write processing settings, run an engine and return its results.

        settings: parameters by name, such as QAR_D_PEAKLIMIT=4.0; others keep the values of the
        file. options: the engine's option word. groups: of the built-in nuclide library, which
        peak_search uses if the source has no nuclides of its own; empty: all groups. The library
        is not stored in the source. total_efficiency: is stored in the source and corrects true
        coincidence summing, as a stored one does. blank: subtracted from the activities of
        peak_search. If the analysis fails, the source is unchanged.
        Raises BadArgumentError if a setting is out of range, the blank cannot be used or a date
        is in the future, and EngineError with the reason if the engine fails or is missing.
        """
        if engine == results.ENGINE:
            check_settings(settings, self.get)
        with rehearsal(self) as copy:
            if calibration.PARAMETERS["efficiency"] in map(str.upper, settings):
                forget_uncertainty(copy)
            copy.update(settings)
            if total_efficiency is not None:
                write_total(copy, total_efficiency)
            dates.refuse_future(copy)
            is_own = engine == results.ENGINE
            with builtin_library.lent_to(copy, groups, is_own), blanks.lent_to(copy, blank):
                if is_own:
                    coincidences.write_factors(copy)
                results.run_engine(copy, engine, entry_point, options)
            if is_own:
                record_analysis(copy)
        return self.results()

    def results(self) -> Results:
        """Return the peaks and nuclides of the last analysis."""
        analysis = results.results(self)
        return notebook.results_of(analysis, self._drawing(analysis))

    def plot(
        self,
        region: Optional[Tuple[float, float]] = None,
        residuals: bool = False,
        peaks: bool = False,
        compare: Optional["DataSource"] = None,
        scale: str = "log",
    ) -> Any:
        """Return a matplotlib Figure of the spectrum with the fits of the last analysis.

        region: the shown energies in keV (default: all). residuals: add a panel with the counts
        minus the fits in standard deviations. peaks: draw the continuum and the single peaks of
        each fit. compare: another source, whose spectrum is scaled to the same live time.
        scale: of the counts, "log", "linear" or "sqrt".

        Raises NotFoundError if there is no spectrum, ImportError if matplotlib is not installed,
        ValueError if nothing would be shown.
        """
        other = None if compare is None else compare._drawing(Analysis((), ()))
        drawing = plot.drawing_of(self, results.results(self))
        return plot.figure_of(drawing, region, residuals, peaks, other, scale)

    def _drawing(self, analysis: Analysis) -> Optional[Drawing]:
        """Return the drawing of the source, or None if it has no spectrum."""
        if self.record_count(QAR_CLS_SPECTRUM) == 0:
            return None
        return plot.drawing_of(self, analysis)

    def __repr__(self) -> str:
        if self.closed:
            return f"<qar.DataSource {self.path!r}, closed>"
        channels = self.get("QAR_L_CHANNELS")
        size = "no spectrum" if channels is None else f"{channels:,} channels"
        is_writable = self.mode & (AccessMode.WRITE | AccessMode.CREATE)
        return f"<qar.DataSource {self.path!r}, {size}{'' if is_writable else ', read only'}>"

    def _repr_html_(self) -> str:
        drawing = None if self.closed else self._drawing(results.results(self))
        return notebook.html_of(self, drawing)

    def _ipython_key_completions_(self) -> List[str]:
        """Return the names of all parameters, which a notebook completes in source["..."]."""
        classes = dictionary.classes().values()
        return [p.name for number in classes for p in dictionary.parameters_of(number)]
