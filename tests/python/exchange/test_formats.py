"""Reading and writing of measurements in every format."""

import glob
import math
import os
import random
import sys
import unittest
import xml.etree.ElementTree
from datetime import datetime, timezone

import qar
import support
from qar import atomic_files, formats
from qar.analysis.calibration import counted_from_one
from qar.formats import calibration_conversion, parsing
from support import FULL

N42 = '<RadInstrumentData><RadMeasurement><Spectrum id="s">%s</Spectrum></RadMeasurement></RadInstrumentData>'
COUNTED = '<ChannelData compressionCode="CountedZeroes">%s</ChannelData>'
DATA = "$DATA:\n0 2\n1\n2\n3\n"
MANY = "<Spectrum>" + COUNTED % "0 65000" + "</Spectrum>"
DOCTYPE = '<!DOCTYPE r [<!ENTITY x "%s">]><RadInstrumentData>&x;</RadInstrumentData>'

WRITABLE = [format for format in formats.FORMATS.values() if format.write is not None]

REFUSED = (  # file, content, part of the message
    ("a.n42", DOCTYPE % "xxx", "document type"),
    ("a.n42", '<!DOCTYPE r SYSTEM "http://a"><RadInstrumentData/>', "document type"),
    ("a.n42", "<RadInstrumentData><a>", "not well-formed"),
    ("a.n42", "<RadInstrumentData>" + "<a>" * 70, "too many elements"),
    ("a.n42", "<html/>", 'root element is "html"'),
    ("a.n42", N42 % (COUNTED % "0 70000"), "more than 65,535"),
    ("a.n42", N42 % (COUNTED % "5 0"), "number of zeroes"),
    ("a.n42", N42 % (COUNTED % "1 -3"), '"-3"'),
    ("a.n42", N42 % (COUNTED % ("9" * 100000)), "not a number"),
    ("a.n42", N42 % ("<LiveTimeDuration>-PT1S</LiveTimeDuration>" + COUNTED % "1"), "not a duration"),
    ("a.n42", "<RadInstrumentData>" + 310 * MANY + "</RadInstrumentData>", "too many spectra"),
    ("a.spe", "$DATA:\n0 3\n1\n2\n", "2 of 4 channels"),
    ("a.spe", "$DATA:\n0 69999\n" + "1\n" * 70000, "0 to 69999"),
    ("a.spe", "$DATA:\n0 1\n1\n2\n3\n", "more than 2 channels"),
    ("a.spe", "$DATA:\n0 1\n1\n2.5\n", '"2.5"'),
    ("a.spe", "$DATA:\n0 1\n1\n²\n", '"²"'),
    ("a.spe", "$SPEC_ID:\nx\n", "no $DATA"),
    ("a.spe", DATA + "$MCA_CAL:\n2\n1e308 1e308\n$SHAPE_CAL:\n2\n1e308 1e308\n", "out of range"),
    ("a.csv", "1,2,3,4\n", "4 columns"),
    ("a.csv", "5\n1,6\n", "line 2: 2 columns follow 1"),
    ("a.csv", "0,1\n2,1\n1,1\n", "do not rise"),
    ("a.csv", "600\n605\n" + 256 * "1\n", "lines to skip"),
    ("a.csv", "0,1\n1,1e400\n", "line 2"),
    ("a.csv", "0,2147483648\n", '"2147483648" counts'),
    ("a.csv", "1\n" * 70000, "more than 65,535"),
    ("a.csv", "9" * 5000, "too long lines"),
    ("a.csv", "words\n", "no line has counts"),
    ("a.csv", b"1\x002", "no spectrum in a known format"),
    ("a.csv", "", "empty"),
)  # fmt: skip

OLD_N42 = (
    "<N42InstrumentData><Remark>outer</Remark><Measurement><Spectrum><Remark>inner</Remark>"
    '<Calibration Type="Energy" EnergyUnits="MeV"><Equation><Coefficients>1 0.5</Coefficients></Equation>'
    "</Calibration><ChannelData>1 2</ChannelData></Spectrum></Measurement></N42InstrumentData>"
)
BOUNDARIES = (
    '<RadInstrumentData><EnergyCalibration id="e"><EnergyBoundaryValues>0 0.5 1 1.5</EnergyBoundaryValues>'
    '</EnergyCalibration><Spectrum energyCalibrationReference="e"><ChannelData>1 2 3</ChannelData></Spectrum>'
    "</RadInstrumentData>"
)
NOON = datetime(2017, 4, 26, 11, 5, 11, tzinfo=timezone.utc)
DATED = "$DATE_MEA:\n04/26/2017 11:05:11\n"

