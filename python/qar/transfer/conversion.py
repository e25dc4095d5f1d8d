"""Former names of functions in `qar.formats`, until the commands use those."""

from typing import List

from .. import formats
from ..atomic_files import Path
from ..formats import Measurement
from ..formats.measurement import file_names as output_names
from ..formats.measurement import reading
from ..formats.measurement import with_name as chosen
from ..formats.qar_file import SUFFIX as QAR_SUFFIX

__all__ = ["QAR_SUFFIX", "chosen", "is_qar_file", "output_names", "read_any", "store", "write_any"]


def is_qar_file(path: Path) -> bool:
    with reading(path):
        return formats.identify(path).name == "qar"


def read_any(path: Path, format: str = "") -> List[Measurement]:
    return formats.read(path, format or None)


def store(measurement: Measurement, path: Path, replace: bool = False) -> List[str]:
    return formats.write(path, measurement, "qar", replace)


def write_any(
    measurement: Measurement, path: Path, format: str = "", replace: bool = False
) -> List[str]:
    return formats.write(path, measurement, format or None, replace)


def load(path: Path) -> Measurement:
    return formats.read(path, "qar")[0]
