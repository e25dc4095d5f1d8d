"""The commands `dump` and `load`: a measurement as JSON and back."""

from ... import dictionary
from ...atomic_files import write_text
from ...source import open as open_source
from ...transfer import dictionary_extension
from ...transfer import dump as json_dump
from ..command import (
    DONE,
    PARTLY,
    Arguments,
    Command,
    CommandError,
    Parser,
    add_force,
    add_output,
    number_up_to,
)
from ..inputs import local_file
from ..output import escaped, print_path, warn


def dump(arguments: Arguments) -> int:
    if not arguments.file and not arguments.dictionary:
        raise CommandError("expected FILE, or --dictionary JSON")
    document = {}
    if arguments.file:
        with open_source(arguments.file) as source:
            document = json_dump.dump(source, arguments.numbers)
    if arguments.dictionary:
        result = dictionary_extension.extension(document, arguments.numbers)
        write_text(arguments.dictionary, result.text, arguments.force)
        print_path(arguments.dictionary)
        warn(arguments.dictionary, [f"left out: {name}" for name in result.left_out])
    if arguments.output:
        write_text(arguments.output, json_dump.text_of(document), arguments.force)
        print_path(arguments.output)
    elif document and not arguments.dictionary:
        print(escaped(json_dump.text_of(document)), end="")
    warn(arguments.file, [f"not reached: {text}" for text in document.get("not_reached", [])])
    return DONE


def load(arguments: Arguments) -> int:
    with local_file(arguments.file) as local:
        document = json_dump.read(local)
    failures = json_dump.load(document, arguments.output, arguments.force)
    print_path(arguments.output)
    warn(arguments.output, [f"not stored: {text}" for text in failures])
    return PARTLY if failures else DONE


def _add_dump_arguments(command: Parser) -> None:
    command.add_argument("file", metavar="FILE", nargs="?", default="", help="A QAR file.")
    add_output(command, "Write the JSON to this file (default: to standard output).", "JSON")
    command.add_argument(
        "--dictionary", metavar="JSON", default="",
        help="Write the parameters of the dictionary in use that the embedded one lacks.",
    )  # fmt: skip
    command.add_argument(
        "--numbers", metavar="N", type=number_up_to(0xFFFF), default=dictionary.MAX_NUMBER,
        help="Look for parameters up to this number in each class (default: %(default)s).",
    )  # fmt: skip


def _add_load_arguments(command: Parser) -> None:
    command.add_argument(
        "file", metavar="JSON", help="A file written by dump, or - for standard input."
    )
    command.add_argument("output", metavar="FILE", help="The QAR file to create.")
    add_force(command)


DUMP = Command("dump", dump, "Write a whole measurement as JSON.", _add_dump_arguments)


LOAD = Command("load", load, "Create a QAR file from the JSON of dump.", _add_load_arguments)