READ = (  # file, content, the fields to compare, part of the notes
    ("a.csv", "1,5\n2,6\n", {"counts": (5, 6)}, "count from 1"),
    ("a.csv", "1.0,5\n2e0,6\n", {"counts": (5, 6)}, "count from 1"),
    ("a.txt", "2 5\r\n3 6\r\n", {"counts": (0, 0, 5, 6)}, "channels 0 to 1"),
    ("a.csv", "energy;counts\n-5e-20;1,0\n0,2201;2\n0,4402;3\n",
        {"counts": (1, 2, 3), "energy": (-0.2201, 0.2201)}, ""),
    ("a.csv", "5\n6\n", {"counts": (5, 6)}, "no energy"),
    ("a.csv", "0.5,5\n", {"counts": (5,)}, "are not a polynomial"),
    ("a.spe", DATA + "$MCA_CAL:\n2\n0.5 0.25 MeV\n", {"energy": (250.0, 250.0)}, ""),
    ("a.spe", DATA + "$ENER_FIT:\n0 0.5\n$MCA_CAL:\n3\n1 0.5 0 keV\n",
        {"energy": (0.5, 0.5, 0.0)}, "differs from $MCA_CAL by 1 keV"),
    ("a.spe", DATA + DATED + "$ROI:\n1\n3 4\n", {"start": NOON}, "left out: $ROI"),
    ("a.spe", "$DATA:\n2 3\n5\n6\n", {"counts": (0, 0, 5, 6)}, "channels 0 to 1"),
    # Another program changed the date but not the remark.
    ("a.spe", "$SPEC_REM:\nSTART# 2020-01-01T00:00:00.5Z\n" + DATED + DATA, {"start": NOON}, "no time zone"),
    ("a.n42", (N42 % (COUNTED % "0 2 7.0")).encode("utf-16"), {"counts": (0, 0, 7), "name": "s"}, "no start"),
    ("a.n42", N42 % ("<LiveTimeDuration>P1DT2H3M4.5S</LiveTimeDuration><X:y>5</X:y>" + COUNTED % "1"),
        {"live_time": 93784.5}, "left out: y"),
    ("a.n42", N42 % ("<StartDateTime>2017-04-26T13:35:11+02:30</StartDateTime>" + COUNTED % "1"),
        {"start": NOON}, ""),
    ("a.n42", BOUNDARIES, {"energy": (-0.25, 0.5)}, ""),
    ("a.n42", OLD_N42, {"energy": (500.0, 500.0), "remarks": "outer\ninner"}, ""),
)  # fmt: skip


def differing(first, second):
    """The fields in which two measurements differ, apart from name, notes and file."""
    fields = set(FULL._fields) - {"name", "notes", "qar_file"}
    return {field for field in fields if getattr(first, field) != getattr(second, field)}


class TestRead(support.TestCase):
    def test_invalid_file_is_refused_in_one_line(self):
        for name, content, message in REFUSED:
            with self.subTest(content=content[:80]):
                ran = support.run("convert", self.write(name, content), "b.qar")
                self.assertEqual((ran.code, ran.out, len(ran.err)), (2, "", 1), ran)
                self.assertIn(message, ran.err[0])
                self.assertEqual(self.names(), [name])
            os.remove(name)

    def test_variants_of_other_programs_are_read(self):
        for name, content, fields, note in READ:
            with self.subTest(content=content[:80]):
                (result,) = formats.read(self.write(name, content))
                self.assertEqual({field: getattr(result, field) for field in fields}, fields)
                self.assertIn(note, "; ".join(result.notes))


