"""The classes that a source contains, including those of extensions of the dictionary."""

import json
import os
from typing import Iterable, List, Optional

import pyORV3

from .. import dictionary
from ..constants import QAR_CLS_SPECTRUM
from ..records import RecordSource
from ..regular_files import open_regular
from ..status import UNKNOWN_CLASS, unsigned

VARIABLE = "ORV_DICTIONARY"
"""The environment variable with the path of an extension of the embedded dictionary."""

_UNFORMATTED_CLASSES = range(0x4000, 0x5000)


def possible_classes(source: RecordSource) -> Iterable[int]:
    """Return the numbers of all classes that a source may contain, in order.

    The functions of pyORV3 do not list the classes, so each number has to be tried. The embedded
    library refuses classes without parameters, which leaves few numbers; trying all of them takes
    about a second.
    """
    every_class = range(1, dictionary.MAX_CLASS + 1)
    if not is_embedded(source):
        return every_class
    extension = _extension_classes(os.environ.get(VARIABLE, ""))
    if extension is None:
        return every_class
    return sorted({*dictionary.classes().values(), *_UNFORMATTED_CLASSES, *extension})


def is_single_block(number: int) -> bool:
    """Return True if a class has a single block instead of records."""
    return number == QAR_CLS_SPECTRUM or number in _UNFORMATTED_CLASSES


def is_embedded(source: RecordSource) -> bool:
    """Return True if a source is open in the embedded library."""
    status, _ = pyORV3.count(source.handle, dictionary.MAX_CLASS, 0)
    return unsigned(status) == UNKNOWN_CLASS


def present_classes(source: RecordSource) -> List[int]:
    """Return the numbers of the classes that have records in a source, in order."""
    count, handle = pyORV3.count, source.handle
    result = []
    for number in possible_classes(source):
        status, records = count(handle, number, 0)
        if status == 0 and records:
            result.append(number)
    return result


def _extension_classes(path: str) -> Optional[List[int]]:
    """Return the classes in an extension of the dictionary, or None if it cannot be read."""
    if not path:
        return []
    try:
        with open_regular(path) as file:
            parameters = json.loads(file.read().decode("utf-8"))["parameters"]
        return [parameter["code"] >> 16 for parameter in parameters]
    except (OSError, ValueError, KeyError, TypeError, RecursionError):
        return None
