#include "module/spectrum_methods.h"

#include <algorithm>
#include <new>
#include <string>

#include "module/frame/argument_format.h"
#include "module/interface/orv.h"
#include "module/spectrum_size.h"
#include "parameters/byte_stream.h"

namespace pyORV3 {

namespace {

constexpr std::int32_t largestReadCount = 65535;  // what a 16-bit channel number reaches
constexpr std::int32_t channelsPerReading = 2048;
constexpr std::int32_t channelsPerWriting = 256;

// The scratch buffer of one transfer: zeroed channel contents.
class ChannelBuffer {
  public:
    // Holds one channel at least, so that the library always gets a valid place.
    explicit ChannelBuffer(std::int32_t channelCount)
        : bytes_(static_cast<std::uint32_t>(std::max(channelCount, 1)) * sizeof(std::int32_t)) {}

    [[nodiscard]] std::int32_t* channel(std::int32_t slot) noexcept {
        return reinterpret_cast<std::int32_t*>(bytes_.data()) + slot;
    }

  private:
    Tarsel::Utility::ByteStream bytes_;
};

OrvStatus readChannelCount(OrvContext handle, std::int32_t& channelCount) {
    channelCount = 0;
    return SOrvGetParam(handle, ORV_CHANNEL_COUNT_PARAMETER, 1, 1, &channelCount,
                        sizeof channelCount);
}

// Reads all channels in chunks; the first call is made even when there is none.
OrvStatus readChannels(OrvContext handle, std::int32_t channelCount, ChannelBuffer& buffer) {
    std::int32_t position = 0;
    do {
        const std::int32_t chunk = std::min(channelCount - position, channelsPerReading);
        const OrvStatus status =
            SOrvGetSpectrum(handle, static_cast<std::uint16_t>(position + 1),
                            static_cast<std::uint16_t>(chunk), 0, buffer.channel(position));
        if (status != 0) {
            return status;
        }
        position += chunk;
    } while (position < channelCount);
    return 0;
}

// Writes in chunks: the first one holds at most the tuple's items, the others go on to the end of
// the buffer, zeros included; the first call is made even when there is no item.
OrvStatus writeChannels(OrvContext handle, std::int32_t itemCount, std::int32_t bufferCount,
                        ChannelBuffer& buffer) {
    std::int32_t position = 0;
    std::int32_t remaining = itemCount;
    do {
        const std::int32_t chunk = std::min(remaining, channelsPerWriting);
        const OrvStatus status =
            SOrvPutSpectrum(handle, static_cast<std::uint16_t>(position + 1),
                            static_cast<std::uint16_t>(chunk), buffer.channel(position));
        if (status != 0) {
            return status;
        }
        position += chunk;
        remaining = bufferCount - position;
    } while (remaining > 0);
    return 0;
}

// A tuple of the channel contents. Python's own struct module makes it: it fills the tuple's slots
// directly, where the stable ABI has only a call for each, which costs half as much again.
PythonReference channelTuple(std::int32_t channelCount, ChannelBuffer& buffer) {
    const std::string format = std::to_string(channelCount) + "i";
    const PythonReference module(PyImport_ImportModule("_struct"));
    const PythonReference bytes(PyBytes_FromStringAndSize(
        reinterpret_cast<const char*>(buffer.channel(0)),
        static_cast<Py_ssize_t>(channelCount) * static_cast<Py_ssize_t>(sizeof(std::int32_t))));
    if (!module || !bytes) {
        throw std::bad_alloc();  // nothing else can be missing
    }
    PythonReference tuple(
        PyObject_CallMethod(module.get(), "unpack", "sO", format.c_str(), bytes.get()));
    if (!tuple) {
        throw std::bad_alloc();
    }
    return tuple;
}

// The low 32 bits of an int; false for an object that is none.
bool channelContent(PyObject* item, std::int32_t& content) {
    if (Py_TYPE(item) == &PyLong_Type) {
        // What the parser's unit I does with a plain int, without the parser.
        content = static_cast<std::int32_t>(PyLong_AsUnsignedLongMask(item));
        return true;
    }
    unsigned int lowBits = 0;
    const bool isInteger = parseObject<"I">(item, lowBits);
    content = static_cast<std::int32_t>(lowBits);
    return isInteger;
}

// Puts the tuple's items into the buffer; false when one is no int.
bool fillBuffer(PyObject* tuple, std::int32_t itemCount, ChannelBuffer& buffer) {
    for (std::int32_t slot = 0; slot < itemCount; ++slot) {
        if (!channelContent(PyTuple_GetItem(tuple, slot), *buffer.channel(slot))) {
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
        return status;
    }
    if (channelCount < 0 || channelCount > largestReadCount) {
        return badArguments;
    }
    ChannelBuffer buffer(channelCount);
    if (const OrvStatus status = readChannels(handle, channelCount, buffer); status != 0) {
        return status;
    }
    channels = channelTuple(channelCount, buffer);
    return success;
}

Outcome setSpectrum(std::int32_t handle, PyObject* channels, std::int32_t /*unused1*/,
                    std::int32_t /*unused2*/) {
    const Py_ssize_t itemCount = PyTuple_Size(channels);  // -1 for an object that is no tuple
    if (itemCount < 0 || itemCount > largestSpectrumSize) {
        return badArguments;
    }
    auto writeCount = static_cast<std::int32_t>(itemCount);
    std::int32_t bufferCount = roundedSpectrumSize(writeCount);
    ChannelBuffer buffer(bufferCount);
    if (!fillBuffer(channels, writeCount, buffer)) {
        return badArguments;
    }
    // A source that does not tell its channel count takes all channels.
    std::int32_t channelCount = 0;
    if (readChannelCount(handle, channelCount) == 0) {
        if (channelCount < 0) {
            return badArguments;
        }
        writeCount = std::min(writeCount, channelCount);
        bufferCount = std::min(bufferCount, channelCount);
    }
    return writeChannels(handle, writeCount, bufferCount, buffer);
}

}  // namespace pyORV3
