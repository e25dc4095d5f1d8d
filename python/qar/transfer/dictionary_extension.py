"""Extensions of the embedded dictionary: JSON files with parameters that it does not have.

On a machine with the suite, `qar dump --dictionary FILE` writes the parameters that only the
suite's dictionary has. On another machine the environment variable ORV_DICTIONARY contains the
path of this file before Python starts; then the embedded library stores values of these parameters.

The functions of the dictionary do not give the maximum length of a string, nor if a parameter has
a value in each record or in each entry. The length is taken as MAX_STRING or the longest string in
the dumped file; a parameter has a value in each entry if it has one in an entry of that file.
"""

import json
import re
from typing import Any, Dict, List, NamedTuple, Set

from .. import constants, dictionary
from ..dictionary import Parameter

KEY, VERSION = "qar_dictionary", 1
MAX_STRING = 255
MAX_DESCRIPTION = 255

_NAME = re.compile(r"QAR_[ -~]_[ -~]{1,12}")  # the names that the embedded library accepts


class Extension(NamedTuple):
    """An extension as JSON, and the names of parameters that it cannot contain."""

    text: str
    left_out: List[str]


def extension(document: Dict[str, Any], max_number: int = dictionary.MAX_NUMBER) -> Extension:
    """Return the parameters that the dictionary in use has and the embedded one does not.

    document: a result of `dump.dump`, or empty. Parameters of its classes and of the classes of
    the file format are tried, up to `max_number` within each class.
    """
    classes = set(dictionary.classes().values())
    classes |= {content["class"] for content in document.get("classes", [])}
    embedded = {parameter.code for parameter in constants.KNOWN_PARAMETERS}
    in_entries = _names_in_entries(document)
    rows: List[str] = []
    left_out: List[str] = []
    for number in sorted(classes):
        for parameter in dictionary.parameters_of(number, max_number):
            if parameter.code in embedded:
                continue
            if _NAME.fullmatch(parameter.name):
                row = _description(parameter, document, in_entries)
                rows.append("  " + json.dumps(row, ensure_ascii=False))
            else:
                left_out.append(parameter.name)
    text = ",\n".join(rows)
    return Extension(f'{{\n "{KEY}": {VERSION},\n "parameters": [\n{text}\n ]\n}}\n', left_out)


def _description(
    parameter: Parameter, document: Dict[str, Any], in_entries: Set[str]
) -> Dict[str, Any]:
    description = {
        "code": parameter.code,
        "name": parameter.name,
        "type": parameter.type_name,
        "scope": "entry" if parameter.name in in_entries else "record",
        "description": re.sub("[^ -~]", "?", parameter.description[:MAX_DESCRIPTION]),
    }
    if parameter.type_name == "str":
        description["length"] = max([MAX_STRING, *_lengths(document, parameter.name)])
    return description


def _names_in_entries(document: Dict[str, Any]) -> Set[str]:
    return {
        name
        for content in document.get("classes", [])
        for record in content["records"]
        for entry in record.get("entries", [])
        for name in entry
    }


def _lengths(document: Dict[str, Any], name: str) -> List[int]:
    """Return the lengths of the strings of a parameter."""
    lengths = []
    for content in document.get("classes", []):
        for record in content["records"]:
            cells = [record["values"], *record.get("entries", [])]
            lengths += [len(cell[name]) for cell in cells if name in cell]
    return lengths
