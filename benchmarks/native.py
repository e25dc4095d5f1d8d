"""Call the functions of the library in optimised scripts with ctypes and with cffi.

A binding contains the functions and the differences between ctypes and cffi; `Calls` works on any
binding. It takes the arguments of the methods of pyORV3 and returns the same results, but has the
types and sizes of its parameters, keeps its output variables and copies a spectrum in one call.
"""

import array
import ctypes
import importlib.util
import os
import re
import struct
import tempfile
import types

import _ctypes

try:
    import cffi
except ImportError:
    cffi = None

DECLARATIONS = """
    uint32_t SOrvCreateDSC2(const void*, void*, uint16_t, uint32_t);
    uint32_t SOrvDeleteDSC(int32_t);
    uint32_t SOrvOpenDataSource(int32_t, const char*, uint16_t, uint32_t, uint32_t, const char*);
    uint32_t SOrvCloseDataSource(int32_t);
    uint32_t SOrvFlush(int32_t);
    uint32_t SOrvQueryDataSource(int32_t, int32_t, void*);
    uint32_t SOrvControlDSC(int32_t, int32_t, int32_t);
    uint32_t SOrvReVerify(int32_t);
    uint32_t SOrvFirstInput(int32_t, uint32_t, void*);
    uint32_t SOrvNextInput(int32_t, void*);
    uint32_t SOrvGetParam(int32_t, uint32_t, uint16_t, uint16_t, void*, uint32_t);
    uint32_t SOrvPutParam(int32_t, uint32_t, int32_t, int32_t, const void*, uint32_t);
    uint32_t SOrvGetSpectrum(int32_t, uint16_t, uint16_t, uint32_t, void*);
    uint32_t SOrvPutSpectrum(int32_t, uint16_t, uint16_t, const void*);
    int16_t OrvCreateBlock(int32_t, uint16_t, int32_t, int32_t);
    int16_t OrvReadUFBlock(int32_t, uint16_t, uint32_t, void*, uint32_t, uint32_t, void*);
    uint32_t SOrvClassCount(int32_t, uint16_t, void*);
    uint32_t SOrvInsertOne(int32_t, uint16_t, int16_t, int16_t);
    uint32_t SOrvDeleteOne(int32_t, uint16_t, uint16_t, uint16_t);
    uint32_t SOrvDeleteLevel(int32_t, int32_t);
    uint32_t SOrvClassCopy(int32_t, int32_t, uint16_t);
    uint32_t SOrvSaveAs(int32_t, int32_t);
    uint32_t SOrvCopyRecord(int32_t, uint16_t, uint16_t, int32_t, uint16_t, uint32_t);
    uint32_t SOrvFindRecord(int32_t, int32_t, const void*, int32_t, void*, void*);
    uint32_t pqar_util_getpinfo(uint32_t, uint32_t, uint32_t, void*, void*, void*, void*, void*,
                                void*, void*, void*, void*);
"""
ENGINE = "uint32_t searchPeaks(int32_t, int32_t, int32_t, int32_t);"
FUNCTIONS = re.findall(r"(\w+) (\w+)\(([^)]*)\);", DECLARATIONS)
LIBRARIES = "libORV.so", "pqar.so"


def library_of(function):
    return LIBRARIES[function.startswith("pqar")]


class CtypesBinding:
    name = "ctypes"
    null = None

    def __init__(self, product):
        libraries = {name: ctypes.CDLL(os.path.join(product, name)) for name in LIBRARIES}
        self.functions = types.SimpleNamespace()
        for result, name, arguments in FUNCTIONS:
            function = getattr(libraries[library_of(name)], name)
            function.restype = self._type(result)
            function.argtypes = [self._type(argument) for argument in arguments.split(",")]
            setattr(self.functions, name, function)

    @staticmethod
    def _type(declared):
        declared = declared.strip()
        if declared.endswith("*"):
            return ctypes.c_char_p if "char" in declared else ctypes.c_void_p
        return getattr(ctypes, "c_" + re.sub("_t$", "", declared))

    def cell(self, type_name, count=1):
        """Return an array of output variables and the pointer to it."""
        cell = (self._type(type_name) * count)()
        return cell, ctypes.byref(cell)

    @staticmethod
    def pointer(buffer):
        return ctypes.byref(ctypes.c_char.from_buffer(buffer))

    @staticmethod
    def text(cell):
        return cell.value

    @staticmethod
    def run_engine(path, first, second):
        engine = ctypes.CDLL(path)
        status = engine.searchPeaks(first, second, 0, 0)
        _ctypes.dlclose(engine._handle)
        return status


