"""Spectra in and out of the formats of the field: exact where they can be, told where not."""

import glob
import os
import random
import unittest
import xml.etree.ElementTree
from datetime import datetime, timezone

import qar
import support
from qar import atomic_files, formats
from qar.formats import calibration_conversion, parsing
from qar.transfer import conversion
from support import FULL

N42 = '<RadInstrumentData><RadMeasurement><Spectrum id="s">%s</Spectrum></RadMeasurement></RadInstrumentData>'
COUNTED = '<ChannelData compressionCode="CountedZeroes">%s</ChannelData>'
DATA = "$DATA:\n0 2\n1\n2\n3\n"
MANY = "<Spectrum>" + COUNTED % "0 65000" + "</Spectrum>"
DOCTYPE = '<!DOCTYPE r [<!ENTITY x "%s">]><RadInstrumentData>&x;</RadInstrumentData>'

REFUSED = (  # file, content, what is said
    ("a.n42", DOCTYPE % "xxx", "document type"),
    ("a.n42", '<!DOCTYPE r SYSTEM "http://a"><RadInstrumentData/>', "document type"),
    ("a.n42", "<RadInstrumentData><a>", "not well-formed"),
    ("a.n42", "<RadInstrumentData>" + "<a>" * 70, "more elements"),
    ("a.n42", "<html/>", "no file of spectra"),
    ("a.n42", N42 % (COUNTED % "0 70000"), "more than 65,535"),
    ("a.n42", N42 % (COUNTED % "5 0"), "number of zeroes"),
    ("a.n42", N42 % (COUNTED % "1 -3"), '"-3"'),
    ("a.n42", N42 % (COUNTED % "1 3.5"), '"3.5"'),
    ("a.n42", N42 % (COUNTED % ("9" * 100000)), "no number"),
    ("a.n42", N42 % ("<LiveTimeDuration>-PT1S</LiveTimeDuration>" + COUNTED % "1"), "no duration"),
    ("a.n42", "<RadInstrumentData>" + 300 * MANY + "</RadInstrumentData>", "more spectra"),
    ("a.spe", "$DATA:\n0 3\n1\n2\n", "2 of 4 channels"),
    ("a.spe", "$DATA:\n0 69999\n" + "1\n" * 70000, "no spectrum"),
    ("a.spe", "$DATA:\n0 1\n1\n2\n3\n", "more than the 2"),
    ("a.spe", "$DATA:\n0 1\n1\n2.5\n", '"2.5"'),
    ("a.spe", "$SPEC_ID:\nx\n", "no $DATA"),
    ("a.spe", DATA + "$MCA_CAL:\n2\n1e308 1e308\n$SHAPE_CAL:\n2\n1e308 1e308\n", "out of range"),
    ("a.csv", "1,2,3\n", "3 columns"),
    ("a.csv", "5\n1,6\n", "number of columns changes"),
    ("a.csv", "0,1\n2,1\n1,1\n", "does not rise"),
    ("a.csv", "0,1\n1,1e400\n", "line 2"),
    ("a.csv", "0,2147483648\n", "more than a channel"),
    ("a.csv", "1\n" * 70000, "more than 65,535"),
    ("a.csv", "9" * 5000, "too long lines"),
    ("a.csv", "words\n", "no line has counts"),
    ("a.csv", b"1\x002", "no spectrum in a known format"),
    ("a.csv", "", "empty"),
)

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

