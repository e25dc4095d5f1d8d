"""What no test that uses the double would notice: a script that is not followed."""

import double
import pyORV3
from double import FOR_EVER
from orv_double import unused_answers


class Script(double.TestCase):
    def test_is_followed_in_order_then_for_ever(self):
        double.answer("SOrvFlush", 0x8009, times=FOR_EVER)
        double.answer("SOrvFlush", 0x8001, times=2)
        double.answer("SOrvFlush", 0x8005, when={"context": 42})
        double.answer("SOrvFlush", 0x8008, times=FOR_EVER)
        self.assertEqual(unused_answers(), ["SOrvFlush"])
        numbers = [pyORV3.flush(handle) & 0xF for handle in (1, 42, 42, 1, 42)]
        self.assertEqual(numbers, [1, 1, 5, 8, 8])
