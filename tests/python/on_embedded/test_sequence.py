"""The analysis-sequence copy between files."""

import contextlib
import sqlite3
import struct

import pyORV3

import embedded
from embedded import READ, code_of

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

    def geometry(self, name, content=None):
        """Write the unformatted block of a closed file if given; return the block."""
        with contextlib.closing(sqlite3.connect(self.path(name))) as connection, connection:
            if content:
                connection.execute("REPLACE INTO block VALUES(?, ?)", (GEOMETRY, content))
            rows = connection.execute("SELECT content FROM block WHERE class = ?", (GEOMETRY,))
            return rows.fetchone()[0]

    def test_sequence_is_copied_and_own_settings_are_kept_after_reopening(self):
        self.ok(pyORV3.flush(self.create_with("calibration.qar", CALIBRATION)))
        source = self.create_with(
            "source.qar", {**SOURCE, "QAR_C_CALFILE": self.path("calibration.qar")}
        )
        for entry, engine in enumerate(("search", "identify"), 1):
            self.set(source, "QAR_C_ANENGINE", engine, 1, entry)
        # The size in the geometry block; the second block has fewer chunks than that.
        for total, missing in [(2 * CHUNK, 0), (5000, CHUNK)]:
            self.ok(pyORV3.close(source, 0))
            chunks = self.geometry(
                "source.qar", struct.pack("<I", total) + bytes(range(254)) * 4 + b"end."
            )
            source = self.open(READ, "source.qar")
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
            self.assertEqual(self.geometry(name), chunks + bytes(missing))
