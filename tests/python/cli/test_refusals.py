"""Refused and hostile input: one line, nothing changed, no waiting, no control characters."""

import argparse
import json
import math
import os
import socket
import subprocess
import sys
import unittest.mock

import qar
import support
from qar import formats, optional_imports
from qar.analysis.settings import RANGES
from qar.cli import main

UNUSABLE = (  # settings, the message
    (("--limit", "-3"), "QAR_D_PEAKLIMIT.*1 to 100 sigma"),
    (("--limit", "nan"), "QAR_D_PEAKLIMIT.*nan.*1 to 100 sigma"),
    (("--tolerance", "much"), "--tolerance: 'much' is not a number"),
    (("--set", "QAR_L_LASTCHAN=1025"), "QAR_L_LASTCHAN.*1025.*1 to 1024"),
    (("--set", "QAR_S_SMOOTHWIDTH=65"), "QAR_S_SMOOTHWIDTH.*0 to 64"),
    (("--set", "QAR_D_MATCHTOL=1,2"), "QAR_D_MATCHTOL: '1,2' is not a valid double"),
    (("--set", "QAR_D_EFFICCAL=-2.45,nan"), "QAR_D_EFFICCAL.*nan is not a finite number"),
    (("--set", "QAR_D_NOSUCH=1"), "QAR_D_NOSUCH"),
    (("--set", "QAR_D_ENERGYCAL=5,-1", "-l", "library.csv"), "calibration"),
    (("--template", "none.qar"), "none.qar"),
    (("--limit", "4", "--report", "out"), "out/a.html: .*--force"),
)


class TestCase(support.TestCase):
    def setUp(self):
        super().setUp()
        support.make_spectrum("a.qar")
        self.write("library.csv", support.LIBRARY)

    def content(self):
        """The names and contents of all files."""
        paths = sorted(path for path in self.folder.rglob("*"))
        return {str(p): p.read_bytes() if p.is_file() else b"" for p in paths}

    def refused(self, *arguments, code=2):
        """The line on standard error of a command that changes nothing."""
        before = self.content()
        ran = support.run(*arguments)
        self.assertEqual((ran.code, ran.out), (code, ""), (arguments, ran.err))
        self.assertEqual(self.content(), before, arguments)
        return ran.err[0]


class TestAnalyse(TestCase):
    def test_refused_setting_changes_nothing_and_is_named(self):
        os.mkdir("out")
        self.write("out/a.html", "mine")
        for options, message in UNUSABLE:
            self.assertRegex(self.refused("analyse", "a.qar", *options), message)

    def test_refused_setting_changes_no_file_of_a_directory(self):
        os.mkdir("in")
        for name in "ab":
            support.make_spectrum(f"in/{name}.qar")
        command = ("analyse", "in", "-o", "t.csv", "--into", "new/out", "--limit", "1000")
        self.assertRegex(self.refused(*command), "QAR_D_PEAKLIMIT.*1000")

    def test_setting_of_the_file_that_is_out_of_range_is_named(self):
        with qar.open("a.qar", "r+") as source:
            source["QAR_D_MINCONF"] = 2.0
        self.assertRegex(self.refused("analyse", "a.qar"), "QAR_D_MINCONF.*2.0.*0 to 1")

    def test_ranges_are_those_of_the_engine(self):
        for name, expected in RANGES.items():
            below, above = expected.min - 1e-3, expected.max * 1.001
            for value, is_usable in ((expected.min, True), (below, False), (above, False)):
                with qar.open("a.qar", "r+") as source:
                    source.set_nuclide_library([qar.Nuclide("A", 1e9, (qar.GammaLine(661, 1),))])
                    source[name] = value
                    results = qar.analysis.results
                    try:
                        results.run_engine(source, results.ENGINE, results.ENTRY_POINT, 0)
                        self.assertTrue(is_usable, (name, value))
                    except qar.EngineError:
                        self.assertFalse(is_usable, (name, value))
                    source[name] = (expected.min + min(expected.max, 10 * expected.min + 0.5)) / 2

    def test_list_sets_all_entries_of_an_array(self):
        with qar.open("a.qar", "r+") as source:
            source.set_calibration(efficiency=(1.0, 2.0, 3.0, 4.0))
        self.run_well("analyse", "a.qar", "--set", "qar_d_efficcal=-2.45,0.55,-0.145")
        with qar.open("a.qar") as source:
            self.assertEqual(source.column("QAR_D_EFFICCAL"), [-2.45, 0.55, -0.145, 0.0])

    def test_unusable_blank_is_named_and_changes_nothing(self):
        with qar.open("a.qar", "r+") as source:
            source.set_calibration(efficiency=(-4.0,))
        blanks = {
            "no live time": {"live_time": None},
            "no energy calibration": {"energy": ()},
            "no counts": {"counts": (0, 0, 0)},
            "energies rise": {"energy": (5.0, -1.0)},
        }
        for reason, changed in blanks.items():
            formats.write("blank.qar", support.FULL._replace(**changed), "qar")
            message = self.refused("analyse", "a.qar", "--blank", "blank.qar")
            self.assertRegex(message, f"blank.qar.*{reason}")
            os.remove("blank.qar")
        self.write("blank.spe", "no spectrum")
        self.assertRegex(self.refused("analyse", "a.qar", "--blank", "blank.spe"), "blank.spe")
        self.assertRegex(self.refused("analyse", "a.qar", "--blank", "none.spe"), "none.spe")
        support.make_spectrum("other.qar")
        with qar.open("a.qar", "r+") as source:
            source["QAR_D_LIVETIME"] = 0.0
        message = self.refused("analyse", "a.qar", "--blank", "other.qar")
        self.assertRegex(message, "a.qar.*no live time")

    def test_interrupted_analysis_changes_nothing(self):
        before = self.content()
        with unittest.mock.patch("qar.source.DataSource.results", side_effect=KeyboardInterrupt):
            self.assertEqual(support.run("analyse", "a.qar", "--limit", "5").code, 130)
        self.assertEqual(self.content(), before)

    def test_failed_analysis_from_python_changes_nothing(self):
        with qar.open("a.qar", "r+") as source:
            source.analyse()
            source.set_calibration(energy=(5.0, -1.0))
            source.flush()
            for settings in ({"QAR_D_MATCHTOL": 2.0}, {"QAR_D_MATCHTOL": math.nan}):
                with self.assertRaises(qar.QarError):
                    source.analyse(**settings)
            self.assertNotIn("QAR_D_MATCHTOL", source)
            self.assertEqual(len(source.results().peaks), 2)
            self.assertFalse(source.state & qar.SourceState.CHANGED)


