"""The command line in a terminal: completion, the manual page, colours."""

import contextlib
import io
import os
import shutil
import subprocess
import unittest.mock

import support
from qar.cli import main
from qar.cli.completion import SHELLS

COMPLETED = (  # the words before the cursor, words that bash must offer, one that it must not
    (("qar", "ana"), ["analyse"], "nuclides"),
    (("qar", "--ver"), ["--version", "--verbose"], "--limit"),
    (("qar", "--verbose", "analyse", "--l"), ["--library", "--limit", "--live-time"], "--json"),
    (("qar", "convert", "--to", ""), ["qar", "spe", "n42"], "mca"),  # only formats that are written
    (("qar", "convert", "--from", "mc"), ["mca"], "spe"),
    (("qar", "analyse", "-l", "my"), ["my file.csv"], "--limit"),
    (("qar", "show", "my"), ["my file.csv"], "--json"),
    (("qar", "analyse", "-j", ""), [], "my file.csv"),
    (("qar", "completion", ""), ["bash", "zsh", "fish"], "my file.csv"),
)
BASH = 'source completion; COMP_CWORD=$(($# - 1)); COMP_WORDS=("$@"); _qar; printf "%s\\n" "${COMPREPLY[@]}"'


class Terminal(io.StringIO):
    def isatty(self):
        return True


class TestCompletion(support.TestCase):
    def test_bash_offers_commands_options_choices_and_files(self):
        self.write("completion", self.run_well("completion", "bash"))
        self.write("my file.csv", "")
        for words, expected, unexpected in COMPLETED:
            offered = self.run_program("bash", "-c", BASH, "bash", *words).splitlines()
            self.assertLessEqual(set(expected), set(offered), words)
            self.assertNotIn(unexpected, offered, words)

    def test_scripts_are_correct_for_their_shells(self):
        for shell in filter(shutil.which, SHELLS):
            script = self.write(shell, self.run_well("completion", shell))
            self.run_program(shell, "-n", script)


class TestManual(support.TestCase):
    @unittest.skipUnless(shutil.which("man"), "man is not installed")
    def test_manual_page_is_correct_and_describes_each_option(self):
        self.write("qar.1", self.run_well("manual"))
        command = ["man", "--warnings", "-l", "qar.1"]
        # A preloaded sanitizer would check the program `man`.
        others = {name: value for name, value in os.environ.items() if name != "LD_PRELOAD"}
        shown = subprocess.run(
            command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, encoding="utf-8", timeout=60,
            env={**others, "LC_ALL": "C.UTF-8", "MANWIDTH": "200"},
        )  # fmt: skip
        self.assertEqual((shown.returncode, shown.stderr), (0, ""))
        for text in ("--tolerance KEV", "qar analyse sample.n42", "--version"):
            self.assertIn(text, shown.stdout)


class TestColours(support.TestCase):
    def output_and_errors(self, out, err, **environment):
        with unittest.mock.patch.dict(os.environ, environment):
            with contextlib.redirect_stdout(out), contextlib.redirect_stderr(err):
                main.main(["nuclides", "co"])
                main.main(["show", "none\x1b[31m.qar"])
        return out.getvalue(), err.getvalue()

    def test_only_a_terminal_gets_colours_unless_they_are_switched_off(self):
        on = {"TERM": "xterm", "NO_COLOR": ""}
        cases = ((Terminal, on, True), (io.StringIO, on, False), (Terminal, {**on, "NO_COLOR": "1"}, False),
                 (Terminal, {**on, "TERM": "dumb"}, False))  # fmt: skip
        for kind, environment, is_coloured in cases:
            out, err = self.output_and_errors(kind(), kind(), **environment)
            self.assertEqual(("\x1b[1m" in out, "\x1b[1;31mqar:" in err), (is_coloured,) * 2)
            self.assertNotIn("\x1b[31m", err)  # from the file name
