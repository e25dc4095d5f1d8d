"""The calls of the data-access library as a script makes them that goes through ctypes."""

import _ctypes
import ctypes
from ctypes import byref, c_char_p, c_float, c_int32, c_uint16, c_uint32, c_void_p

TEXT_SIZE = 65  # the longest value of the text parameter and its NUL

FUNCTIONS = {
    "SOrvGetParam": (c_int32, c_uint32, c_uint16, c_uint16, c_void_p, c_uint32),
    "SOrvPutParam": (c_int32, c_uint32, c_int32, c_int32, c_void_p, c_uint32),
    "SOrvGetSpectrum": (c_int32, c_uint16, c_uint16, c_uint32, c_void_p),
    "SOrvPutSpectrum": (c_int32, c_uint16, c_uint16, c_void_p),
    "SOrvClassCount": (c_int32, c_uint16, c_void_p),
    "SOrvFindRecord": (c_int32, c_int32, c_void_p, c_int32, c_void_p, c_void_p),
    "SOrvSaveAs": (c_int32, c_int32),
}


class Library:
    def __init__(self, path):
        library = ctypes.CDLL(path)
        for name, arguments in FUNCTIONS.items():
            function = getattr(library, name)
            function.argtypes, function.restype = arguments, c_uint32
            setattr(self, name, function)
        system = ctypes.CDLL(None)
        self.abs, self.getpagesize = system.abs, system.getpagesize
        self.abs.argtypes, self.getpagesize.argtypes = (c_int32,), ()

    def get_long(self, handle, code):
        value = c_int32()
        status = self.SOrvGetParam(handle, code, 1, 1, byref(value), 4)
        return status, value.value

    def set_long(self, handle, code, number):
        return self.SOrvPutParam(handle, code, 1, 1, byref(c_int32(number)), 4)

    def get_text(self, handle, code):
        value = ctypes.create_string_buffer(TEXT_SIZE)
        status = self.SOrvGetParam(handle, code, 1, 1, value, TEXT_SIZE)
        return status, value.value.decode("cp1252")

    def set_text(self, handle, code, text):
        value = text.encode("cp1252")
        return self.SOrvPutParam(handle, code, 1, 1, c_char_p(value), len(value) + 1)

    def get_spectrum(self, handle, channels_code):
        status, count = self.get_long(handle, channels_code)
        channels = (c_int32 * count)()
        for first in range(0, count, 2048):
            chunk, place = min(2048, count - first), byref(channels, 4 * first)
            status |= self.SOrvGetSpectrum(handle, first + 1, chunk, 0, place)
        return status, tuple(channels)

    def set_spectrum(self, handle, contents):
        channels, status = (c_int32 * len(contents))(*contents), 0
        for first in range(0, len(contents), 256):
            chunk, place = min(256, len(contents) - first), byref(channels, 4 * first)
            status |= self.SOrvPutSpectrum(handle, first + 1, chunk, place)
        return status

    def count(self, handle, class_code):
        value = c_uint16()
        status = self.SOrvClassCount(handle, class_code, byref(value))
        return status, value.value

    def find_energy(self, handle, energy, tolerance):
        record, word = c_uint16(), c_uint32()
        key = (c_float * 2)(energy, tolerance)
        status = self.SOrvFindRecord(handle, 4, key, 0, byref(record), byref(word))
        return status, record.value

    def copy(self, source, destination):
        return self.SOrvSaveAs(source, destination)


def run_engine(path, entry_point, first, second):
    """Loads, runs and unloads an engine."""
    engine = ctypes.CDLL(path)
    status = getattr(engine, entry_point)(first, second, 0, 0)
    _ctypes.dlclose(engine._handle)
    return status