class TestWrite(support.TestCase):
    def test_every_field_survives_every_format(self):
        for format in WRITABLE:
            with self.subTest(format.name):
                name = "full" + format.suffixes[0]
                formats.write(name, FULL)
                # The widths of .spe are a polynomial of degree 2 in the channel.
                expected = {"shape"} if format.name == "spe" else set()
                self.assertEqual(differing(formats.read(name)[0], FULL), expected)
                self.assertRaises(FileExistsError, formats.write, name, FULL)

    def test_inexact_widths_are_noted(self):
        notes = formats.write("long.spe", FULL._replace(counts=FULL.counts + (1,) * 4000))
        self.assertRegex("; ".join(notes), "widths are written within 0.0")

    def test_unknown_extension_is_refused(self):
        with self.assertRaisesRegex(formats.FormatError, r"a\.xyz.*'\.xyz'; expected \.qar"):
            formats.write("a.xyz", FULL)

    def test_n42_elements_are_in_the_order_of_the_schema(self):
        def tags(element):
            return " ".join(child.tag.replace(space, "") for child in element)

        formats.write("a.n42", FULL)
        root = xml.etree.ElementTree.parse("a.n42").getroot()
        space = "{http://physics.nist.gov/N42/2011/N42}"
        expected = (
            "RadInstrumentDataCreatorName RadInstrumentInformation RadDetectorInformation"
            " EnergyCalibration FWHMCalibration RadMeasurement"
        )
        self.assertEqual(
            (tags(root), set(root.attrib)), (expected, {"n42DocUUID", "n42DocDateTime"})
        )
        *_, spectrum = root[-1]
        ids = {element.get("id") for element in root}
        self.assertLessEqual({v for k, v in spectrum.items() if k.endswith("Reference")}, ids)
        self.assertEqual(tags(spectrum), "Remark Remark Remark LiveTimeDuration ChannelData")
        self.assertEqual(spectrum[-1].text.split(), "0 2 5 7 0 1 2147483647 0 2 1".split())

    def test_interrupted_write_leaves_no_file(self):
        with self.assertRaises(KeyError), atomic_files.new_file("a.csv") as temporary:
            self.write(os.path.basename(temporary), "half")
            raise KeyError
        self.assertEqual(self.names(), [])

    def test_file_created_meanwhile_is_not_replaced(self):
        with self.assertRaises(FileExistsError), atomic_files.new_file("a.csv") as temporary:
            self.write(os.path.basename(temporary), "new")
            self.write("a.csv", "of another program")
        self.assertEqual((self.names(), self.read("a.csv")), (["a.csv"], "of another program"))

    @unittest.skipUnless(support.SPECTRA, "PYORV3_SPECTRA names no folder of spectra")
    def test_real_spectra_survive_every_format(self):
        spectra = glob.glob(os.path.join(support.SPECTRA, "*.[nst][4px][2et]"))
        self.assertEqual(len(spectra), 9)
        for path in sorted(spectra):
            measurement = formats.read(path)[0]
            formats.write("a.qar", measurement, replace=True)
            first = formats.read("a.qar")[0]
            self.assertEqual(differing(first, measurement), set())
            for format in WRITABLE:
                formats.write("b" + format.suffixes[0], first, replace=True)
                (back,) = formats.read("b" + format.suffixes[0])
                self.assertEqual(differing(back, first), set(), (path, format.name))


