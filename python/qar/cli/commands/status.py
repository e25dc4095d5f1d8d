"""The command `status`: the meaning of status codes."""

import argparse

from ... import status as statuses
from ..command import DONE, Arguments, Command, Parser, add_json
from ..output import print_json


def status(arguments: Arguments) -> int:
    result = [statuses.describe(code) for code in arguments.code]
    if arguments.json:
        print_json(result)
    else:
        print("\n".join(map(str, result)))
    return DONE


def _add_arguments(command: Parser) -> None:
    command.add_argument(
        "code",
        metavar="CODE",
        nargs="+",
        type=_status_code,
        help="A status code, such as -320234115 or 0xECE99D7D.",
    )
    add_json(command)


def _status_code(text: str) -> int:
    try:
        return int(text, 0)
    except ValueError:
        raise argparse.ArgumentTypeError(f"{text!r} is not a status code") from None


COMMAND = Command("status", status, "Explain status codes.", _add_arguments)