class CffiBinding:
    """cffi in ABI mode: declarations and libraries are loaded at run time."""

    name = "cffi, ABI mode"

    def __init__(self, product):
        self.ffi = cffi.FFI()
        self.ffi.cdef(DECLARATIONS)
        libraries = {name: self.ffi.dlopen(os.path.join(product, name)) for name in LIBRARIES}
        self.functions = types.SimpleNamespace(
            **{name: getattr(libraries[library_of(name)], name) for _, name, _ in FUNCTIONS}
        )
        self._finish()

    def _finish(self):
        """Complete a binding of either mode after its functions are loaded."""
        self.null = self.ffi.NULL
        self.text = self.ffi.string
        self.pointer = self.ffi.from_buffer
        self._engines = cffi.FFI()  # engines are loaded at run time in either mode
        self._engines.cdef(ENGINE)

    def cell(self, type_name, count=1):
        cell = self.ffi.new(f"{type_name}[]", count)
        return cell, cell

    def run_engine(self, path, first, second):
        engine = self._engines.dlopen(path)
        status = engine.searchPeaks(first, second, 0, 0)
        self._engines.dlclose(engine)
        return status


class CompiledCffiBinding(CffiBinding):
    """cffi in API mode: an extension module that is compiled with the libraries' header."""

    name = "cffi, API mode"

    def __init__(self, product):
        builder = cffi.FFI()
        builder.cdef(DECLARATIONS)
        dictionary = next(line for line in DECLARATIONS.split(";") if "pqar" in line)
        builder.set_source(
            "_orv",
            f'#include "module/interface/orv.h"\n{dictionary};',
            include_dirs=[os.path.dirname(os.path.dirname(os.path.abspath(__file__)))],
            extra_compile_args=["-O2", "-w"],
            extra_link_args=[os.path.join(product, name) for name in LIBRARIES]
            + [f"-Wl,-rpath,{product}"],
        )
        with tempfile.TemporaryDirectory() as folder:
            path = builder.compile(tmpdir=folder)
            origin = importlib.util.spec_from_file_location("_orv", path)
            module = importlib.util.module_from_spec(origin)
            origin.loader.exec_module(module)
        self.ffi, self.functions = module.ffi, module.lib
        self._finish()


def bindings(product):
    result = [CtypesBinding(product)]
    if cffi is not None:
        result.append(CffiBinding(product))
        try:
            result.append(CompiledCffiBinding(product))
        except (cffi.VerificationError, ImportError) as error:  # no compiler, no setuptools
            print(f"cffi in API mode cannot be compiled, left out: {error}")
    return result


