"""Processes that end or run short of resources; each script runs in a separate interpreter."""

import collections
import os
import re
import subprocess
import sys
import tempfile
import unittest

DAEMON_IN_ENGINE = """
import threading, time, orv_double, pyORV3
taken = threading.Lock()
taken.acquire()
class Last:  # deleted at the end of the interpreter; then the engine returns
    def __del__(self, call=pyORV3.flush, wait=taken.acquire):
        call(5)
        wait(True, 0.2)
last = Last()
passed = ("double_engine", "waitForAnotherCall", 1, 2)
threading.Thread(target=pyORV3.executeNativeEngine, args=passed, daemon=True).start()
while not orv_double.calls():
    time.sleep(0.001)
"""

SPECTRUM = """
import builtins, sys
import orv_double, pyORV3
content = {"channels": b"\\1\\0\\0\\0\\xfe\\xff\\xff\\xff"}
orv_double.answer("SOrvGetSpectrum", 0, "", -1, {}, content)
def read(get=pyORV3.getSpectrum, answer=orv_double.answer, write=sys.stdout.write):
    answer("SOrvGetParam", 0, "", 1, {}, {"buffer": 2})
    write("%s\\n" % (get(5, 0, 0),))
class Last:
    def __del__(self, read=read):
        read()
read()
answer = orv_double.answer
answer("SOrvGetParam", 0, "", 1, {}, {"buffer": 2})
print(eval("get(5, 0, 0)", {"__builtins__": {}, "get": pyORV3.getSpectrum}))
def deny(*arguments, **named):
    raise RuntimeError("no imports")
former, builtins.__import__ = builtins.__import__, deny
read()
sys.modules.pop("_struct", None)
read()
builtins.__import__ = former
class Struct:
    @staticmethod
    def unpack_from(*arguments):
        raise KeyError("another error")
    unpack = unpack_from
for other in (None, Struct, 5):
    sys.modules["_struct"] = other
    read()
sys.last = builtins.last = Last()
here = Last()
"""

REGISTRY = """
import os, pyORV3
pyORV3.%s
os.system("echo $ORV_LOADED")
print(ascii(pyORV3.getParameterMetaData(0, 0, "ORV_TEST")))
print("CP1252" in open("/proc/self/maps").read())
"""

TRACE = """
import os, threading, orv_double, pyORV3
def fail():
    for _ in range(200):
        pyORV3.flush("x")
        pyORV3.executeNativeEngine("a\\nb", "c", 1, 2)
threads = [threading.Thread(target=fail) for _ in range(2)]
for thread in threads:
    thread.start()
child = os.fork() if CAN_FORK else None
if child == 0:
    fail()
    os._exit(0)
for thread in threads:
    thread.join()
if child:
    os.waitpid(child, 0)
pyORV3.getParameter(5, 0x12340001, 1, 1)
described = {"type": 8, "size": 4, "name": b"QAR_NAME"}
orv_double.answer("OrvParameterDescriptionQuery", 0, "", -1, {"codeLow": 0x2D}, described)
orv_double.answer("OrvParameterRead", 5, "", 1, {}, {})
pyORV3.copyAnalysisSequenceTo(5, 6)
print(pyORV3.flush(5))
"""
LINE = re.compile(
    r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z\t(\S+)\t3\t([^\t]+)\t(0x[0-9A-F]{8})\r?\n"
)


def output_of(script, **environment):
    """Return the output of a script that must succeed without standard error."""
    process = subprocess.run(
        [sys.executable, "-W", "ignore", "-c", script],
        env=dict(os.environ, **environment),
        stdout=subprocess.PIPE,
        stderr=subprocess.PIPE,
        universal_newlines=True,
        timeout=120,
    )
    if process.returncode != 0 or process.stderr:
        raise AssertionError("ended with %d: %s" % (process.returncode, process.stderr))
    return process.stdout.splitlines()


class TestExits(unittest.TestCase):
    @unittest.skipIf(
        "libasan" in os.environ.get("LD_PRELOAD", ""),
        "the address sanitizer stumbles over its own marks on a stack that was unwound",
    )
    def test_daemon_thread_in_an_engine_ends_with_the_process(self):
        self.assertEqual(output_of(DAEMON_IN_ENGINE), [])

    def test_spectrum_is_read_without_an_import(self):
        self.assertEqual(set(output_of(SPECTRUM)), {"(0, (1, -2))"})

    @unittest.skipIf(os.name == "nt", "Windows has a registry of its own")
    def test_registry_is_read_without_system_modules(self):
        with tempfile.TemporaryDirectory() as folder:
            path = os.path.join(folder, "registry.reg")
            with open(path, "wb") as file:
                text = "\ufeffWindows Registry Editor Version 5.00\n"
                text += "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Tarsel\\Orsova Environment]\n"
                text += '"ORV_TEST"="\u00dcbung \u20ac"\n"ORV_LOADED"="loaded"\n'
                file.write(text.encode("utf-16-le"))
            metadata = (0, ("ORV_TEST", "\u00dcbung \u20ac", 0, 0, "str"))
            metadata_call = 'getParameterMetaData(0, 0, "ORV_TEST")'
            for call in ('open("name", 1, 1, "")', "copyAnalysisSequenceTo(5, 6)", metadata_call):
                lines = output_of(REGISTRY % call, ORSOVA_REGISTRY=path, OSVENV="")
                self.assertEqual(lines, ["loaded", ascii(metadata), "False"])

    def test_threads_report_failures_in_whole_lines(self):
        with tempfile.TemporaryDirectory() as folder:
            path = os.path.join(folder, "trace")
            # In a forked process the sanitizers keep the locks of other threads, of their memory or of
            # dlopen.
            preloaded = os.environ.get("LD_PRELOAD", "")
            can_fork = hasattr(os, "fork") and not re.search("lib[at]san", preloaded)
            script = "CAN_FORK = %s" % can_fork + TRACE
            self.assertEqual(output_of(script, PYORV3_TRACE=path), ["0"])
            with open(path, newline="") as file:
                lines = file.readlines()
        reports = [LINE.fullmatch(line).groups() for line in lines]
        threads = 3 if can_fork else 2
        message = "File: (unknown). Failed to get parameter: QAR_NAME Record: 1 Entry: 0"
        self.assertEqual(reports.pop(), ("FileAccess::getParameter", message, "0x00000065"))
        counted = collections.Counter((context, code) for context, _, code in reports)
        expected = {
            ("flush", "0xECE99D7D"): 200 * threads,
            ("executeNativeEngine", "0x0000007E"): 200 * threads,
            ("Parameter::load", "0x00278002"): 1,
            ("getParameter", "0xECE99F6D"): 1,
        }
        self.assertEqual(counted, expected)
