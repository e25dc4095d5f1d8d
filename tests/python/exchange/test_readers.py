"""Formats that are read only: contents, times and calibrations; damaged files are refused."""

import json
import os
import struct
import unittest
import zipfile
from datetime import datetime, timezone

import support
from qar import formats
from qar.formats import calibration_conversion, columns

COUNTS = (0, 7, 123456, 0, 2147483647, 3, 1, 0)
START = datetime(2012, 9, 17, 13, 41, 7, tzinfo=timezone.utc)
FLOATS = tuple(
    int(struct.unpack("<f", struct.pack("<f", c))[0]) for c in COUNTS[:4]
)  # values that are exact as 32-bit floats


def packed_text(text, size):
    return text.encode().ljust(size, b"\0")


def chn(counts=COUNTS):
    head = struct.pack(
        "<hhh2sII8s4sHH", -1, 1, 1, b"07", 5013, 5000, b"17SEP121", b"1341", 0, len(counts)
    )
    trailer = struct.pack("<hh6f", -102, 0, 1.0, 0.5, 0.0, 4.0, 0.0, 0.0).ljust(256, b"\0")
    texts = bytes([4]) + packed_text("HPGe", 63) + bytes([4]) + packed_text("Soil", 63)
    return head + struct.pack(f"<{len(counts)}I", *counts) + trailer + texts + bytes(128)


def spc(kind=1):
    records = [bytearray(128) for _ in range(6)]
    for offset, value in (
        *((0, 1), (2, kind), (8, 2), (10, 3), (12, 4), (34, 5)),
        *((60, 6), (62, 1), (64, len(COUNTS))),
    ):
        struct.pack_into("<h", records[0], offset, value)
    struct.pack_into("<ff", records[0], 90, 100.25, 100.0)
    records[1][:46] = b"name.spc".ljust(16) + b"17-SEP-121  13:41:07          "
    records[2][:4], records[3][:4] = b"Soil", b"HPGe"
    struct.pack_into("<6f", records[4], 20, 1.0, 0.5, 0.0, 4.0, 0.0, 0.0)
    struct.pack_into(f"<{len(COUNTS)}{'I' if kind == 1 else 'f'}", records[5], 0, *COUNTS)
    return b"".join(map(bytes, records))


def pcf(deviations=b"", counts=FLOATS):
    head = struct.pack("<h3s", 2, b"DHS").ljust(256, b" ")
    spectrum = b"Soil".ljust(180) + b"17-Sep-2012 13:41:07.00 "
    spectrum += struct.pack("<7f", 100.0, 100.25, 0, 0, 0, 1.0, 0.5 * len(counts))
    spectrum = spectrum.ljust(252, b"\0") + struct.pack("<i", len(counts))
    contents = struct.pack(f"<{len(counts)}f", *counts).ljust(256, b"\0")
    return head + deviations + 2 * (spectrum + contents)


DEVIATIONS = b"DeviationPairsInFile".ljust(256) + bytes(80 * 256)
MCA = (
    "<<PMCA SPECTRUM>>\nTAG - tag\nDESCRIPTION - Soil\nLIVE_TIME - 100.0\nREAL_TIME - 100.25\n"
    "START_TIME - 09/17/2012 13:41:07\n<<CALIBRATION>>\nLABEL - Channel\n0 1\n100 51\n<<DATA>>\n"
    + "\n".join(map(str, COUNTS))
    + "\n<<END>>\n"
)
IEC_HEAD = [
    "Soil",
    "100.00 100.25 8",
    "17/09/12 13:41:07 17/09/12 12:00:00",
    " 1.00000000E+00 5.00000000E-01-0.00000000E+00 0.00000000E+00",
    " 0.00000000E+00",
]
IEC = "".join(
    f"A004{line}\r\n"
    for line in IEC_HEAD
    + [""] * (58 - len(IEC_HEAD))
    + [f"{at:6d}" + "".join(f"{c:10d}" for c in (*COUNTS, 0, 0)[at : at + 5]) for at in (0, 5)]
)
KEYS = (
    "Spectrum Name:,Soil\nCalibration Coefficients:Elapsed Real Time:,100.25\n"
    "Elapsed Live Time:,100\nStart Time:,September 17, 2012, 13:41:07\n\nChannel Data:\n"
    "Channel,Energy,Counts\n"
    + "".join(f"{channel},,{count}\n" for channel, count in enumerate(COUNTS))
)
TABS = KEYS.replace(",,", "\t\t").replace("l,E", "l\tE").replace("y,C", "y\tC")
XML = (
    "<ResultDataFile><ResultDataList><ResultData><EnergySpectrum><SpectrumName>Soil</SpectrumName>"
    "<EnergyCalibration><Coefficients><Coefficient>1</Coefficient><Coefficient>0.5</Coefficient>"
    "</Coefficients></EnergyCalibration><MeasurementTime>100</MeasurementTime><Spectrum>"
    + "".join(f"<DataPoint>{count}</DataPoint>" for count in COUNTS)
    + "</Spectrum></EnergySpectrum></ResultData></ResultDataList></ResultDataFile>"
)

