"""Extensions of the embedded dictionary: JSON files of parameters that it has not.

Where the suite is, `qar dump --dictionary FILE` makes one of what the suite's dictionary knows.
Elsewhere the environment variable ORV_DICTIONARY names it before Python starts: then the embedded
library stores values of these parameters, by code and by name.

The dictionary's functions tell neither how long a text may be nor whether a value stands in each
record or in each entry. The former is taken to be LONGEST_TEXT; for the latter the values speak
that are found in the file that is dumped, and a record without entries.
"""

import json
import re
from typing import Any, Dict, List, NamedTuple, Set

from .. import constants, dictionary
from ..dictionary import Parameter

VARIABLE = "ORV_DICTIONARY"
"""The environment variable that names an extension."""

KEY, VERSION = "qar_dictionary", 1
LONGEST_TEXT = 255
LONGEST_DESCRIPTION = 255

_NAME = re.compile(r"QAR_[ -~]_[ -~]{1,12}")  # the names that the embedded library takes


class Extension(NamedTuple):
    """An extension as JSON, and the names of the parameters that it cannot have."""

    text: str
    left_out: List[str]


def extension(
    document: Dict[str, Any], highest_number: int = dictionary.HIGHEST_NUMBER
) -> Extension:
    """The parameters of the dictionary in use that the embedded one has not.

    document: of `qar.transfer.dump.dump`, or empty. Looked at are the classes of the file format and those
    of the document, up to the number within each.
    """
    classes = set(dictionary.classes().values())
    classes |= {content["class"] for content in document.get("classes", [])}
    known = {parameter.code for parameter in constants.KNOWN_PARAMETERS}
    in_entries = _names_in_entries(document)
    found: List[Dict[str, Any]] = []
    left_out: List[str] = []
    for number in sorted(classes):
        for parameter in dictionary.parameters_of(number, highest_number):
            if parameter.code in known:
                continue
            if _NAME.fullmatch(parameter.name):
                found.append(_described(parameter, document, in_entries))
            else:
                left_out.append(parameter.name)
    rows = ",\n".join(f"  {json.dumps(item, ensure_ascii=False)}" for item in found)
    text = f'{{\n "{KEY}": {VERSION},\n "parameters": [\n{rows}\n ]\n}}\n'
    return Extension(text, left_out)


def _described(
    parameter: Parameter, document: Dict[str, Any], in_entries: Set[str]
) -> Dict[str, Any]:
    found = {
        "code": parameter.code,
        "name": parameter.name,
        "type": parameter.type_name,
        "scope": "entry" if parameter.name in in_entries else "record",
        "description": re.sub("[^ -~]", "?", parameter.description[:LONGEST_DESCRIPTION]),
    }
    if parameter.type_name == "str":
        found["length"] = max([LONGEST_TEXT, *_lengths(document, parameter.name)])
    return found


def _names_in_entries(document: Dict[str, Any]) -> Set[str]:
    return {
        name
        for content in document.get("classes", [])
        for record in content["records"]
        for entry in record.get("entries", [])
        for name in entry
    }


def _lengths(document: Dict[str, Any], name: str) -> List[int]:
    """The lengths of the texts of a parameter."""
    found = []
    for content in document.get("classes", []):
        for record in content["records"]:
            places = [record["values"], *record.get("entries", [])]
            found += [len(place[name]) for place in places if name in place]
    return found
