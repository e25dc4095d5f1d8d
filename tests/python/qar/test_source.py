"""DataSource on the embedded library."""

import array
import datetime
import logging
import math
import os
import pickle

import qar
import support

UTC = datetime.timezone.utc
NOON = datetime.datetime(2026, 3, 2, 12, 0, 0, 250000, UTC)
EAST = datetime.timezone(datetime.timedelta(hours=2))


class TestCase(support.TestCase):
    def setUp(self):
        super().setUp()
        self.path = self.folder / "sample.qar"
        self.source = qar.open(self.path, "x")
        self.addCleanup(lambda: self.source.close())

    def reopened(self, mode="r"):
        self.source.close()
        self.source = qar.open(self.path, mode)
        return self.source


class TestValues(TestCase):
    ACCEPTED = [  # parameter, value and, if it differs, the value that is read back
        ("QAR_B_PILEUPREJ", True),
        ("QAR_B_PILEUPREJ", 0, False),
        ("QAR_S_ADCBITS", 65535),
        ("QAR_L_LOWERDISC", -(2**31)),
        ("QAR_Q_TOTALCOUNT", 2**63 - 1),
        ("QAR_F_AMPGAIN", 0.5),
        ("QAR_D_LIVETIME", 3600, 3600.0),
        ("QAR_C_OPERATOR", "J. Müller €" + "x" * 21),
        ("qar_c_comment", ""),
        (0x2000001C, "by its code"),
        ("QAR_T_ACQSTART", NOON, "2026-03-02T12:00:00.250Z"),
        ("QAR_T_ACQSTART", NOON.astimezone(EAST), "2026-03-02T12:00:00.250Z"),
        ("QAR_T_ACQSTOP", "2026-03-02T14:00:00+02:00", "2026-03-02T12:00:00.000Z"),
        ("QAR_T_ACQSTOP", "2026-03-02T23:59:59.999999Z", "2026-03-02T23:59:59.999Z"),
        ("QAR_T_ACQSTOP", "2038-01-19T03:14:07.999Z"),
    ]
    REFUSED = [
        ("QAR_B_PILEUPREJ", 2), ("QAR_B_PILEUPREJ", "1"), ("QAR_S_ADCBITS", -1),
        ("QAR_S_ADCBITS", 65536), ("QAR_L_CHANNELS", 2**31), ("QAR_L_CHANNELS", 1.5),
        ("QAR_L_CHANNELS", "4096"), ("QAR_Q_TOTALCOUNT", 2**63), ("QAR_F_AMPGAIN", 1e39),
        ("QAR_D_LIVETIME", "3600"), ("QAR_D_LIVETIME", None), ("QAR_C_OPERATOR", 5),
        ("QAR_C_OPERATOR", "x" * 33), ("QAR_C_OPERATOR", "a\0b"), ("QAR_C_OPERATOR", "日"),
        ("QAR_T_ACQSTART", "yesterday"), ("QAR_T_ACQSTART", 5), ("QAR_T_ACQSTART", "1969-01-01T00:00Z"),
        ("QAR_T_ACQSTART", NOON.replace(tzinfo=None)), ("QAR_T_ACQSTART", NOON.replace(year=2040)),
    ]  # fmt: skip

    def test_valid_value_is_read_back(self):
        for key, written, *read in self.ACCEPTED:
            with self.subTest(key=key, value=written):
                self.source[key] = written
                self.assertEqual(self.source[key], read[0] if read else written)
                self.assertIs(type(self.source[key]), type(read[0] if read else written))

    def test_every_millisecond_is_read_back_and_rewriting_keeps_it(self):
        for millisecond in range(0, 1000, 7):
            text = f"2026-03-02T08:15:0{millisecond % 10}.{millisecond:03}Z"
            for date in (text, qar.datetime_of(text), text[:-1] + "9Z"):
                self.source["QAR_T_ACQSTART"] = date
                self.assertEqual(self.source["QAR_T_ACQSTART"], text)

    def test_record_or_entry_beyond_16_bits_is_refused(self):
        self.source.append({"QAR_C_NUCLNAME": "K-40", "QAR_D_LINEENERGY": [1460.8]})
        nuclides, energy, beyond = "QAR_CLS_NUCLIDE", "QAR_D_LINEENERGY", 65537
        for call in (
            lambda: self.source.delete(nuclides, beyond),
            lambda: self.source.delete(nuclides, 1, beyond),
            lambda: self.source.insert(nuclides, beyond),
            lambda: self.source.entry_count(nuclides, beyond),
            lambda: self.source.get(energy, beyond),
            lambda: self.source.get(energy, 1, -65535),
            lambda: self.source.update({energy: [1.0]}, beyond),
            lambda: self.source.copy_record_to(self.source, nuclides, beyond, 1),
            lambda: self.source.find_nuclide("K-40", after=65536),
        ):
            with self.assertRaisesRegex(qar.BadArgumentError, "number -?65.*up to 65535"):
                call()
        self.assertEqual(self.source.column(energy), [1460.8])

    def test_value_that_would_change_is_refused_before_the_call(self):
        for key, value in self.REFUSED:
            with self.subTest(key=key, value=value):
                with self.assertRaises(qar.BadArgumentError) as caught:
                    self.source[key] = value
                self.assertIn(repr(value), str(caught.exception))
                self.assertNotIn(key, self.source)

    def test_records_and_entries_are_stored_found_and_deleted(self):
        nuclides = [("Co-60", [1173.228, 1332.492]), ("Cs-137", [661.657])]
        for name, energies in nuclides:
            self.source.append({"QAR_C_NUCLNAME": name, "QAR_D_LINEENERGY": energies})
        source = self.reopened("r+")
        rows = source.records("QAR_CLS_NUCLIDE")
        self.assertEqual([tuple(row.values()) for row in rows], nuclides)
        self.assertEqual(source["QAR_D_LINEENERGY", 1, 2], 1332.492)
        self.assertEqual(source.find_nuclide("cs"), 2)
        self.assertEqual(source.find_nuclide("C", qar.NameSearch.BEGINNING, after=1), 2)
        self.assertEqual(source.find_nuclide_at(1332, 2), 1)
        source.set_column("QAR_D_LINEENERGY", (1.5,), 1)
        self.assertEqual(source.column("QAR_D_LINEENERGY"), [1.5, 0.0])
        source.insert("QAR_C_NUCLNAME", 1)
        source.delete("QAR_CLS_NUCLIDE", 2)
        self.assertIsNone(source.get("QAR_C_NUCLNAME", 1))
        self.assertEqual(source["QAR_C_NUCLNAME", 2], "Cs-137")
        source.clear("QAR_C_NUCLNAME")
        self.assertEqual(source.record_count(qar.constants.QAR_CLS_NUCLIDE), 0)

    def test_parameters_have_values_and_descriptions(self):
        self.source.update({"QAR_D_ENERGYCAL": (0.1, 0.5), "QAR_F_CALTEMPER": 20.5})
        values = {p.name: (p.unit, value) for p, value in self.source.parameters(0x2002)}
        self.assertEqual(values["QAR_D_ENERGYCAL"], ("", [0.1, 0.5]))
        self.assertEqual(values["QAR_F_CALTEMPER"], ("°C", 20.5))
        known = [p.code for p in qar.constants.KNOWN_PARAMETERS]
        classes = sorted({code >> 16 for code in known})
        listed = [p.code for c in classes for p in qar.dictionary.parameters_of(c)]
        self.assertEqual(listed, known)

    def test_source_and_record_are_copied_to_another_source(self):
        self.source["QAR_C_OPERATOR"] = "first"
        self.source.append({"QAR_C_NUCLNAME": "K-40"})
        with qar.open("copy.qar", "x") as copy:
            self.source.copy_to(copy)
            self.source.copy_record_to(copy, "QAR_CLS_NUCLIDE", 1, 2)
            names = [row["QAR_C_NUCLNAME"] for row in copy.records("QAR_CLS_NUCLIDE")]
            self.assertEqual((copy["QAR_C_OPERATOR"], names), ("first", ["K-40", "K-40"]))


