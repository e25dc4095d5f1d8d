"""The commands of the command line, one module for each or for two that belong together."""

from . import (
    analyse,
    calibrate,
    check,
    convert,
    dump,
    efficiency,
    nuclides,
    plot,
    report,
    show,
    status,
    terminal,
    view,
)

COMMANDS = (
    show.COMMAND,
    plot.COMMAND,
    view.COMMAND,
    convert.COMMAND,
    dump.DUMP,
    dump.LOAD,
    calibrate.COMMAND,
    efficiency.COMMAND,
    analyse.COMMAND,
    report.COMMAND,
    nuclides.COMMAND,
    check.CHECK,
    check.SALVAGE,
    status.COMMAND,
    terminal.COMPLETION,
    terminal.MANUAL,
)
