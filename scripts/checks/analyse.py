"""Run clang-tidy on the sources that a build compiles, several of them as one.

    python3 scripts/checks/analyse.py BUILD [FILE...]     BUILD: a folder with compile_commands.json

clang-tidy spends most of its time in the headers of Eigen, GoogleTest and the standard library, so one
file that contains several sources takes much less time. Definitions in unnamed namespaces must
therefore have different names in these sources.
"""

import bisect
import collections
import concurrent.futures
import json
import os
import pathlib
import re
import shlex
import subprocess
import sys

PROJECT = pathlib.Path(__file__).resolve().parent.parent.parent
MAX_LINES = 3300  # of a joined source

# Tests use fixed seeds so that they can be repeated. Their replacements of functions have the signatures
# of these functions. Long lines of SQL in lists are split. The analysis of paths would take most of the
# time; sanitizers run all tests instead.
CHECKS_OF_TESTS = ",".join(
    f"-{check}"
    for check in (
        "cert-msc51-cpp",
        "readability-non-const-parameter",
        "readability-inconsistent-declaration-parameter-name",
        "bugprone-suspicious-missing-comma",
        "clang-analyzer-*",
    )
)

# GCC has checked these in the build. In a joined source they report names of other files.
DISABLED_WARNINGS = ("-Wno-shadow", "-Wno-unused-function", "-Wno-unused-const-variable")


class JoinedSource:
    """Sources that compile with the same options."""

    def __init__(self, options, checks):
        self.options = options
        self.checks = checks  # in addition to .clang-tidy
        self.lines = []
        self.starts = []  # first line of each source, from 0
        self.sources = []
        self.included = set()

    def append(self, source, lines):
        self.starts.append(len(self.lines))
        self.sources.append(source)
        for line in lines:
            # An include that an earlier source has is a finding; an empty line keeps the numbers.
            repeated = line.startswith("#include") and line in self.included
            if line.startswith("#include"):
                self.included.add(line)
            self.lines.append("" if repeated else line)

    def position(self, line):
        """Return the source and the number of its line that a line of the joined source comes from."""
        index = bisect.bisect_right(self.starts, line - 1) - 1
        return self.sources[index], line - self.starts[index]


def compile_options(command):
    """Return the options of a compilation that the meaning of its source depends on."""
    words = shlex.split(command["command"])
    options = [word for word in words if word.startswith(("-D", "-I", "-std=", "-W"))]
    system = [words[index + 1] for index, word in enumerate(words) if word == "-isystem"]
    ignored = re.compile("-Wl,.*|-D_FORTIFY_SOURCE.*|-D.*_EXPORTS")
    options = [word for word in options if not ignored.fullmatch(word)]
    return (*options, *(f"-isystem{folder}" for folder in system), *DISABLED_WARNINGS)


def join(commands, wanted):
    """Return joined sources of the compiled files: of the product, and of each folder of tests."""
    groups = collections.defaultdict(list)
    for path, command in sorted(commands.items()):
        if not wanted or path in wanted:
            lines = (PROJECT / path).read_text(encoding="utf-8").split("\n")
            is_program = any(line.startswith("int main(") for line in lines)
            room = path if is_program else path.parts[:2] if path.parts[0] == "tests" else ()
            groups[compile_options(command), room].append((path, lines))
    joined = []
    for (options, _), sources in groups.items():
        current = None
        for path, lines in sources:
            if current is None or len(current.lines) + len(lines) > MAX_LINES:
                current = JoinedSource(options, CHECKS_OF_TESTS if path.parts[0] == "tests" else "")
                joined.append(current)
            current.append(path, lines)
    return joined


def analyse(joined, build, number):
    """Run clang-tidy on a joined source. Return its findings, with positions in the sources."""
    path = build / "analysis" / f"{number}.cpp"
    path.parent.mkdir(exist_ok=True)
    path.write_text("\n".join(joined.lines), encoding="utf-8")
    result = subprocess.run(
        [
            "clang-tidy",
            "--quiet",
            f"--config-file={PROJECT}/.clang-tidy",
            f"--checks={joined.checks}",
            str(path),
            "--",
            *joined.options,
        ],
        cwd=build,
        stdout=subprocess.PIPE,
        stderr=subprocess.PIPE,
        text=True,
    )

    def replaced(match):
        source, line = joined.position(int(match.group(1)))
        return f"{source}:{line}:"

    findings = re.sub(re.escape(str(path)) + r":(\d+):", replaced, result.stdout)
    if result.returncode != 0 and not findings.strip():
        findings = f"{result.stderr}clang-tidy ended with {result.returncode}\n"
    return findings


def main():
    build = pathlib.Path(sys.argv[1]).resolve()
    wanted = {pathlib.Path(os.path.relpath(path, PROJECT)) for path in sys.argv[2:]}
    database = json.loads((build / "compile_commands.json").read_text(encoding="utf-8"))
    commands = {pathlib.Path(os.path.relpath(c["file"], PROJECT)): c for c in database}
    for path in sorted(wanted - set(commands)):
        sys.exit(f"{path}: not a source of the build in {build}")
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        jobs = [
            pool.submit(analyse, joined, build, number)
            for number, joined in enumerate(join(commands, wanted))
        ]
        failed = False
        for job in jobs:
            findings = job.result()
            print(findings, end="", flush=True)
            failed = failed or findings.strip() != ""
    return failed


if __name__ == "__main__":
    sys.exit(main())