class TestSpectrum(TestCase):
    ACCEPTED = [
        [1], (0, -5, 2**31 - 1, -(2**31)), range(32768), [1.0, 2, True], array.array("H", [7, 8]),
        dict.fromkeys((5, 6)).keys(),
    ]  # fmt: skip
    REFUSED = [
        [], [0] * 32769, [1, 2**31], [-(2**31) - 1], [1, 2.5], [math.nan], [1, "2"], "12", b"12",
        {1: 2}, 5, [None], [[1], [2]],
    ]  # fmt: skip

    def test_sequence_of_integers_is_read_back(self):
        for channels in self.ACCEPTED:
            self.source.set_spectrum(channels)
            self.assertEqual(self.reopened("r+").spectrum(), tuple(channels))

    def test_invalid_spectrum_is_refused_and_the_old_one_stays(self):
        self.source.set_spectrum([5, 6])
        for channels in self.REFUSED:
            with self.subTest(channels=str(channels)[:20]):
                with self.assertRaises(qar.BadArgumentError):
                    self.source.set_spectrum(channels)
                self.assertEqual(self.source.spectrum(), (5, 6))

    def test_numpy_arrays_are_read_and_written(self):
        try:
            import numpy
        except ImportError:
            with self.assertRaisesRegex(ImportError, "numpy is not installed; install it with: "):
                self.source.spectrum_array()
            self.skipTest("numpy is not installed")
        for kind in ("int8", "uint32", "int64", "float64", "bool"):
            self.source.set_spectrum(numpy.array([0, 1, 1], dtype=kind))
            self.assertEqual(self.source.spectrum_array().tolist(), [0, 1, 1])
        self.source["QAR_S_ADCBITS"] = numpy.int16(12)
        self.source["QAR_B_PILEUPREJ"] = numpy.bool_(True)
        self.source["QAR_F_AMPGAIN"] = numpy.float32(0.1)
        self.source.append({"QAR_D_PEAKENERGY": 661.7})
        try:
            table = self.source.table("QAR_CLS_PEAK")
            self.assertEqual(table["QAR_D_PEAKENERGY"][1], 661.7)
        except ImportError as error:
            self.assertIn("pandas is not installed", str(error))
        for bad in (numpy.zeros((2, 2)), numpy.array([1, 2**40]), numpy.array(["a"])):
            with self.assertRaises(qar.BadArgumentError):
                self.source.set_spectrum(bad)


