"""The analysis-sequence copy between files."""

import contextlib
import shutil
import sqlite3
import struct

import pyORV3
import support

import embedded
from embedded import WRITE, code_of

CHUNK, GEOMETRY = 512, 0x4005

CALIBRATION = {"QAR_C_CALTITLE": "May", "QAR_C_CALGEOMETRY": "well"}
SOURCE = {
    "QAR_D_PEAKLIMIT": 4.5, "QAR_C_REPORTTITLE": "Other title", "QAR_B_REPORTPRINT": False,
    "QAR_F_CALTEMPER": 21.5, "QAR_C_CALGEOMETRY": "beaker", "QAR_C_SEQUENCE": "routine",
    "QAR_B_USECALFILE": True,
}  # fmt: skip
OWN = {
    "QAR_C_REPORTTITLE": "Own title",
    "QAR_B_REPORTPRINT": True,
    "QAR_D_REPORTLIMIT": 0.5,
    "QAR_S_REPORTCOPIES": 3,
    "QAR_C_OPERATOR": "kept",
}
# The class of the referenced file replaces all of the calibration.
EXPECTED = {
    **OWN,
    **CALIBRATION,
    "QAR_D_PEAKLIMIT": 4.5,
    "QAR_C_SEQUENCE": "routine",
    "QAR_C_ANSEQUENCE": "routine",
}


class TestSequence(embedded.TestCase):
    def create_with(self, name, values):
        handle = self.create(name)
        for parameter, value in values.items():
            self.set(handle, parameter, value)
        return handle

    def create_with_geometry(self, content):
        """Return a source with this unformatted block, written with SQL into a version 1 file."""
        path = self.folder / "source.qar"
        if path.exists():
            path.unlink()
        shutil.copy(support.PROJECT / "tests/data/sequence.qar", path)
        with contextlib.closing(sqlite3.connect(str(path))) as connection, connection:
            for table in ("block", "place", "value"):
                connection.execute(f"DELETE FROM {table}")
            connection.execute("INSERT INTO block VALUES(?, ?)", (GEOMETRY, content))
        return self.open(WRITE, "source.qar")

    def geometry(self, name):
        with contextlib.closing(sqlite3.connect(self.path(name))) as connection:
            rows = connection.execute("SELECT bytes FROM item WHERE key = ?", (GEOMETRY << 48,))
            return rows.fetchone()[0]

    def test_sequence_is_copied_and_own_settings_are_kept_after_reopening(self):
        self.ok(pyORV3.flush(self.create_with("calibration.qar", CALIBRATION)))
        # The size in the geometry block; the second block has fewer chunks than that.
        for total, missing in [(2 * CHUNK, 0), (5000, CHUNK)]:
            chunks = struct.pack("<I", total) + bytes(range(254)) * 4 + b"end."
            source = self.create_with_geometry(chunks)
            values = {**SOURCE, "QAR_C_CALFILE": self.path("calibration.qar")}
            for parameter, value in values.items():
                self.set(source, parameter, value)
            for entry, engine in enumerate(("search", "identify"), 1):
                self.set(source, "QAR_C_ANENGINE", engine, 1, entry)
            name = f"{total}.qar"
            copy = self.create_with(name, {**OWN, "QAR_D_PEAKLIMIT": 7.0})
            self.ok(pyORV3.copyAnalysisSequenceTo(source, copy))
            for reopened in (False, True):
                copy = self.reopened(copy, name) if reopened else copy
                self.assertEqual(
                    {parameter: self.get(copy, parameter) for parameter in EXPECTED}, EXPECTED
                )
                self.assertEqual(self.column(copy, "QAR_C_ANENGINE", 1), ["search", "identify"])
                self.fails(
                    embedded.NOT_SET, pyORV3.getParameter(copy, code_of("QAR_F_CALTEMPER"), 1, 1)
                )
            self.ok(pyORV3.close(copy, 0))
            self.ok(pyORV3.close(source, 0))
            self.assertEqual(self.geometry(name), chunks + bytes(missing))
