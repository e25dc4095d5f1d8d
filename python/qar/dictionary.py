"""The parameter dictionary in use: that of the suite where it is installed, else the embedded one.

It is asked at run time, so that parameters work by name which this package has never heard of.
What was answered is kept for the life of the process (`forget` drops it).
"""

import functools
from typing import Any, Dict, List, NamedTuple, Optional, Tuple, Union

import pyORV3

from . import constants
from .errors import NotFoundError
from .status import describe as describe_status

HIGHEST_NUMBER = 0x3FF  # parameters of a class are looked for up to this number within it

_UNKNOWN_PARAMETER = 0xEBE8801A
_KNOWN = {parameter.code: parameter for parameter in constants.KNOWN_PARAMETERS}
_CLASSES: Dict[str, int] = {
    name: number for name, number in vars(constants).items() if name.startswith("QAR_CLS_")
}


class Parameter(NamedTuple):
    """What the dictionary says of a parameter."""

    name: str
    description: str
    code: int  # the class number in the high, a number within the class in the low 16 bits
    class_number: int
    type_name: str  # byte, short, long, longlong, float, double, str or Date

    # What the dictionary does not say is known of the parameters of the embedded library alone.

    @property
    def length(self) -> int:
        """Of a text: its most characters where this is known, else 0."""
        return self._known.length if self._known else 0

    @property
    def per_entry(self) -> Optional[bool]:
        """Whether each entry of a record has a value, or each record one; None: not known."""
        return self._known.per_entry if self._known else None

    @property
    def unit(self) -> str:
        """The unit of the value, such as "keV"; empty without one and where it is not known."""
        return self._known.unit if self._known else ""

    @property
    def _known(self) -> Optional[constants.KnownParameter]:
        known = _KNOWN.get(self.code)
        same = known and (known.name, known.type_name) == (self.name, self.type_name)
        return known if same else None


Key = Union[str, int]
"""A parameter by its name or code. Where a class is meant: also the class number."""


@functools.lru_cache(maxsize=None)
def describe(key: Key) -> Parameter:
    """What the dictionary says of a parameter, by its name (in any case) or its code.

    Raises NotFoundError where the dictionary has no such parameter.
    """
    name, code = (key, 0) if isinstance(key, str) else ("", signed(key))
    status, answer = pyORV3.getParameterMetaData(0, code, name)
    # Code 0: no parameter, but a variable of the suite's environment has the name.
    if status != 0 or answer == 0 or answer[2] == 0 or not (name or code):
        raise NotFoundError(
            "parameter", _UNKNOWN_PARAMETER, key, describe_status(_UNKNOWN_PARAMETER).text
        )
    return Parameter(answer[0], answer[1], answer[2] & 0xFFFFFFFF, answer[3], answer[4])


def code_of(key: Key) -> int:
    """The code of a parameter; a number is taken as it is."""
    return describe(key).code if isinstance(key, str) else key


def class_of(key: Key) -> int:
    """The number of a class: from itself, its name or a parameter of it."""
    if isinstance(key, str):
        number = _CLASSES.get(key.upper())
        return describe(key).class_number if number is None else number
    return key >> 16 & 0xFFFF if key >> 16 else key


@functools.lru_cache(maxsize=None)
def parameters_of(class_key: Key, highest: int = HIGHEST_NUMBER) -> Tuple[Parameter, ...]:
    """All parameters of a class that the dictionary knows, ascending by code.

    The dictionary answers single codes only, so every number up to `highest` is tried.
    """
    class_number = class_of(class_key)
    found: List[Parameter] = []
    for number in range(highest + 1):
        try:
            found.append(describe.__wrapped__(class_number << 16 | number))
        except NotFoundError:
            continue
    return tuple(found)


def classes() -> Dict[str, int]:
    """The classes of the file format: name and number."""
    return dict(_CLASSES)


def class_name(number: int) -> str:
    """The name of a class, or its number in hexadecimal."""
    names = {known: name for name, known in _CLASSES.items()}
    return names.get(number, f"class 0x{number:04X}")


def forget() -> None:
    """Drops what the dictionary answered, so that it is asked again."""
    cached: Any
    for cached in (describe, parameters_of):
        cached.cache_clear()


def signed(code: int) -> int:
    return code - (1 << 32) if code & 0x80000000 else code
