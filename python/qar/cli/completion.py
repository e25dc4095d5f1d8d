"""Completion of the command line in bash, zsh and fish, as scripts for these shells."""

import argparse
import shlex
from typing import Iterator, List

from . import help_tables
from .help_tables import Argument, CommandHelp

_BASH = """\
# Completion for bash; written by `qar completion bash`.
_qar() {
    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]}
    local command= index options operand
    for ((index = 1; index < COMP_CWORD; index++)); do
        if [[ ${COMP_WORDS[index]} != -* ]]; then
            command=${COMP_WORDS[index]}
            break
        fi
    done
    case "$command" in
@COMMANDS@
    esac
    if [[ $word == -* ]]; then operand=$options; fi
    COMPREPLY=()
    if [[ $operand == "<file>" ]]; then
        compopt -o filenames 2>/dev/null
        mapfile -t COMPREPLY < <(compgen -f -- "$word")
    else
        mapfile -t COMPREPLY < <(compgen -W "$operand" -- "$word")
    fi
}
complete -F _qar qar"""


def bash(parser: argparse.ArgumentParser) -> Iterator[str]:
    """Yield the lines of a script for bash 4 or later."""
    commands = help_tables.commands(parser)
    lines = [line for command in commands for line in _bash_command(command)]
    names = " ".join(command.name for command in commands)
    options = " ".join(_all_names(help_tables.program(parser)))
    lines.append(f'        *) options="{options}" operand="{names}" ;;')
    yield _BASH.replace("@COMMANDS@", "\n".join(lines))


def _bash_command(command: CommandHelp) -> Iterator[str]:
    yield f"        {command.name})"
    yield f'            options="{" ".join(_all_names(command))}" operand="{_operand(command)}"'
    yield '            case "$before" in'
    for option in command.options:
        if option.value:
            names = " | ".join(option.names)
            yield f'                {names}) options= operand="{_words(option)}" ;;'
    yield from ("            esac", "            ;;")


def _words(argument: Argument) -> str:
    return " ".join(argument.choices) or ("<file>" if argument.is_path else "")


def _operand(command: CommandHelp) -> str:
    """Return the words for the arguments without a name; the files if one of them is a path."""
    words = [_words(argument) for argument in command.operands]
    return "<file>" if "<file>" in words else " ".join(filter(None, words))


def _all_names(command: CommandHelp) -> List[str]:
    return [name for option in command.options for name in option.names]


def zsh(parser: argparse.ArgumentParser) -> Iterator[str]:
    """Yield the lines of a function for zsh."""
    commands = help_tables.commands(parser)
    yield from (
        "#compdef qar",
        "# Completion for zsh; written by `qar completion zsh`.",
        "_qar() {",
    )
    yield "    local context state state_descr line"
    yield "    typeset -A opt_args"
    yield "    local -a commands"
    yield "    commands=("
    for command in commands:
        yield f"        {shlex.quote(command.name + ':' + _brief(command.help))}"
    yield "    )"
    yield "    _arguments -C \\"
    for option in help_tables.program(parser).options:
        yield from _zsh_options(option, " " * 8)
    yield "        '1:command:->command' '*::argument:->argument'"
    yield "    case $state in"
    yield "        command) _describe command commands ;;"
    yield "        argument)"
    yield "            case $line[1] in"
    for command in commands:
        yield f"                {command.name})"
        yield "                    _arguments \\"
        for option in command.options:
            yield from _zsh_options(option, " " * 24)
        for operand in command.operands:
            prefix = "*" if operand.is_repeated else ""
            entry = f"{prefix}:{_zsh_text(operand.value)}:{_zsh_action(operand)}"
            yield f"                        {shlex.quote(entry)} \\"
        yield from ("", "                    ;;")
    yield from ("            esac", "            ;;", "    esac", "}")
    # Either loaded as a function of the completion system, or read by `source`.
    yield 'if [[ $funcstack[1] == _qar ]]; then _qar "$@"; else compdef _qar qar; fi'


def _zsh_options(option: Argument, indent: str) -> Iterator[str]:
    for name in option.names:
        entry = f"{name}[{_zsh_text(_brief(option.help))}]"
        if option.value:
            entry += f":{_zsh_text(option.value)}:{_zsh_action(option)}"
        yield f"{indent}{shlex.quote(entry)} \\"


def _zsh_action(argument: Argument) -> str:
    if argument.choices:
        return f"({' '.join(argument.choices)})"
    return "_files" if argument.is_path else " "


def _zsh_text(text: str) -> str:
    return text.replace("[", "(").replace("]", ")").replace(":", "\\:")


def fish(parser: argparse.ArgumentParser) -> Iterator[str]:
    """Yield the lines of a script for fish."""
    yield "# Completion for fish; written by `qar completion fish`."
    yield "complete -c qar -f"
    for option in help_tables.program(parser).options:
        yield f"complete -c qar -n __fish_use_subcommand{_fish_option(option)}"
    for command in help_tables.commands(parser):
        brief = shlex.quote(_brief(command.help))
        yield f"complete -c qar -n __fish_use_subcommand -a {command.name} -d {brief}"
        condition = f"'__fish_seen_subcommand_from {command.name}'"
        if _operand(command) == "<file>":
            yield f"complete -c qar -n {condition} -F"
        elif _operand(command):
            yield f"complete -c qar -n {condition} -a {shlex.quote(_operand(command))}"
        for option in command.options:
            yield f"complete -c qar -n {condition}{_fish_option(option)}"


def _fish_option(option: Argument) -> str:
    text = "".join(
        f" -l {name[2:]}" if name.startswith("--") else f" -s {name[1:]}" for name in option.names
    )
    if option.choices:
        text += f" -x -a {shlex.quote(' '.join(option.choices))}"
    elif option.value:
        text += " -r -F" if option.is_path else " -x"
    return f"{text} -d {shlex.quote(_brief(option.help))}"


def _brief(text: str) -> str:
    """Return the first sentence of a help text, without its full stop."""
    return " ".join(text.split()).partition(". ")[0].rstrip(".")


SHELLS = {"bash": bash, "zsh": zsh, "fish": fish}