class TestSpecialFiles(TestCase):
    def setUp(self):
        super().setUp()
        os.mkfifo("pipe")
        os.mkfifo("pipe.qar")
        os.mkfifo("t.csv.partial")
        with socket.socket(socket.AF_UNIX) as listener:
            listener.bind("socket")

    def test_pipes_devices_and_sockets_are_refused_at_once(self):
        commands = (
            *("show pipe", "show socket", "plot pipe", "report pipe", "convert pipe x.csv"),
            *("convert pipe.qar x.csv", "dump pipe.qar", "load pipe x.qar", "check pipe.qar"),
            *("analyse pipe", "analyse pipe.qar", "analyse a.qar -l pipe", "show /dev/zero"),
            *("salvage pipe.qar x.qar", "analyse a.qar -o t.csv", "view pipe --no-browser"),
            *("analyse a.qar --template pipe.qar", "calibrate pipe --nuclide Eu-152"),
            *("report a.qar --compare pipe", "efficiency a.qar --certificate pipe"),
        )
        program = "import sys\nfrom qar.cli.main import main\nprint(main(sys.argv[1:]))"
        for command in commands:
            result = subprocess.run(
                [sys.executable, "-B", "-c", program, *command.split()],
                stdout=subprocess.PIPE,
                stderr=subprocess.PIPE,
                stdin=subprocess.DEVNULL,
                timeout=60,
            )
            self.assertIn(result.stdout, (b"2\n", b"1\n"), command)
            self.assertEqual(len(result.stderr.splitlines()), 1, (command, result.stderr))

    def test_pipes_named_by_variables_are_not_read(self):
        for variable in ("ORV_DICTIONARY", "PYORV3_TRACE", "ORSOVA_REGISTRY"):
            with self.subTest(variable):
                pipe = {"OSVENV": "", variable: "pipe"}
                self.python("-m", "qar", "show", "a.qar", **pipe)