FILES = (  # format, content, whether it has a start, a real time and a calibration
    ("chn", chn(), True, True, True),
    ("spc", spc(), True, True, True),
    ("pcf", pcf(), True, True, True),
    ("pcf", pcf(DEVIATIONS), True, True, True),
    ("mca", MCA.encode(), True, True, True),
    ("iec", IEC.encode(), True, True, True),
    ("keys", KEYS.encode(), True, True, False),
    ("keys", TABS.encode(), True, True, False),
    ("xml", XML.encode(), False, False, True),
)
REFUSED = (  # content, part of the message
    (chn()[:60], "cut off"),
    (chn().replace(struct.pack("<H", 8), b"\xff\xff", 1), "not a spectrum|cut off"),
    (
        XML.replace("<R", '<?xml version="1.0" encoding="utf-%s"?><R' % (99 * "9"), 1).encode(),
        "unknown enc",
    ),
    (spc()[:-100], "cut off"),
    (spc(5)[:-128] + struct.pack("<8f", 1e12, *COUNTS[1:]).ljust(128, b"\0"), "1e.12 counts"),
    (pcf()[:700], "cut off"),
    (pcf(DEVIATIONS)[:-100], "cut off"),
    (pcf().replace(struct.pack("<i", 4), struct.pack("<i", 10**9)), "1000000000 channels"),
    (pcf(counts=(float("nan"),) * 8), "nan counts"),
    (MCA.replace("123456", "1000000000000").encode(), "in a channel"),
    (MCA.replace("DATA", "DATE").encode(), "<<DATA>>"),
    (IEC[:-100].encode(), "missing|cut off"),
    (IEC.replace("100.25 8", "100.25 1000000000").encode(), "1000000000 channels"),
    (KEYS.replace("3,,0", "5,,0").encode(), "line 11: channel 5 follows channel 2"),
    (KEYS[: KEYS.index("0,,")].encode(), "no line"),
    (XML.replace("DataPoint", "Point").encode(), "no spectrum"),
    (b"PK\x03\x04" + bytes(100), "known format"),
)