READ = (  # file, content, the fields that are not empty, what is told
    ("a.csv", "1,5\n2,6\n", {"counts": (5, 6)}, "count from 1"),
    ("a.txt", "2 5\r\n3 6\r\n", {"counts": (0, 0, 5, 6)}, "channels 0 to 1"),
    ("a.csv", "energy;counts\n-5e-20;1,0\n0,2201;2\n0,4402;3\n",
        {"counts": (1, 2, 3), "energy": (-0.2201, 0.2201)}, ""),
    ("a.csv", "5\n6\n", {"counts": (5, 6)}, "no energy"),
    ("a.csv", "0.5,5\n", {"counts": (5,)}, "follow no polynomial"),
    ("a.spe", DATA + "$MCA_CAL:\n2\n0.5 0.25 MeV\n", {"energy": (250.0, 250.0)}, ""),
    ("a.spe", DATA + "$ENER_FIT:\n0 0.5\n$MCA_CAL:\n3\n1 0.5 0 keV\n",
        {"energy": (0.5, 0.5, 0.0)}, "differs from $MCA_CAL by 1 keV"),
    ("a.spe", DATA + DATED + "$ROI:\n1\n3 4\n", {"start": NOON}, "left out: $ROI"),
    ("a.spe", "$DATA:\n2 3\n5\n6\n", {"counts": (0, 0, 5, 6)}, "channels 0 to 1"),
    # The date was changed by a program that does not know the remark.
    ("a.spe", "$SPEC_REM:\nSTART# 2020-01-01T00:00:00.5Z\n" + DATED + DATA, {"start": NOON}, "no time zone"),
    ("a.n42", (N42 % (COUNTED % "0 2 7.0")).encode("utf-16"), {"counts": (0, 0, 7), "name": "s"}, "no start"),
    ("a.n42", N42 % ("<LiveTimeDuration>P1DT2H3M4.5S</LiveTimeDuration><X:y>5</X:y>" + COUNTED % "1"),
        {"live_time": 93784.5}, "left out: y"),
    ("a.n42", N42 % ("<StartDateTime>2017-04-26T13:35:11+02:30</StartDateTime>" + COUNTED % "1"),
        {"start": NOON}, ""),
    ("a.n42", BOUNDARIES, {"energy": (-0.25, 0.5)}, ""),
    ("a.n42", OLD_N42, {"energy": (500.0, 500.0), "remarks": "outer\ninner"}, ""),
)  # fmt: skip


