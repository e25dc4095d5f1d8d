"""The command `nuclides`: a search in the built-in nuclide library."""

from typing import Iterator, List, Tuple

from ...analysis.results import GammaLine
from ...display.tables import Heading, counted
from ...nuclides import builtin_library
from ...nuclides.builtin_library import Entry
from ..command import (
    DONE,
    PARTLY,
    Arguments,
    Command,
    Parser,
    add_json,
    group_names,
    positive_number,
)
from ..output import inform, print_json, print_lines

_UNITS = (("y", 365.242198 * 86400), ("d", 86400.0), ("h", 3600.0), ("min", 60.0), ("s", 1.0))


def nuclides(arguments: Arguments) -> int:
    lines = _near(arguments) if _is_number(arguments.search) else []
    entries = [entry for entry, _ in lines] or builtin_library.named(arguments.search)
    entries = [entry for entry in entries if _is_chosen(entry, arguments)]
    if arguments.json:
        print_json([entry._asdict() for entry in dict.fromkeys(entries)])
    elif lines:
        print_lines(_line_table(lines))
    elif len(entries) == 1:
        print_lines(_description(entries[0]))
    else:
        print_lines(_nuclide_table(entries))
    if not entries:
        inform(f"no nuclide matches '{arguments.search}'")
    return DONE if entries else PARTLY


def _is_number(text: str) -> bool:
    try:
        float(text)
    except ValueError:
        return False
    return True


def _near(arguments: Arguments) -> List[Tuple[Entry, GammaLine]]:
    matches = builtin_library.near(float(arguments.search), arguments.tolerance)
    return [match for match in matches if _is_chosen(match[0], arguments)]


def _is_chosen(entry: Entry, arguments: Arguments) -> bool:
    return not arguments.groups or bool(set(arguments.groups) & set(entry.groups))


def _line_table(lines: List[Tuple[Entry, GammaLine]]) -> Iterator[str]:
    yield Heading("energy / keV  photons/decay  nuclide   half-life   groups")
    for entry, line in lines:
        groups = ", ".join(entry.groups)
        half_life = _half_life(entry.nuclide.half_life)
        name = entry.nuclide.name
        yield f"{line.energy:12.3f}  {line.photons:13.5g}  {name:<8}  {half_life:<10}  {groups}"


def _nuclide_table(entries: List[Entry]) -> Iterator[str]:
    if entries:
        yield Heading("nuclide   half-life   lines  strongest lines / keV")
    for entry in entries:
        strongest = sorted(entry.nuclide.lines, key=lambda line: -line.photons)[:3]
        energies = ", ".join(f"{line.energy:g}" for line in strongest)
        half_life = _half_life(entry.nuclide.half_life)
        yield f"{entry.nuclide.name:<8}  {half_life:<10}  {len(entry.nuclide.lines):5d}  {energies}"


def _description(entry: Entry) -> Iterator[str]:
    nuclide = entry.nuclide
    yield f"{nuclide.name}: half-life {_half_life(nuclide.half_life)}, {', '.join(entry.groups)}"
    if nuclide.parent:
        yield f"parent: {nuclide.parent}"
    if entry.remark:
        yield entry.remark
    yield f"{counted(len(nuclide.lines), 'line')}; * needed for an identification"
    yield "energy / keV  photons/decay"
    for line in nuclide.lines:
        yield f"{line.energy:12.3f}  {line.photons:13.5g}{' *' if line.key else ''}"


def _half_life(seconds: float) -> str:
    unit, size = next((unit for unit in _UNITS if seconds >= unit[1]), _UNITS[-1])
    return f"{seconds / size:.5g} {unit}"


def _add_arguments(command: Parser) -> None:
    command.add_argument(
        "search",
        metavar="NAME|ENERGY",
        nargs="?",
        default="",
        help="The name of a nuclide, its beginning, or an energy in keV (default: all nuclides).",
    )
    command.add_argument(
        "--tolerance", metavar="KEV", type=positive_number, default=1.0,
        help="List lines up to this distance from the energy (default: %(default)s keV).",
    )  # fmt: skip
    command.add_argument(
        "--groups",
        metavar="NAMES",
        type=group_names,
        default=(),
        help=f"List nuclides of these groups only: {', '.join(builtin_library.GROUPS)}.",
    )
    add_json(command)


COMMAND = Command(
    "nuclides",
    nuclides,
    "Search the built-in nuclide library.",
    _add_arguments,
    """\
examples:
  qar nuclides Cs-137                list the lines of a nuclide
  qar nuclides 661.7 --tolerance 2   list the lines near an energy
  qar nuclides --groups natural      list the nuclides of a group
""",
)