class TestReaders(support.TestCase):
    def read(self, content):
        with open("file", "wb") as file:
            file.write(content)
        return formats.read("file")

    def test_contents_times_and_calibration_arrive(self):
        for name, content, has_start, has_real_time, has_energy in FILES:
            with self.subTest(name):
                measurement = self.read(content)[0]
                self.assertEqual(formats.identify("file").name, name)
                counts = FLOATS if name == "pcf" else COUNTS
                self.assertEqual(measurement.counts, counts)
                self.assertEqual(measurement.live_time, 100.0)
                self.assertAlmostEqual(measurement.real_time, 100.25 if has_real_time else 100.0, 1)
                self.assertEqual(measurement.start, START if has_start else None)
                self.assertEqual(measurement.energy, (0.5, 0.5) if has_energy else ())
                self.assertEqual(measurement.title, "Soil")

    def test_every_spectrum_of_a_file_has_its_own_name(self):
        names = [measurement.name for measurement in self.read(pcf())]
        self.assertEqual(names, ["spectrum-1", "spectrum-2"])

    def test_decimal_counts_are_rounded_with_a_note(self):
        (first, _) = self.read(pcf(counts=(1.25, 2.75) * 4))
        self.assertEqual(first.counts, (1, 3) * 4)
        self.assertIn("decimal counts are rounded in 8 channels", first.notes)

    def test_width_fit_takes_equal_and_tiny_energies(self):
        equal = struct.pack("<6f", 1e8, 1e-10, 0.0, 4.0, 0.5, 0.0)  # as rounded to doubles
        content = spc().replace(struct.pack("<6f", 1.0, 0.5, 0.0, 4.0, 0.0, 0.0), equal)
        self.assertEqual(len(self.read(content)[0].shape), 1)
        tables = [str(number) for number in range(1, 17)], ["1.1"] * 16
        self.assertTrue(calibration_conversion.shape_from_table(*tables).coefficients)
        tables[0][3] = "1e-4000"  # its exact powers have 30,000 digits
        self.assertTrue(calibration_conversion.shape_from_table(*tables).coefficients)
        tables[0][3] = "1e-200"
        self.assertFalse(calibration_conversion.shape_from_table(*tables).coefficients)

    def test_date_with_undefined_characters_is_left_out(self):
        self.assertIsNone(self.read(chn().replace(b"SEP", b"S\x81P"))[0].start)

    def test_widths_in_channels_become_a_shape_calibration(self):
        for content in (chn((1,) * 64), spc()):
            shape = self.read(content)[0].shape
            self.assertAlmostEqual(sum(c * 20**n for n, c in enumerate(shape)), 4.0, 5)

    def test_damaged_files_are_refused_in_one_line(self):
        for content, message in REFUSED:
            with self.subTest(message):
                with self.assertRaisesRegex(formats.FormatError, message):
                    self.read(content)
                self.assert_refused(content)

    def assert_refused(self, content, codes=(2,)):
        """Convert a file: exit code 2 with one line and no new file, or another one of `codes`."""
        self.write("file", content)
        ran = support.run("convert", "file", "new.qar")
        self.assertIn(ran.code, codes, ran)
        if ran.code == 2:
            self.assertEqual((len(ran.err), self.names()), (1, ["file"]), ran)
        else:
            os.remove("new.qar")

    def test_hostile_files_of_every_format_are_refused_in_one_line(self):
        for name in ("a.spe", "a.n42", "a.csv", "a.txt"):
            formats.write(name, support.FULL)
        written = [self.read_and_remove(name) for name in self.names()]
        for content in written + [content for _, content, *_ in FILES]:
            for size in (len(content) // 3, len(content) - 3):
                self.assert_refused(content[:size], codes=(0, 2))
            for encoding in ("utf-16", "utf-16-be", "cp500"):
                encoded = content.decode("latin-1").encode(encoding)
                self.assert_refused(encoded, codes=(0, 2))
            with zipfile.ZipFile("packed", "w", zipfile.ZIP_DEFLATED) as archive:
                archive.writestr("file", content)
            self.assert_refused(self.read_and_remove("packed"))
            if b"\0" not in content:  # text; the columns of IEC files have 10 characters
                large = b"9999999999" if content.startswith(b"A004") else b"1000000000000"
                self.assert_refused(content.replace(b"2147483647", large))

    def read_and_remove(self, name):
        content = (self.folder / name).read_bytes()
        os.remove(name)
        return content

    def test_truncated_files_never_raise_anything_else(self):
        for name, content, *_ in FILES:
            for size in range(0, len(content), max(1, len(content) // 60)):
                try:
                    self.assertTrue(self.read(content[:size]))
                except formats.FormatError:
                    pass

    def test_a_layout_names_columns_and_skips_head_lines(self):
        text = "run 7\n12 600\n0;3;1.5;9\n1;4;2.5;9\n"
        layout = columns.Layout(skip=2, columns=("channel", "counts", "energy", "ignore"))
        (measurement,) = columns.read_table(text.encode(), layout)
        self.assertEqual((measurement.counts, measurement.energy), ((3, 4), (0.5, 1.0)))

    def test_written_tables_have_an_energy_column(self):
        formats.write("a.csv", support.FULL)
        with open("a.csv", encoding="utf-8") as file:
            heading, first = [line.split(",") for line in file if not line.startswith("#")][:2]
        self.assertEqual(heading, ["channel", "energy / keV", "counts\n"])
        self.assertAlmostEqual(float(first[1]), sum(support.FULL.energy), 6)

    def test_formats_without_a_writer_refuse_to_write(self):
        with self.assertRaisesRegex(formats.FormatError, "'chn' can only be read"):
            formats.write("a.chn", support.FULL)
        self.assertEqual(os.listdir("."), [])

    @unittest.skipUnless(support.SPECTRA, "PYORV3_SPECTRA is not set")
    def test_real_files_agree_with_an_independent_reading(self):
        folder = os.path.join(support.SPECTRA, "field", "formats")
        with open(os.path.join(folder, "formats.json"), encoding="utf-8") as file:
            cases = json.load(file)
        for case in cases:
            with self.subTest(case["file"]):
                measurement = formats.read(os.path.join(folder, case["file"]))[0]
                for expected, value in (
                    (case["channels"], len(measurement.counts)),
                    (case["counts"], sum(measurement.counts)),
                    (case["live_time"], measurement.live_time),
                ):
                    self.assertIn(expected, (None, value))


if __name__ == "__main__":
    unittest.main()
