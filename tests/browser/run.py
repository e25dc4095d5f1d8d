"""Run the tests of reports in headless Chromium.

    run.py FOLDER    # for the packages of npm, which are installed once

Exits with 77 if Chromium, Node.js or the packages are missing, or if Node.js is too old.
"""

import os
import pathlib
import shutil
import subprocess
import sys
import tempfile

HERE = pathlib.Path(__file__).resolve().parent
SKIPPED = 77
PROGRAMS = ("chromium", "node", "npm")
OLDEST_NODE = 20  # of playwright-core; Debian 12 has an older version


def skip(reason):
    print(f"skipped: {reason}")
    sys.exit(SKIPPED)


def install(folder):
    """Install the packages, unless those of the same list are there."""
    packages = (HERE / "package-lock.json").read_text(encoding="utf-8")
    stamp = folder / "installed"
    if stamp.exists() and stamp.read_text(encoding="utf-8") == packages:
        return
    folder.mkdir(parents=True, exist_ok=True)
    for name in ("package.json", "package-lock.json"):
        shutil.copy(HERE / name, folder / name)
    command = ["npm", "ci", "--silent", "--no-audit", "--no-fund", "--fetch-retries=1"]
    if subprocess.run(command, cwd=folder, timeout=120).returncode != 0:
        skip("npm could not install the packages of tests/browser/package.json")
    stamp.write_text(packages, encoding="utf-8")


def main():
    missing = [name for name in PROGRAMS if shutil.which(name) is None]
    if missing:
        skip(f"{', '.join(missing)} not installed")
    node = subprocess.check_output(["node", "--version"], encoding="ascii")  # v20.1.0
    if int(node[1:].split(".")[0]) < OLDEST_NODE:
        skip(f"Node.js {node.strip()} is too old; version {OLDEST_NODE} or later is needed")
    packages = pathlib.Path(sys.argv[1]).resolve()
    install(packages)
    with tempfile.TemporaryDirectory() as pages:
        subprocess.run([sys.executable, "-B", HERE / "pages.py"], cwd=pages, check=True)
        for name in ("browser.mjs", "report.test.mjs"):
            shutil.copy(HERE / name, packages / name)  # Node searches packages beside the test
        environment = {**os.environ, "PAGES": pages, "CHROMIUM": shutil.which("chromium")}
        test = ["node", "--test", packages / "report.test.mjs"]
        sys.exit(subprocess.run(test, env=environment).returncode)


if __name__ == "__main__":
    main()