class TestNames(TestCase):
    def test_control_characters_of_a_file_reach_no_output(self):
        hostile = "\x1b]0;x\x07\x9b31m\u202e=cmd"
        formats.write("b.qar", formats.Measurement((5, 6, 7), title="\x1b[31m\x9b=1"))
        os.rename("b.qar", f"{hostile}.qar")
        self.write(f"{hostile}.spe", "$nothing")
        commands = (
            ("show", f"{hostile}.qar"), ("show", f"{hostile}.spe"), ("check", f"{hostile}.qar"),
            ("analyse", f"{hostile}.qar", "a.qar"), ("show", f"{hostile}.qar", "--json"),
            ("dump", f"{hostile}.qar"), ("convert", f"{hostile}.spe", "x.csv"),
        )  # fmt: skip
        for command in commands:
            ran = support.run(*command)
            text = ran.out + "\n".join(ran.err)
            self.assertNotRegex(text, "[\x00-\x09\x0b-\x1f\x7f-\x9f\u202e]", command)

    def test_json_keeps_every_character_of_a_name(self):
        name = os.fsdecode(b"b\xff\xc2\x9b.csv")
        self.write(name, "1\n2\n3\n")
        self.assertEqual(json.loads(self.run_well_enough("show", name, "--json"))["file"], name)

    def run_well_enough(self, *arguments):
        """Return the output of a command that may report missing features of a format."""
        ran = support.run(*arguments)
        self.assertEqual(ran.code, 0, ran.err)
        return ran.out

    def test_names_that_are_not_utf_8_work(self):
        name = os.fsdecode(b"m\xff.csv")
        os.mkdir("in")
        self.run_well_enough("convert", "a.qar", f"in/{name}")
        for command in (
            ("show", f"in/{name}"),
            ("report", f"in/{name}", "-o", os.fsdecode(b"r\xff.html")),
            ("convert", f"in/{name}", os.fsdecode(b"n\xff.n42")),
            ("convert", "--to", "spe", "--into", "in", os.fsdecode(b"n\xff.n42")),
            ("analyse", f"in/{name}", "--set", "QAR_D_SHAPECAL=9,0.02", "-o", "t.csv"),
        ):
            self.run_well_enough(*command)
        self.assertTrue(os.path.exists(b"in/n\xff.spe"))
        folder = os.fsdecode(b"d\xff")
        os.mkdir(folder)
        self.run_well_enough("dump", "a.qar", "-o", f"{folder}/a.json")
        self.run_well_enough("load", f"{folder}/a.json", f"{folder}/b.qar")
        with qar.open(f"{folder}/b.qar") as source:
            self.assertEqual(source["QAR_C_MEASNAME"], "sample")
        self.assertIn("m?.csv,,peak", self.read("t.csv"))


class TestHelp(support.TestCase):
    def test_every_command_and_argument_has_a_help_of_whole_sentences(self):
        (commands,) = main.parser()._subparsers._group_actions
        self.assertGreater(len(commands.choices), 12)
        for name, command in [("qar", main.parser()), *commands.choices.items()]:
            helps = {"": command.description}
            helps.update((a.metavar or a.dest, a.help) for a in command._actions)
            for argument, text in helps.items():
                if argument != "COMMAND":
                    self.assertRegex(text or "", r"(?s)^[A-Z].*[A-Za-z0-9)]\.$", (name, argument))
            self.assertIn("Exit codes", command.format_help())

    def test_analyse_has_examples_that_parse(self):
        (commands,) = main.parser()._subparsers._group_actions
        for name in ("analyse", "convert"):
            text = commands.choices[name].format_help()
            lines = [line.split("  ")[1] for line in text.splitlines() if line[:6] == "  qar "]
            self.assertGreaterEqual(len(lines), 3)
            for line in lines:
                parsed = main.parser().parse_args(line.split("<")[0].split()[1:])
                self.assertIsInstance(parsed, argparse.Namespace)


class TestMessages(TestCase):
    def test_full_disk_is_reported_with_the_file_of_the_user(self):
        limited = 'ulimit -f 1; exec "$0" -B -m qar "$@" 2>&1'
        for command in ("dump a.qar -o x.json", "convert a.qar x.csv", "convert a.qar x.qar"):
            output = self.run_program(
                "bash", "-c", limited, sys.executable, *command.split(), code=2
            )
            self.assertRegex(output, r"^qar: [^\n]*x\.(json|csv|qar)[^\n]*\n$", command)
            self.assertNotIn(".part", output)

    def test_missing_package_is_reported_with_a_command_that_installs_it(self):
        cases = (("/usr/bin/python3", "apt-get install python3-absent"),
                 ("/opt/bin/python3", '"/opt/bin/python3" -m pip install absent'))  # fmt: skip
        for executable, command in cases:
            with unittest.mock.patch.object(sys, "executable", executable):
                with self.assertRaisesRegex(ImportError, f"absent is not installed.*{command}$"):
                    optional_imports.required("absent.part")