class TestFailures(TestCase):
    def test_failure_raises_its_family_with_attempt_and_argument(self):
        self.write("text.qar", "not a data source")
        self.source.set_spectrum(range(4096))
        self.reopened()
        content = self.path.read_bytes()
        self.write("damaged.qar", content[:4096] + b"\xff" * (len(content) - 4096))
        cases = [
            (qar.NotFoundError, "no.qar", lambda: qar.open("no.qar")),
            (qar.ExistsError, "sample.qar", lambda: qar.open(self.path, "x")),
            (qar.BadArgumentError, "text.qar", lambda: qar.open("text.qar")),
            (qar.BadArgumentError, "'w'", lambda: qar.open(self.path, "w")),
            (qar.DamagedError, "damaged.qar", lambda: qar.open("damaged.qar")),
            (qar.NotFoundError, "QAR_D_NONE", lambda: self.source["QAR_D_NONE"]),
            (qar.NotFoundError, "PATH.*not in the dictionary", lambda: self.source["PATH"]),
            (qar.NotFoundError, "QAR_C_OPERATOR", lambda: self.source["QAR_C_OPERATOR"]),
            (qar.NotFoundError, "record 3", lambda: self.source["QAR_C_NUCLNAME", 3]),
            (qar.NotFoundError, "Fe-59", lambda: self.source.find_nuclide("Fe-59")),
            (qar.ReadOnlyError, "QAR_C_OPERATOR", lambda: self.source.update({"QAR_C_OPERATOR": ""})),
            (qar.EngineError, "no_engine", lambda: self.source.analyse(engine="no_engine")),
            (qar.EngineError, "calibration", lambda: self.source.analyse()),
            (qar.BadArgumentError, "sample.qar", lambda: self.source.calibrate({661.7: 100})),
            (qar.BadArgumentError, "closed", lambda: [self.source.close() for _ in "12"] + [self.source.state]),
        ]  # fmt: skip
        for family, text, call in cases:
            with self.subTest(text):
                with self.assertRaisesRegex(family, text) as caught:
                    call()
                error = caught.exception
                self.assertEqual(type(error), qar.errors.FAMILIES[error.family])
                self.assertIn(error.text, str(error))
                self.assertEqual(str(pickle.loads(pickle.dumps(error))), str(error))
                self.assertEqual(qar.status.describe(error.status).family, error.family)

    def test_second_writing_process_is_refused(self):
        script = "import qar, sys\ntry: qar.open(sys.argv[1], 'r+')\nexcept qar.InUseError: print('in use')"
        self.source.flush()
        self.assertEqual(self.python("-c", script, self.path), "in use\n")


