"""Every method of pyORV3, compared with the same library calls through ctypes and cffi."""

import array
import contextlib
import ctypes
import functools
import os
import struct
from typing import Callable, NamedTuple, Optional

import native
import pyORV3
import sources
from harness import Case, Way
from sources import LIVE_TIME, MEASUREMENT_NAME, NUCLIDES, PEAKS, ok

PRODUCT = os.path.dirname(os.path.abspath(pyORV3.__file__))
RECORDS, CHANNELS = 2000, 16384
TEXT = "Soil, field 7, layer of 5 µm"
PROCESSING = 0x2003
GET_LIMIT, SET_LIMIT = 1.2, 0.42


class Call(NamedTuple):
    """A call of pyORV3. through: the name in `native.Calls`, if it differs."""

    method: str
    arguments: tuple
    variant: str = ""
    through: str = ""
    through_arguments: Optional[tuple] = None
    before: Optional[Callable] = None
    after: Optional[Callable] = None
    same_result: bool = True

    def case(self, scripts):
        name = self.method + (f", {self.variant}" if self.variant else "")
        arguments = self.arguments if self.through_arguments is None else self.through_arguments
        others = [
            Way(
                script.name,
                functools.partial(getattr(script, self.through or self.method), *arguments),
                before=self.before,
                after=self.after,
            )
            for script in scripts
        ]
        own = functools.partial(getattr(pyORV3, self.method), *self.arguments)
        return Case(name, own, others, self.before, self.after, self.same_result)


def data_source_calls(path, handle):
    def reopen():
        return ok(pyORV3.open(path, 1, 1, "")), 0  # the arguments of close

    def change():
        ok(pyORV3.setParameter(handle, LIVE_TIME, 1.0, 1, 1))

    def close_opened(answer):
        ok(pyORV3.close(ok(answer), 0))

    return [
        Call("open", (path, 1, 1, ""), after=close_opened, same_result=False),
        Call("close", (), before=reopen),
        Call("flush", (handle,), before=change),
        Call("control", (handle, 1, 0), "flush", before=change),
        Call("getStatus", (handle,)),
        Call("reverify", (handle,), f"{RECORDS:,} records"),
        Call("enumerateDefinitions", (), "3 inputs"),
    ]


def parameter_calls(handle):
    cell = 1, 1
    for kind, code, value in [
        ("long", sources.CHANNEL_COUNT, CHANNELS),
        ("double", LIVE_TIME, 3600.5),
        ("text", MEASUREMENT_NAME, TEXT),
    ]:
        yield Call("setParameter", (handle, code, value, *cell), kind, f"set_{kind}")
        yield Call("getParameter", (handle, code, *cell), kind, f"get_{kind}")
    yield Call("getParameterMetaData", (handle, LIVE_TIME, ""))


def record_calls(handle, other):
    energy, first_peak = sources.code_of("QAR_D_PEAKENERGY"), (handle, PEAKS, 1, 0)

    def add_peak():
        ok(pyORV3.setParameter(handle, energy, 661.7, 1, 1))

    def remove_peaks(_):
        ok(pyORV3.deleteBlock(handle, PEAKS))

    return [
        Call("insert", first_peak, before=add_peak, after=remove_peaks),
        Call("delete", first_peak, before=add_peak),
        Call("deleteLevel", (handle, 1), before=add_peak),
        Call("deleteBlock", (handle, PEAKS), "1 record", before=add_peak),
        Call("createBlock", (handle, sources.SPECTRUM, CHANNELS)),
        Call("count", (handle, NUCLIDES, 0)),
        Call("moveRecordsTo", (handle, other, NUCLIDES, 1, 1)),
        Call("copyTo", (handle, other, PROCESSING), "class of settings"),
        Call("copyTo", (handle, other, 0), f"source of {RECORDS:,} records"),
        Call("copyAnalysisSequenceTo", (handle, other)),
        Call("findNuclideByEnergy", (handle, 180.02, 0.04, 0), f"{RECORDS:,} records"),
        Call("findNuclideByName", (handle, "Nuclide-1500", 1), f"{RECORDS:,} records"),
    ]


