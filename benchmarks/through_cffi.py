"""The calls of the data-access library as a script makes them that goes through cffi."""

import cffi

TEXT_SIZE = 65  # the longest value of the text parameter and its NUL

ffi = cffi.FFI()
ffi.cdef(
    """
    uint32_t SOrvGetParam(int32_t, uint32_t, uint16_t, uint16_t, void*, uint32_t);
    uint32_t SOrvPutParam(int32_t, uint32_t, int32_t, int32_t, const void*, uint32_t);
"""
)


class Library:
    def __init__(self, path):
        self.orv = ffi.dlopen(path)

    def get_long(self, handle, code):
        value = ffi.new("int32_t*")
        status = self.orv.SOrvGetParam(handle, code, 1, 1, value, 4)
        return status, value[0]

    def set_long(self, handle, code, number):
        return self.orv.SOrvPutParam(handle, code, 1, 1, ffi.new("int32_t*", number), 4)

    def get_text(self, handle, code):
        value = ffi.new("char[]", TEXT_SIZE)
        status = self.orv.SOrvGetParam(handle, code, 1, 1, value, TEXT_SIZE)
        return status, ffi.string(value).decode("cp1252")

    def set_text(self, handle, code, text):
        value = text.encode("cp1252")
        return self.orv.SOrvPutParam(handle, code, 1, 1, value, len(value) + 1)