class TestDataSource(TestCase):
    def test_exception_in_the_block_closes_and_saves(self):
        with self.assertRaises(ZeroDivisionError):
            with self.reopened("r+") as source:
                source["QAR_C_OPERATOR"] = "kept"
                1 / 0
        self.assertTrue(source.closed)
        self.assertEqual(self.reopened()["QAR_C_OPERATOR"], "kept")
        self.assertEqual(self.source.state, qar.SourceState.OPEN | qar.SourceState.READ_ONLY)

    def test_notebook_and_console_show_the_content_without_control_characters(self):
        self.source.update({"QAR_C_MEASNAME": "<b> & \x1bco", "QAR_D_LIVETIME": 12.5})
        self.assertIn("no spectrum", repr(self.source))
        self.source.set_spectrum(range(300))
        html = self.source._repr_html_()
        self.assertIn("&lt;b&gt; &amp; ?co", html)
        self.assertIn("<td>12.5</td><td>s</td>", html)
        self.assertTrue("<img " in html or "<polyline" in html)
        self.assertIn("300 channels", repr(self.source))
        self.assertIn("read only", repr(self.reopened()))
        self.source.close()
        self.assertIn("closed", repr(self.source) and self.source._repr_html_())

    def test_file_whose_name_is_not_utf_8_is_opened_and_saved(self):
        self.source["QAR_C_OPERATOR"] = "J. Miller"
        self.source.close()
        for name in (b"\xe9.qar", b"\xe9/\xe9.qar", b"\xe9/sample.qar"):
            with self.subTest(name):
                os.makedirs(os.path.dirname(name) or b".", exist_ok=True)
                os.rename(os.fsencode(str(self.path)), name)
                self.path = os.fsdecode(name)
                with qar.open(self.path, "r+") as source:
                    source["QAR_C_DETECTOR"] = str(name)
                with qar.open(self.path) as source:
                    self.assertEqual(source["QAR_C_DETECTOR"], str(name))
            self.path = self.folder / self.path
        with qar.open(os.fsdecode(b"\xe9/new.qar"), "x") as source:
            source.flush()
        with self.assertRaisesRegex(qar.BadArgumentError, "not UTF-8"):
            qar.open(os.fsdecode(b"new\xe9.qar"), "x")

    def test_calls_are_logged(self):
        with self.assertLogs("qar", logging.DEBUG) as logs:
            self.reopened().close()
            with self.assertRaises(qar.NotFoundError):
                qar.open("none.qar")
        text = "\n".join(logs.output)
        for entry in ("INFO:qar:opened", "INFO:qar:closed", "DEBUG:qar:opening"):
            self.assertIn(entry, text)