def engine_call():
    """Return the call of an engine without a source, so that the engine does nothing."""
    engine = "peak_search", "searchPeaks"
    path = os.path.join(PRODUCT, engine[0] + ".so")
    return Call(
        "executeNativeEngine",
        (*engine, 0, 0),
        "load, call, unload",
        "run_engine",
        (path, 0, 0),
        same_result=False,
    )


def empty_cases(handle):
    """Return the cases of methods that do not call the library."""
    empty = ctypes.CDLL(None).abs
    empty.argtypes = (ctypes.c_int32,)
    for method in ("getIsOpen", "getIsDirty", "setIsDirty"):
        function = getattr(pyORV3, method)
        yield Case(
            method,
            functools.partial(function, handle),
            [Way("ctypes: abs(int) of libc", functools.partial(empty, handle))],
        )


def prepare_settings(handle, other):
    """Write an analysis sequence to copy and the values that the destination keeps."""
    for source, name, value in [
        (handle, "QAR_D_PEAKLIMIT", 5.0),
        (handle, "QAR_C_ANSEQUENCE", "Routine"),
        (other, "QAR_C_REPORTTITLE", "Report"),
        (other, "QAR_S_REPORTCOPIES", 2),
    ]:
        ok(pyORV3.setParameter(source, sources.code_of(name), value, 1, 1))


@contextlib.contextmanager
def inputs_folder(folder):
    os.makedirs(folder)
    for name in ("LEFT", "MIDDLE", "RIGHT"):
        open(os.path.join(folder, name + ".qar"), "w").close()
    os.environ["ORV_INPUTS"] = folder
    try:
        yield
    finally:
        del os.environ["ORV_INPUTS"]


def methods(bench):
    """All methods against ctypes and cffi"""
    scripts = [native.Calls(binding) for binding in native.bindings(PRODUCT)]
    content = {"channels": CHANNELS, "records": RECORDS}
    unopened = bench.sources.make(sources.QarStore)
    store, other = (sources.QarStore(bench.sources.make(sources.QarStore, **content)) for _ in "12")
    prepare_settings(store.handle, other.handle)
    with inputs_folder(os.path.join(bench.folder, "inputs")):
        for case in empty_cases(store.handle):
            yield from bench.compare(case)
        for call in [
            *data_source_calls(unopened, store.handle),
            *parameter_calls(store.handle),
            *record_calls(store.handle, other.handle),
            engine_call(),
        ]:
            yield from bench.compare(call.case(scripts))
    store.close()
    other.close()


def spectra(bench):
    """Spectra, compared with the conversion alone in Python and with scripts"""
    scripts = [native.Calls(binding) for binding in native.bindings(PRODUCT)]
    for count in (4096, CHANNELS, 32768, 65535):
        channels = sources.random_channels(count)
        content, structure = array.array("i", channels).tobytes(), struct.Struct(f"<{count}i")
        store = sources.QarStore(bench.sources.make(sources.QarStore, channels=count))
        scripts[0].setSpectrum(store.handle, channels, 0, 0)  # in one call, of any length
        get = Call("getSpectrum", (store.handle, 0, 0), f"{count:,} channels").case(scripts)
        limit = GET_LIMIT if count in (CHANNELS, 65535) else None
        unpack = Way("struct.unpack", lambda: (0, structure.unpack(content)), limit)
        yield from bench.compare(get._replace(others=[unpack, *get.others]))
        if count <= sources.LARGEST_WRITE:
            arguments = store.handle, channels, 0, 0
            put = Call("setSpectrum", arguments, f"{count:,} channels").case(scripts)
            limit = SET_LIMIT if count == CHANNELS else None
            convert = Way("array('i', tuple)", lambda: array.array("i", channels) and 0, limit)
            pack = Way("struct.pack", lambda: structure.pack(*channels) and 0)
            yield from bench.compare(put._replace(others=[convert, pack, *put.others]))
        store.close()
