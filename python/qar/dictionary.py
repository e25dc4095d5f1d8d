"""The parameter dictionary in use: the suite's if it is installed, otherwise the embedded one.

The dictionary is asked at run time, so parameters that this package does not list work by name as
well. Its answers are kept until the process ends (`forget` drops them).
"""

import functools
from typing import Any, Dict, List, NamedTuple, Optional, Tuple, Union

import pyORV3

from . import constants
from .errors import NotFoundError
from .status import PARAMETER_UNKNOWN

MAX_NUMBER = 0x3FF
"""The default of the largest number within a class that `parameters_of` asks for."""

MAX_CLASS = 0xFFFF

_KNOWN = {parameter.code: parameter for parameter in constants.KNOWN_PARAMETERS}
_CLASSES: Dict[str, int] = {
    name: number for name, number in vars(constants).items() if name.startswith("QAR_CLS_")
}


class Parameter(NamedTuple):
    """A parameter as the dictionary describes it."""

    name: str
    description: str
    code: int  # high 16 bits: the class; low 16 bits: a number within the class
    class_number: int
    type_name: str  # byte, short, long, longlong, float, double, str or Date

    # The dictionary does not give the following; they are known for embedded parameters only.

    @property
    def length(self) -> int:
        """The maximum length of a string, or 0 if it is not known."""
        return self._known.length if self._known else 0

    @property
    def per_entry(self) -> Optional[bool]:
        """True if each entry has a value, False if each record has one, None if not known."""
        return self._known.per_entry if self._known else None

    @property
    def unit(self) -> str:
        """The unit, such as "keV"; empty if there is none or it is not known."""
        return self._known.unit if self._known else ""

    @property
    def _known(self) -> Optional[constants.KnownParameter]:
        known = _KNOWN.get(self.code)
        same = known and (known.name, known.type_name) == (self.name, self.type_name)
        return known if same else None


Key = Union[str, int]
"""The name or code of a parameter. If a class is expected, also the name or number of a class."""


@functools.lru_cache(maxsize=None)
def describe(key: Key) -> Parameter:
    """Return the description of a parameter, given by its name (in any case) or its code.

    Raises NotFoundError if the dictionary does not have it.
    """
    name, code = (key, 0) if isinstance(key, str) else ("", signed(key))
    status, answer = pyORV3.getParameterMetaData(0, code, name)
    # Code 0: not a parameter, but a variable of the suite's environment has this name.
    if status != 0 or answer == 0 or answer[2] == 0 or not (name or code):
        raise NotFoundError("parameter", PARAMETER_UNKNOWN, key)
    return Parameter(answer[0], answer[1], answer[2] & 0xFFFFFFFF, answer[3], answer[4])


def code_of(key: Key) -> int:
    """Return the code of a parameter; a number is returned unchanged."""
    return describe(key).code if isinstance(key, str) else key


def class_of(key: Key) -> int:
    """Return the number of a class, given by its number, its name or a parameter of it."""
    if isinstance(key, str):
        number = _CLASSES.get(key.upper())
        return describe(key).class_number if number is None else number
    return key >> 16 & 0xFFFF if key >> 16 else key


@functools.lru_cache(maxsize=None)
def parameters_of(class_key: Key, max_number: int = MAX_NUMBER) -> Tuple[Parameter, ...]:
    """Return all parameters of a class that the dictionary has, in the order of their codes.

    The dictionary only answers for single codes, so every number up to `max_number` is tried.
    """
    class_number = class_of(class_key)
    parameters: List[Parameter] = []
    for number in range(max_number + 1):
        try:
            parameters.append(describe.__wrapped__(class_number << 16 | number))
        except NotFoundError:
            continue
    return tuple(parameters)


def classes() -> Dict[str, int]:
    """Return the names and numbers of the classes of the file format."""
    return dict(_CLASSES)


def class_name(number: int) -> str:
    """Return the name of a class, or its number in hexadecimal."""
    names = {known: name for name, known in _CLASSES.items()}
    return names.get(number, f"class 0x{number:04X}")


def forget() -> None:
    """Drop the dictionary's answers, so that it is asked again."""
    cached: Any
    for cached in (describe, parameters_of):
        cached.cache_clear()


def signed(code: int) -> int:
    """Return a 32-bit code as the signed integer that pyORV3 takes."""
    return code - (1 << 32) if code & 0x80000000 else code
