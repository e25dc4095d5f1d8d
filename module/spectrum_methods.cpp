#include "module/spectrum_methods.h"

#include <algorithm>
#include <string>
#include <vector>

#include "module/binding/argument_format.h"
#include "module/interface/orv.h"

namespace pyORV3 {

namespace {

constexpr std::int32_t maxReadCount = 65535;  // the largest 16-bit channel number
constexpr std::int32_t channelsPerReading = 2048;
constexpr std::int32_t channelsPerWriting = 256;

OrvStatus readChannelCount(OrvContext handle, std::int32_t& channelCount) {
    channelCount = 0;
    return SOrvGetParam(handle, ORV_CHANNEL_COUNT_PARAMETER, 1, 1, &channelCount,
                        sizeof channelCount);
}

// Reads all channels in chunks; makes the first call even for a count of 0.
OrvStatus readChannels(OrvContext handle, std::int32_t channelCount, std::int32_t* channels) {
    std::int32_t position = 0;
    do {
        const std::int32_t chunk = std::min(channelCount - position, channelsPerReading);
        const OrvStatus status =
            SOrvGetSpectrum(handle, static_cast<std::uint16_t>(position + 1),
                            static_cast<std::uint16_t>(chunk), 0, channels + position);
        if (status != 0) {
            return status;
        }
        position += chunk;
    } while (position < channelCount);
    return 0;
}

// Writes in chunks: the first one holds at most the items of the tuple, the others continue to the
// end of the buffer, zeros included. Makes the first call even for an empty tuple.
OrvStatus writeChannels(OrvContext handle, std::int32_t itemCount, std::int32_t bufferCount,
                        const std::int32_t* channels) {
    std::int32_t position = 0;
    std::int32_t remaining = itemCount;
    do {
        const std::int32_t chunk = std::min(remaining, channelsPerWriting);
        const OrvStatus status =
            SOrvPutSpectrum(handle, static_cast<std::uint16_t>(position + 1),
                            static_cast<std::uint16_t>(chunk), channels + position);
        if (status != 0) {
            return status;
        }
        position += chunk;
        remaining = bufferCount - position;
    } while (remaining > 0);
    return 0;
}

// Returns a zeroed bytes object with room for the contents, at least one. Python allocates large
// ones as fresh pages, which are zero already. No other code has the object yet, so it may be
// written.
PythonReference zeroedBytes(std::int32_t channelCount) {
    const auto size = static_cast<Py_ssize_t>(sizeof(std::int32_t)) * std::max(channelCount, 1);
    return PythonReference(
        PyObject_CallFunction(reinterpret_cast<PyObject*>(&PyBytes_Type), "n", size));
}

// Returns the function unpack_from of the Python module struct, which fills the slots of a tuple
// directly. Empty, without a pending error, if it is not available: while the interpreter ends, or
// if a script has replaced it. Looked up in the list of modules and imported only if it is missing
// there, to bypass an __import__ of a script.
PythonReference structUnpack() {
    PyObject* const modules = PySys_GetObject("modules");
    if (modules == nullptr || !PyDict_Check(modules)) {
        return {};
    }
    const PythonReference name(PyUnicode_FromString("_struct"));
    PythonReference module(name ? PyObject_GetItem(modules, name.get()) : nullptr);
    if (!module) {
        PyErr_Clear();
        module =
            PythonReference(PyImport_ImportModuleLevel("_struct", nullptr, nullptr, nullptr, 0));
    }
    PythonReference function(module ? PyObject_GetAttrString(module.get(), "unpack_from")
                                    : nullptr);
    if (function && Py_TYPE(function.get()) == &PyCFunction_Type) {
        return function;
    }
    PyErr_Clear();
    return {};
}

// Fills a tuple item by item, which takes 1.5 times as long.
PythonReference tupleOfItems(std::int32_t channelCount, const std::int32_t* channels) {
    PythonReference tuple(PyTuple_New(channelCount));
    for (std::int32_t slot = 0; tuple && slot < channelCount; ++slot) {
        PyObject* const item = PyLong_FromLong(channels[slot]);
        if (item == nullptr) {
            return {};
        }
        PyTuple_SetItem(tuple.get(), slot, item);
    }
    return tuple;
}

// Returns a tuple of the channel contents; empty only if memory is exhausted.
PythonReference channelTuple(std::int32_t channelCount, PyObject* bytes) {
    if (const PythonReference unpack = structUnpack()) {
        const std::string format = std::to_string(channelCount) + "i";
        PythonReference tuple(PyObject_CallFunction(unpack.get(), "sO", format.c_str(), bytes));
        if (tuple && PyTuple_Check(tuple.get())) {
            return tuple;
        }
        PyErr_Clear();
    }
    return tupleOfItems(channelCount,
                        reinterpret_cast<const std::int32_t*>(PyBytes_AsString(bytes)));
}

// Reads the low 32 bits of an int; returns false for other objects.
bool channelContent(PyObject* item, std::int32_t& content) {
    if (Py_TYPE(item) == &PyLong_Type) {
        // Equivalent to the unit I of the parser for a plain int.
        content = static_cast<std::int32_t>(PyLong_AsUnsignedLongMask(item));
        return true;
    }
    unsigned int lowBits = 0;
    const bool isInteger = parseObject<"I">(item, lowBits);
    content = static_cast<std::int32_t>(lowBits);
    return isInteger;
}

// Copies the items of the tuple into the channels; returns false if one is not an int.
bool fillChannels(PyObject* tuple, std::int32_t itemCount, std::int32_t* channels) {
    for (std::int32_t slot = 0; slot < itemCount; ++slot) {
        if (!channelContent(PyTuple_GetItem(tuple, slot), channels[slot])) {
            return false;
        }
    }
    return true;
}

}  // namespace

Outcome getSpectrum(std::int32_t handle, std::int32_t /*unused1*/, std::int32_t /*unused2*/,
                    PythonReference& channels) {
    std::int32_t channelCount = 0;
    if (const OrvStatus status = readChannelCount(handle, channelCount); status != 0) {
        return {status, "The channel count cannot be read"};
    }
    if (channelCount < 0 || channelCount > maxReadCount) {
        return {badArguments, "No spectrum has so many channels"};
    }
    const PythonReference bytes = zeroedBytes(channelCount);
    if (bytes) {
        auto* const contents = reinterpret_cast<std::int32_t*>(PyBytes_AsString(bytes.get()));
        if (const OrvStatus status = readChannels(handle, channelCount, contents); status != 0) {
            return {status, "SOrvGetSpectrum() failed"};
        }
        channels = channelTuple(channelCount, bytes.get());
    }
    if (!channels) {
        PyErr_Clear();
        return {outOfMemory, "No memory for the spectrum"};
    }
    return success;
}

Outcome setSpectrum(std::int32_t handle, PyObject* channels, std::int32_t /*unused1*/,
                    std::int32_t /*unused2*/) {
    const Py_ssize_t itemCount = PyTuple_Size(channels);  // -1 for an object other than a tuple
    if (itemCount < 0 || itemCount > maxSpectrumSize) {
        return {badArguments, "The spectrum is no tuple or too long"};
    }
    auto writeCount = static_cast<std::int32_t>(itemCount);
    std::int32_t bufferCount = roundedSpectrumSize(writeCount);
    std::vector<std::int32_t> contents(static_cast<std::size_t>(bufferCount));
    if (!fillChannels(channels, writeCount, contents.data())) {
        return {badArguments, "An item of the spectrum is no int"};
    }
    // A source without a channel count accepts all channels.
    std::int32_t channelCount = 0;
    if (readChannelCount(handle, channelCount) == 0) {
        if (channelCount < 0) {
            return {badArguments, "No spectrum has so many channels"};
        }
        writeCount = std::min(writeCount, channelCount);
        bufferCount = std::min(bufferCount, channelCount);
    }
    return {writeChannels(handle, writeCount, bufferCount, contents.data()),
            "SOrvPutSpectrum() failed"};
}

}  // namespace pyORV3