class Calls:
    """The methods of pyORV3 on a binding."""

    TYPE_NAMES = {8: "long", 14: "str", 24: "str", 27: "double"}
    SEQUENCE_CLASSES, GEOMETRY = (0x2010, 0x2003), 0x4005
    # Code and size of the values that the destination of a sequence copy keeps and gets.
    KEPT_SETTINGS = (0x20100075, 65), (0x20100076, 1), (0x20030015, 8), (0x20030053, 2)
    COPIED_SETTINGS = (
        *((0x20020028, 8), (0x20020083, 8), (0x2010002D, 1)),
        *((0x20000002, 65), (0x20100005, 65)),
    )

    def __init__(self, binding):
        self.name, self.binding, self.functions = binding.name, binding, binding.functions
        self.short, self.short_at = binding.cell("uint16_t")
        self.long, self.long_at = binding.cell("int32_t")
        self.word, self.word_at = binding.cell("uint32_t")
        self.double, self.double_at = binding.cell("double")
        self.text, self.text_at = binding.cell("char", 512)
        self.about, self.about_at = binding.cell("char", 256)
        # class, scope, length, type, size and two internal values
        self.answers, self.answers_at = zip(*(binding.cell("uint32_t") for _ in range(7)))

    # ---- Data sources

    def _context(self):
        return self.functions.SOrvCreateDSC2(self.binding.null, self.long_at, 0, 0), self.long[0]

    def open(self, name, mode, _type_selector, _auxiliary):
        status, handle = self._context()
        if status == 0:
            status = self.functions.SOrvOpenDataSource(
                handle, name.encode(), 1, mode, 0, self.binding.null
            )
        return status, handle

    def close(self, handle, _unused):
        status = self.functions.SOrvCloseDataSource(handle)
        self.functions.SOrvDeleteDSC(handle)
        return status

    def flush(self, handle):
        return self.functions.SOrvFlush(handle)

    def control(self, handle, first, second):
        return self.functions.SOrvControlDSC(handle, first, second)

    def reverify(self, handle):
        return self.functions.SOrvReVerify(handle)

    def getStatus(self, handle):
        status = self.functions.SOrvQueryDataSource(handle, 1, self.word_at)
        return status, self.word[0]

    def enumerateDefinitions(self):
        names, (_, handle) = [], self._context()
        status = self.functions.SOrvFirstInput(handle, 0, self.text_at)
        while status == 0:
            names.append(self.binding.text(self.text).decode())
            status = self.functions.SOrvNextInput(handle, self.text_at)
        self.functions.SOrvDeleteDSC(handle)
        return 0, ",".join(names)

    # ---- Parameters

    def getParameterMetaData(self, _handle, code, _name):
        status = self.functions.pqar_util_getpinfo(
            code, 1, 0, self.text_at, self.about_at, *self.answers_at
        )
        name, about = (self.binding.text(text).decode("cp1252") for text in (self.text, self.about))
        type_name = self.TYPE_NAMES[self.answers[3][0]]
        return 1 - (status & 1), (name, about, code, self.answers[0][0], type_name)

    def get_long(self, handle, code, record, entry):
        status = self.functions.SOrvGetParam(handle, code, record, entry, self.long_at, 4)
        return status, self.long[0]

    def set_long(self, handle, code, value, record, entry):
        self.long[0] = value
        return self.functions.SOrvPutParam(handle, code, record, entry, self.long_at, 4)

    def get_double(self, handle, code, record, entry):
        status = self.functions.SOrvGetParam(handle, code, record, entry, self.double_at, 8)
        return status, self.double[0]

    def set_double(self, handle, code, value, record, entry):
        self.double[0] = value
        return self.functions.SOrvPutParam(handle, code, record, entry, self.double_at, 8)

    def get_text(self, handle, code, record, entry):
        status = self.functions.SOrvGetParam(handle, code, record, entry, self.text_at, 65)
        return status, self.binding.text(self.text).decode("cp1252")

    def set_text(self, handle, code, text, record, entry):
        value = text.encode("cp1252")
        return self.functions.SOrvPutParam(handle, code, record, entry, value, len(value) + 1)

    # ---- Spectra

    def getSpectrum(self, handle, _unused1, _unused2):
        status, count = self.get_long(handle, 0x20000007, 1, 1)
        contents = bytearray(4 * count)
        status |= self.functions.SOrvGetSpectrum(
            handle, 1, count, 0, self.binding.pointer(contents)
        )
        return status, struct.unpack(f"<{count}i", contents)

    def setSpectrum(self, handle, channels, _unused1, _unused2):
        contents = self.binding.pointer(array.array("i", channels))
        return self.functions.SOrvPutSpectrum(handle, 1, len(channels), contents)

    # ---- Classes and records

    def count(self, handle, class_code, _record):
        status = self.functions.SOrvClassCount(handle, class_code, self.short_at)
        return status, self.short[0]

    def createBlock(self, handle, class_code, size):
        return self.functions.OrvCreateBlock(handle, class_code, size, 0)

    def deleteBlock(self, handle, class_code):
        status, count = self.count(handle, class_code, 0)
        for record in range(count, 0, -1):
            status |= self.functions.SOrvDeleteOne(handle, class_code, record, 0)
        return status

    def delete(self, handle, class_code, record, entry):
        return self.functions.SOrvDeleteOne(handle, class_code, record, entry)

    def deleteLevel(self, handle, level):
        return self.functions.SOrvDeleteLevel(handle, level)

    def insert(self, handle, class_code, record, entry):
        return self.functions.SOrvInsertOne(handle, class_code, record, entry)

    def moveRecordsTo(self, source, destination, class_code, record, destination_record):
        return self.functions.SOrvCopyRecord(
            source, class_code, record, destination, destination_record, 0
        )

    def copyTo(self, source, destination, class_code):
        if class_code:
            return self.functions.SOrvClassCopy(source, destination, class_code)
        return self.functions.SOrvSaveAs(source, destination)

    def _read(self, handle, code, size):
        """Return (code, pointer, size) of the first record's value, or None."""
        pointer = self.binding.pointer(bytearray(size))
        status = self.functions.SOrvGetParam(handle, code, 1, 1, pointer, size)
        return (code, pointer, size) if status == 0 else None

    def _write(self, handle, value):
        if value is not None:
            code, pointer, size = value
            self.functions.SOrvPutParam(handle, code, 1, 1, pointer, size)

    def copyAnalysisSequenceTo(self, source, destination):
        """Copy from a source without geometry and without a calibration file."""
        kept = [self._read(destination, *setting) for setting in self.KEPT_SETTINGS]
        status = 0
        for class_code in self.SEQUENCE_CLASSES:
            status |= self.functions.SOrvClassCopy(source, destination, class_code)
        self.functions.OrvCreateBlock(destination, self.GEOMETRY, 0, -1)
        self.word[0] = 1
        self.functions.OrvReadUFBlock(source, self.GEOMETRY, 0, self.text_at, 512, 0, self.word_at)
        for setting in self.COPIED_SETTINGS:
            self._write(destination, self._read(source, *setting))
        for value in kept:
            self._write(destination, value)
        return status

    # ---- Searches and engines

    def findNuclideByEnergy(self, handle, energy, tolerance, option):
        key = struct.pack("<2f", energy, tolerance)
        status = self.functions.SOrvFindRecord(handle, 4, key, option, self.short_at, self.word_at)
        return status, self.short[0]

    def findNuclideByName(self, handle, name, option):
        status = self.functions.SOrvFindRecord(
            handle, 2, name.encode("cp1252"), option, self.short_at, self.word_at
        )
        return status, self.short[0]

    def run_engine(self, path, first, second):
        return self.binding.run_engine(path, first, second)
