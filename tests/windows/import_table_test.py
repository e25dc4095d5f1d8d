"""Test imports and exports of the finished module: import_table_test.py OBJDUMP MODULE VERSION."""

import re
import subprocess
import sys
import tempfile
import unittest
import zipfile
from pathlib import Path

OBJDUMP, MODULE, VERSION = sys.argv[1:]

ORV_NAMES = """
    OrvCreateBlock OrvCreateDSC2 OrvReadUFBlock OrvWriteUFBlock SOrvClassCopy SOrvClassCount
    SOrvCloseDataSource SOrvControlDSC SOrvCopyRecord SOrvCreateDSC SOrvCreateDSC2 SOrvCreateFile
    SOrvDeleteDSC SOrvDeleteLevel SOrvDeleteOne SOrvEntryCount SOrvEnumNodes SOrvFindRecord
    SOrvFirstInput SOrvFlush SOrvGetParam SOrvGetSpectrum SOrvInsertOne SOrvNextInput
    SOrvOpenDataSource SOrvPutParam SOrvPutSpectrum SOrvQueryDSC SOrvQueryDataSource SOrvReVerify
    SOrvSaveAs
""".split()
ORV_ORDINALS = [3, 4, 5, 6, 15, 16, 17, 23, 24, 38, 39, 40, 43]
WINDOWS_LIBRARIES = {"kernel32.dll", "advapi32.dll", "msvcrt.dll"}

HEADERS = subprocess.run([OBJDUMP, "-p", MODULE], capture_output=True, text=True, check=True).stdout
CONTENT = Path(MODULE).read_bytes()
BACKEND = Path(__file__).resolve().parents[2] / "python" / "packaging" / "wheel_backend.py"


def imports():
    """Return the imported names, and ordinals as ints, by the lower-case name of each library."""
    libraries = {}
    for part in HEADERS.split("DLL Name: ")[1:]:
        library, *lines = part.split("\n\n")[0].splitlines()
        entries = libraries.setdefault(library.strip().lower(), [])
        for address, hint, name in (line.split() for line in lines[1:]):
            by_ordinal = int(address, 16) & 0x80000000
            entries.append(int(hint) if by_ordinal else name)
    return libraries


class TestFinishedModule(unittest.TestCase):
    def test_library_functions_are_imported_by_name_and_by_ordinal(self):
        self.assertCountEqual(imports()["orv.dll"], ORV_NAMES + ORV_ORDINALS)

    def test_other_imports_are_only_from_python3_and_windows(self):
        self.assertEqual(set(imports()) - WINDOWS_LIBRARIES, {"orv.dll", "python3.dll"})

    def test_only_the_init_function_is_exported(self):
        table = HEADERS.split("[Ordinal/Name Pointer] Table")[1].split("\n\n")[0]
        self.assertEqual(re.findall(r"\] (\S+)", table), ["PyInit_pyORV3"])

    def test_address_and_data_are_protected(self):
        self.assertIn("DYNAMIC_BASE", HEADERS)
        self.assertIn("NX_COMPAT", HEADERS)

    def test_version_resource_has_name_and_version(self):
        for text in ("pyORV3.pyd", "ProductVersion\0" + VERSION):
            self.assertIn(text.encode("utf-16-le"), CONTENT)

    def test_module_in_the_wheel_has_no_date(self):
        header = int.from_bytes(CONTENT[60:64], "little")
        self.assertEqual(CONTENT[header + 8 : header + 12], bytes(4))
        with tempfile.TemporaryDirectory() as folder:
            build = Path(MODULE).parents[1]
            pack = [sys.executable, "-B", BACKEND, "wheel", build, folder]
            subprocess.run(pack, stdout=subprocess.DEVNULL, check=True)
            with zipfile.ZipFile(next(Path(folder).iterdir())) as wheel:
                self.assertEqual(wheel.read("pyORV3.pyd"), CONTENT)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
