"""Dictionaries and engines that are missing, invalid or incomplete."""

import pathlib
import shutil

import pyORV3

import embedded

SCRIPT = """if True:
    import pathlib, pyORV3
    calls = [
        pyORV3.executeNativeEngine("other", "searchPeaks!", 1, 2),
        pyORV3.getParameter(1, 0x20000007, 1, 1),
        pyORV3.setParameter(1, 0x20000007, 1, 1, 1),
        pyORV3.getParameterMetaData(0, 0x20000007, ""),
        pyORV3.getParameterMetaData(0, 0, "QAR_L_CHANNELS"),
    ]
    print(*calls, "/other.so" in pathlib.Path("/proc/self/maps").read_text())
"""
NO_LIBRARY, NO_ENTRY_POINT = 0xE000007E - 2**32, 0xE000007F - 2**32
UNKNOWN = embedded.UNKNOWN_EXCEPTION - 2**32
REFUSED = embedded.BAD_ARGUMENTS - 2**32


class TestLibraries(embedded.TestCase):
    def test_failure_has_its_status_and_no_library_stays_loaded(self):
        product = pathlib.Path(pyORV3.__file__).parent
        for name in ("pyORV3.abi3.so", "libORV.so"):
            shutil.copy(str(product / name), str(self.folder))
        for content, status in (
            (None, NO_LIBRARY),
            (b"not a library", NO_LIBRARY),
            ((product / "peak_search.so").read_bytes(), NO_ENTRY_POINT),
        ):
            for name in ("pqar.so", "other.so"):
                if content is not None:
                    (self.folder / name).write_bytes(content)
            with self.subTest(content=content and content[:10]):
                # Only this folder is searched.
                output = self.python(
                    "-c", SCRIPT, PYTHONPATH=str(self.folder), LD_LIBRARY_PATH="", OSVENV="1"
                )
                expected = [status, (UNKNOWN, 0), UNKNOWN, (REFUSED, 0), (REFUSED, 0), False]
                self.assertEqual(output.strip(), " ".join(map(str, expected)))
