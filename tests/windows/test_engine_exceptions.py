"""What an engine throws, caught by the module on the compiler's shared runtime."""

import unittest

import double
import pyORV3

BITS = 0xECE99D7D  # as a number of the module's own family it passes the mapping unchanged


class EngineExceptions(double.TestCase):
    # What the throwing engine does for its first value, its second value, the status.
    THROWN = [
        ("unsigned long", 0, BITS, double.BAD_ARGUMENTS),
        ("int", 1, BITS, double.BAD_ARGUMENTS),
        ("short", 2, -5, double.signed(0xE0400199)),
        ("std::bad_alloc", 3, 0, double.OUT_OF_MEMORY),
        ("std::runtime_error", 4, 0, double.STANDARD_EXCEPTION),
        ("long", 5, BITS, double.UNKNOWN_EXCEPTION),
        ("a class of the engine", 6, 0, double.UNKNOWN_EXCEPTION),
        ("nothing", 7, 0x00610005, double.signed(0xE0610005)),
    ]

    def test_end_as_statuses_each_time(self):
        for _ in range(3):
            for thrown, kind, value, status in self.THROWN:
                with self.case(thrown):
                    result = pyORV3.executeNativeEngine(
                        "throwing_engine", "fail", kind, double.signed(value)
                    )
                    self.assertEqual(result, status)
                    self.assertFalse(double.is_mapped("throwing_engine"))


if __name__ == "__main__":
    unittest.main()