class TestQarFile(support.TestCase):
    def test_values_that_do_not_fit_are_noted(self):
        late = FULL._replace(title="π" * 80, start=FULL.start.replace(year=2050))
        notes = "; ".join(formats.write("a.qar", late))
        self.assertRegex(notes, "title.*become.*title is cut off at 64.*left out: the start")
        self.assertEqual(formats.read("a.qar")[0].title, "?" * 64)

    def test_invalid_spectrum_is_refused(self):
        cases = (((1,) * 40000, "40,000 channels"), ((2**31,), "2147483648"), ((), "no channels"))
        for counts, message in cases:
            with self.assertRaisesRegex(formats.FormatError, message):
                formats.write("b.qar", FULL._replace(counts=counts))
        self.assertEqual(self.names(), [])

    def test_values_that_other_formats_leave_out_are_noted(self):
        formats.write("a.qar", FULL)
        with qar.open("a.qar", "r+") as source:
            source["QAR_T_ACQSTOP"] = "2010-04-17T17:43:59.329Z"  # start and real time
        self.assertEqual(formats.write("a.csv", formats.read("a.qar")[0]), [])
        with qar.open("a.qar", "r+") as source:
            source["QAR_T_ACQSTOP"] = "2010-04-17T17:44:59.329Z"
            source.update({"QAR_F_AMPGAIN": 2.0, "QAR_D_PEAKENERGY": 5.0})
            source.append({"QAR_D_PEAKENERGY": 6.0})
        notes = "; ".join(formats.write("b.csv", formats.read("a.qar")[0]))
        self.assertRegex(
            notes, "2 records of QAR_CLS_PEAK; left out: QAR_T_ACQSTOP, QAR_F_AMPGAIN$"
        )

    def test_numbers_without_a_value_are_left_out(self):
        formats.write("a.qar", FULL)
        with qar.open("a.qar", "r+") as source:
            source.update({"QAR_D_LIVETIME": math.nan, "QAR_D_ENERGYCAL": [0.0, math.inf]})
        for name in ("a.csv", "a.spe", "a.n42"):
            notes = "; ".join(formats.write(name, formats.read("a.qar")[0]))
            self.assertRegex(notes, "left out: QAR_D_LIVETIME, QAR_D_ENERGYCAL")
            self.assertEqual(formats.read(name)[0].energy, ())

    def test_qar_file_from_standard_input_is_converted(self):
        formats.write("a.qar", FULL)
        for target in ("b.csv", "b.qar"):
            command = f'"{sys.executable}" -m qar convert - {target} < a.qar'
            self.assertEqual(self.run_program("sh", "-c", command), f"{target}\n")
            self.assertEqual(differing(formats.read(target)[0], FULL), set())

    def test_copy_keeps_everything_except_changed_fields(self):
        formats.write("a.qar", FULL)
        with qar.open("a.qar", "r+") as source:
            source.append({"QAR_C_NUCLNAME": "K-40", "QAR_D_LINEENERGY": [1460.8]})
            source["QAR_F_AMPGAIN"] = 2.0
            qar.errors.check(qar.handle.pyORV3.createBlock(source.handle, 0x4005, 9), "creating")
        (original,) = formats.read("a.qar")
        self.assertEqual(self.run_well("convert", "a.qar", "b.qar"), "b.qar\n")
        formats.write("c.qar", original._replace(title="new", counts=(3, 4)))
        with qar.open("a.qar") as source, qar.open("b.qar") as copy, qar.open("c.qar") as changed:
            content = qar.transfer.dump.dump(source)
            self.assertEqual({**qar.transfer.dump.dump(copy), "source": "a.qar"}, content)
            self.assertEqual(copy.record_count(0x4005), 1)
            self.assertEqual((changed["QAR_C_MEASNAME"], changed.spectrum()), ("new", (3, 4)))
            self.assertEqual((changed["QAR_Q_TOTALCOUNT"], changed["QAR_F_AMPGAIN"]), (7, 2.0))
            self.assertEqual(changed.records("QAR_CLS_NUCLIDE"), source.records("QAR_CLS_NUCLIDE"))


class TestFileNames(support.TestCase):
    def test_each_spectrum_has_a_distinct_valid_name(self):
        named = [FULL._replace(name=name) for name in ("a/1", "A_1", "a_1", "../x")]
        names = [name for _, name in formats.file_names(named, "out.qar")]
        self.assertEqual(len({name.lower() for name in names}), 4)
        self.assertFalse(any("/" in name for name in names), names)


class TestCalibrationConversion(unittest.TestCase):
    def test_shift_of_the_origin_is_exact_in_both_directions(self):
        generator = random.Random(7)
        for _ in range(200):
            size = generator.randrange(1, 6)
            stored = tuple(generator.uniform(-1, 1) * 10.0 ** -(3 * k) for k in range(size))
            written = calibration_conversion.decimals_from_zero(stored)
            self.assertEqual(counted_from_one(map(parsing.exact, written)), stored, written)
            decimals = [f"{generator.uniform(0.1, 1):.7g}e-{3 * k}" for k in range(size)]
            shifted = counted_from_one(map(parsing.exact, decimals))
            again = calibration_conversion.decimals_from_zero(shifted)
            self.assertEqual(list(map(float, again)), list(map(float, decimals)))


class TestNuclideCsv(support.TestCase):
    def test_duplicate_column_is_refused(self):
        path = self.write(
            "l.csv", "nuclide, half_life, energy, photons, Energy\nK-40, 1 y, 5, 1, 6\n"
        )
        with self.assertRaisesRegex(formats.FormatError, "column energy twice"):
            formats.nuclide_csv.read(path)