class Formats(support.TestCase):
    def test_refuse_in_one_line_what_is_no_spectrum(self):
        for name, content, said in REFUSED:
            with self.subTest(content=content[:80]):
                ran = support.run("convert", self.write(name, content), "b.qar")
                self.assertEqual((ran.code, ran.out, len(ran.err)), (2, "", 1), ran)
                self.assertIn(said, ran.err[0])
                self.assertEqual(self.names(), [name])
            os.remove(name)

    def test_read_what_other_programs_write(self):
        for name, content, fields, said in READ:
            with self.subTest(content=content[:80]):
                (found,) = formats.read(self.write(name, content))
                self.assertEqual({field: getattr(found, field) for field in fields}, fields)
                self.assertIn(said, "; ".join(found.notes))

    def test_give_back_every_field(self):
        for format in formats.FORMATS.values():
            name = "full" + format.suffix
            formats.write(name, FULL)
            (found,) = formats.read(name)
            differing = {f for f in FULL._fields if getattr(found, f) != getattr(FULL, f)}
            differing -= {"name", "notes"}
            # The widths of .spe are a polynomial of degree 2 in the channel.
            self.assertEqual(differing, {"shape"} if format.name == "spe" else set(), format.name)
            self.assertRaises(FileExistsError, formats.write, name, FULL)
        notes = formats.write("long.spe", FULL._replace(counts=FULL.counts + (1,) * 4000))
        self.assertRegex("; ".join(notes), "widths are written within 0.0")

    def test_shift_the_origin_without_a_rounding_error(self):
        generator = random.Random(7)
        for _ in range(200):
            size = generator.randrange(1, 6)
            stored = tuple(generator.uniform(-1, 1) * 10.0 ** -(3 * k) for k in range(size))
            written = calibration_conversion.counted_from_zero(stored)
            read = calibration_conversion.counted_from_one(
                [parsing.exact(text) for text in written]
            )
            self.assertEqual(read, stored, written)
            decimals = [f"{generator.uniform(0.1, 1):.7g}e-{3 * k}" for k in range(size)]
            shifted = calibration_conversion.counted_from_one(
                [parsing.exact(text) for text in decimals]
            )
            again = calibration_conversion.counted_from_zero(shifted)
            self.assertEqual(list(map(float, again)), list(map(float, decimals)))

    def test_write_n42_in_the_order_of_the_schema(self):
        def tags(element):
            return " ".join(child.tag.replace(space, "") for child in element)

        formats.write("a.n42", FULL)
        root = xml.etree.ElementTree.parse("a.n42").getroot()
        space = "{http://physics.nist.gov/N42/2011/N42}"
        wanted = (
            "RadInstrumentDataCreatorName RadInstrumentInformation RadDetectorInformation"
            " EnergyCalibration FWHMCalibration RadMeasurement"
        )
        self.assertEqual((tags(root), set(root.attrib)), (wanted, {"n42DocUUID", "n42DocDateTime"}))
        *_, spectrum = root[-1]
        ids = {element.get("id") for element in root}
        self.assertLessEqual({v for k, v in spectrum.items() if k.endswith("Reference")}, ids)
        self.assertEqual(tags(spectrum), "Remark Remark Remark LiveTimeDuration ChannelData")
        self.assertEqual(spectrum[-1].text.split(), "0 2 5 7 0 1 2147483647 0 2 1".split())

    def test_tell_what_a_qar_file_cannot_take(self):
        late = FULL._replace(title="π" * 80, start=FULL.start.replace(year=2050))
        notes = "; ".join(conversion.store(late, "a.qar"))
        self.assertRegex(notes, "title.*become.*title is cut off at 64.*left out: the start")
        self.assertEqual(conversion.load("a.qar").title, "?" * 64)
        cases = (
            ((1,) * 40000, "40,000 channels"),
            ((2**31,), "has 2147483648"),
            ((), "no channels"),
        )
        for counts, said in cases:
            with self.assertRaisesRegex(formats.FormatError, said):
                conversion.store(FULL._replace(counts=counts), "b.qar")
        self.assertEqual(self.names(), ["a.qar"])

    def test_tell_what_of_a_qar_file_they_leave_out(self):
        conversion.store(FULL, "a.qar")
        with qar.open("a.qar", "r+") as source:
            source["QAR_T_ACQSTOP"] = "2010-04-17T17:43:59.329Z"  # start and real time
            self.assertEqual(conversion.measurement_of(source).notes, ())
            source["QAR_T_ACQSTOP"] = "2010-04-17T17:44:59.329Z"
            source.update({"QAR_F_AMPGAIN": 2.0, "QAR_D_PEAKENERGY": 5.0})
            source.append({"QAR_D_PEAKENERGY": 6.0})
            notes = "; ".join(conversion.measurement_of(source).notes)
        self.assertRegex(
            notes, "2 records of QAR_CLS_PEAK; left out: QAR_T_ACQSTOP, QAR_F_AMPGAIN$"
        )

    def test_give_each_spectrum_a_name_of_its_own(self):
        named = [FULL._replace(name=name) for name in ("a/1", "A_1", "a_1", "../x")]
        names = [name for _, name in conversion.output_names(named, "out.qar")]
        self.assertEqual(len({name.lower() for name in names}), 4)
        self.assertFalse(any("/" in name for name in names), names)

    def test_a_failure_in_the_middle_leaves_no_file_and_what_came_meanwhile(self):
        for failure, meanwhile in ((KeyError, []), (FileExistsError, ["a.csv"])):
            with self.assertRaises(failure), atomic_files.new_file("a.csv") as temporary:
                self.write(os.path.basename(temporary), "half")
                for name in meanwhile:
                    self.write(name, "of another")
                if not meanwhile:
                    raise failure
            self.assertEqual(self.names(), meanwhile)
        self.assertEqual(self.read("a.csv"), "of another")

    @unittest.skipUnless(support.SPECTRA, "PYORV3_SPECTRA names no folder of spectra")
    def test_carry_real_spectra_through_every_format_and_back(self):
        spectra = glob.glob(os.path.join(support.SPECTRA, "*.[nst][4px][2et]"))
        self.assertEqual(len(spectra), 9)
        for path in sorted(spectra):
            measurement = formats.read(path)[0]
            conversion.store(measurement, "a.qar", replace=True)
            first = conversion.load("a.qar")
            self.assertEqual(first[:-2], measurement[:-2])
            for format in formats.FORMATS.values():
                formats.write("b" + format.suffix, first, replace=True)
                (back,) = formats.read("b" + format.suffix)
                self.assertEqual(back[:-2], first[:-2], (path, format.name))
