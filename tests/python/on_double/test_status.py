"""The mapping of library codes and exceptions to the status that a script gets."""

import double
import orv_double
import pyORV3
from double import signed


class TestStatusMapping(double.TestCase):
    TABLE = {
        0x00000000: 0x00000000, 0xECE99D7D: 0xECE99D7D, 0xE0610007: 0xE0610007,
        0x01610005: 0xE0400199, 0x00270010: 0xEBE80010, 0x12270000: 0xEBE80000,
        0x00008000: 0xEBE88000, 0x00009FFF: 0xEBE89FFF, 0x00007FFF: 0xE0007FFF,
        0x0000A000: 0xE000A000, 0x00418000: 0xEBE88000, 0x00400000: 0xE0400199,
        0xFFFFFFFF: 0xE0400199, 0x00300022: 0xE0300022, 0x18000001: 0xF8000001, 126: 0xE000007E,
        0xFCE91234: 0xFCE91234, 0x00610000: 0x00610000, 0x00000061: 0xE0000061,
    }  # fmt: skip

    def test_library_code_is_mapped_to_its_status(self):
        for code, mapped in self.TABLE.items():
            with self.case(hex(code)):
                double.answer("SOrvFlush", code)
                self.assertEqual(pyORV3.flush(5), signed(mapped))


class TestThrownValues(double.TestCase):
    TABLE = [
        ("unsigned long", 0x00000010, signed(0xE0000010)), ("int", 0x00270010, signed(0xEBE80010)),
        ("int", signed(0xECE99D32), signed(0xECE99D32)), ("short", -5, signed(0xE0400199)),
        ("short", 7, signed(0xE0000007)), ("long", 7, double.UNKNOWN_EXCEPTION),
        ("unsigned int", 7, double.UNKNOWN_EXCEPTION), ("bad_alloc", 0, double.OUT_OF_MEMORY),
        ("runtime_error", 0, double.STANDARD_EXCEPTION), ("text", 0, double.UNKNOWN_EXCEPTION),
        ("struct", 0, double.UNKNOWN_EXCEPTION),
    ]  # fmt: skip
    # Function that throws, call of the method, value next to the status.
    SITES = [
        ("SOrvFindRecord", lambda: pyORV3.findNuclideByEnergy(5, 1.0, 2.0, 0), 0),
        ("SOrvFindRecord", lambda: pyORV3.findNuclideByName(5, "Co-60", 0), 0),
        ("pqar_util_getpinfo", lambda: pyORV3.getParameter(5, 0x00070008, 1, 1), 0),
        ("SOrvGetParam", lambda: pyORV3.getParameter(5, 0x00070008, 1, 1), 0),
        ("SOrvPutParam", lambda: pyORV3.setParameter(5, 0x00070008, 1, 1, 1), None),
        ("SOrvGetSpectrum", lambda: pyORV3.getSpectrum(5, 0, 0), (0,)),
        ("SOrvPutSpectrum", lambda: pyORV3.setSpectrum(5, (1,), 0, 0), None),
        ("run", lambda: pyORV3.executeNativeEngine("double_engine", "run", 1, 2), None),
        ("SOrvFirstInput", lambda: pyORV3.enumerateDefinitions(), ""),
        ("pqar_util_getpinfo", lambda: pyORV3.getParameterMetaData(5, 0x00070008, ""), 0),
        ("pqar_util_pname2code", lambda: pyORV3.getParameterMetaData(5, 0, "LONG"), 0),
        ("OrvClassCopy", lambda: pyORV3.copyAnalysisSequenceTo(5, 6), None),
    ]

    def test_thrown_value_becomes_a_status(self):
        for kind, thrown, status in self.TABLE:
            for function, call, value in self.SITES:
                with self.case(kind, thrown, function):
                    double.answer(function, thrown, throw=kind)
                    self.assertEqual(call(), status if value is None else (status, value))
                    self.assertFalse(orv_double.is_mapped("pqar"))
                    self.assertFalse(orv_double.is_mapped("double_engine"))
