"""Work with QAR files, the spectrum data files of the measurement suite.

    import qar

    with qar.open("sample.qar") as source:
        print(source["QAR_C_MEASNAME"], source["QAR_D_LIVETIME"], sum(source.spectrum()))

`open` returns a DataSource: parameters by name, records, the spectrum, calibrations, the analysis.
A failure raises a QarError; `qar.status.describe` explains a status. The logger "qar" logs calls.
The package only uses the 27 functions of pyORV3, so it works on the embedded library and on the
suite's own.
"""

try:
    import pyORV3 as _extension  # noqa: F401
except ImportError as _failure:
    from . import failed_import as _failed_import

    _failed_import.retry(_failure)

from . import constants, dictionary, status
from .analysis import calibration
from .analysis.blank import Blank, blank_of
from .analysis.calibration import Calibration
from .analysis.known_lines import CalibrationPoint, LineCalibration
from .analysis.provenance import Provenance
from .analysis.results import Analysis, GammaLine, IdentifiedNuclide, LineArea, Nuclide, Peak
from .engine_paths import include_folder, library_folder
from .enums import AccessMode, ControlCommand, EnergySearch, NameSearch, ResultLevel, SourceState
from .errors import (
    BadArgumentError,
    DamagedError,
    EngineError,
    ExistsError,
    InUseError,
    LibraryError,
    NotFoundError,
    QarError,
    ReadOnlyError,
    SystemFailureError,
)
from .handle import inputs
from .source import DataSource, open, open_input
from .transfer.many_files import analyse_files
from .values import datetime_of
from .version import __version__

__all__ = [
    "AccessMode",
    "Analysis",
    "BadArgumentError",
    "Blank",
    "Calibration",
    "CalibrationPoint",
    "ControlCommand",
    "DamagedError",
    "DataSource",
    "EnergySearch",
    "EngineError",
    "ExistsError",
    "GammaLine",
    "IdentifiedNuclide",
    "InUseError",
    "LibraryError",
    "LineArea",
    "LineCalibration",
    "NameSearch",
    "NotFoundError",
    "Nuclide",
    "Peak",
    "Provenance",
    "QarError",
    "ReadOnlyError",
    "ResultLevel",
    "SourceState",
    "SystemFailureError",
    "__version__",
    "analyse_files",
    "blank_of",
    "calibration",
    "constants",
    "datetime_of",
    "dictionary",
    "include_folder",
    "inputs",
    "library_folder",
    "open",
    "open_input",
    "status",
]
