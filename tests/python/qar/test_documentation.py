"""Every code block of the pages for users runs, page by page, in order, in a folder of its own."""

import json
import os
import re
import sys

import pyORV3
import support

PAGES = [
    "README.md", "docs/functions.md", "docs/qar.md", "docs/command-line.md", "docs/formats.md", "docs/writing-an-engine.md",
    "docs/suite-scripts-on-linux.md", "docs/status-codes.md", "docs/windows.md", "examples/README.md",
    "python/README.md",
]  # fmt: skip
LANGUAGES = {"python", "sh", "cpp", "cmake", "text"}  # text is only shown
# What installs and builds is run by .ci/run, for it needs root or minutes.
RUN_ELSEWHERE = re.compile(r"(scripts/\w[\w-]*|sudo |pip |cmake --(preset|build --preset|install) )")

RUNNER = '''
import json, subprocess, sys
names = {"__name__": "__main__"}
for language, text in json.load(open(sys.argv[1], encoding="utf-8")):
    if language == "python":
        exec(compile(text, "the page:\\n" + text, "exec"), names)
    elif language == "sh":
        subprocess.run(["bash", "-euc", text], check=True)
    else:
        name = text.split()[1].rstrip(":")  # the first line names the file
        open(name, "w", encoding="utf-8").write(text)
'''


class Pages(support.TestCase):
    def blocks(self, page):
        text = (support.PROJECT / page).read_text(encoding="utf-8")
        found = re.findall(r"^ *```(\w*)\n(.*?)^ *```$", text, re.MULTILINE | re.DOTALL)
        self.assertEqual(2 * len(found), len(re.findall(r"^ *```", text, re.MULTILINE)), page)
        self.assertLessEqual({language for language, _ in found}, LANGUAGES, page)
        return [(language, self.here(page, text)) for language, text in found if language != "text"]

    def here(self, page, text):
        """The block without the commands that run elsewhere; their scripts are there."""
        lines = text.splitlines()
        for line in lines:
            script = re.match(r"scripts/[\w-]+", line)
            if script:
                self.assertTrue((support.PROJECT / script.group()).exists(), (page, line))
        return "\n".join(line for line in lines if not RUN_ELSEWHERE.match(line)) + "\n"

    def setUp(self):
        super().setUp()
        os.symlink(str(support.PROJECT / "examples"), str(self.folder / "examples"))
        programs = self.folder / "programs"
        programs.mkdir()
        command = f'#!/bin/sh\nexec "{sys.executable}" -B '
        for name, words in (("python3", '"$@"\n'), ("qar", '-m qar "$@"\n')):
            (programs / name).write_text(command + words)
            (programs / name).chmod(0o755)
        self.path = f"{programs}{os.pathsep}{os.environ['PATH']}"
        table = self.run_program(sys.executable, "-B", "examples/simulation.py")
        (self.folder / "spectrum.csv").write_text(table, encoding="utf-8")
        (self.folder / "runner.py").write_text(RUNNER, encoding="utf-8")

    def test_run_as_they_stand(self):
        for page in PAGES:
            with self.subTest(page):
                place = self.folder / page.replace("/", "-")
                place.mkdir()
                for name in ("examples", "spectrum.csv"):
                    os.symlink(str(self.folder / name), str(place / name))
                blocks = place / "blocks.json"
                blocks.write_text(json.dumps(self.blocks(page)), encoding="utf-8")
                runner = self.folder / "runner.py"
                self.run_program(sys.executable, "-B", runner, blocks, folder=place, PATH=self.path)

    def test_link_to_what_is_there(self):
        for page in PAGES:
            path = support.PROJECT / page
            for link in re.findall(r"\]\(([^)#:]+)\)", path.read_text(encoding="utf-8")):
                self.assertTrue((path.parent / link).exists(), f"{page}: {link}")

    def test_describe_each_function(self):
        page = (support.PROJECT / "docs/functions.md").read_text(encoding="utf-8")
        headings = " ".join(re.findall(r"^### (.*)", page, re.MULTILINE))
        described = re.findall(r"(\w+)\(", headings)
        wanted = [name for name in vars(pyORV3) if not name.startswith("__")]
        self.assertEqual(sorted(described), sorted(wanted))
