// Interface functions on parameters, spectra and unformatted blocks.
#include <algorithm>
#include <cstring>
#include <limits>
#include <span>
#include <string_view>

#include "embedded/orv/content/classes.h"
#include "embedded/orv/content/parameters.h"
#include "embedded/orv/entry_points/guarded_call.h"

using namespace embedded;

namespace {

// Returns the buffer of the caller; refuses sizes far above those of values and chunks.
template <typename Byte, typename Pointer>
std::span<Byte> areaOf(Pointer* buffer, std::uint32_t size) {
    requirePointers(buffer);
    if (size > static_cast<std::uint32_t>(std::numeric_limits<std::int32_t>::max())) {
        throw Failure(codes::sizeRefused);
    }
    return {static_cast<Byte*>(buffer), size};
}

// Returns the number of a record or entry, which must fit into 16 bits.
std::size_t number16(std::int32_t number, std::uint32_t missingCode) {
    if (number < 0 || number > std::numeric_limits<std::uint16_t>::max()) {
        throw Failure(missingCode);
    }
    return static_cast<std::size_t>(number);
}

template <std::size_t size>
void copyText(std::string_view text, char (&area)[size]) {
    const std::size_t length = std::min(text.size(), size - 1);
    *std::copy_n(text.begin(), length, area) = '\0';
}

}  // namespace

OrvStatus SOrvGetParam(OrvContext handle, std::uint32_t code, std::uint16_t record,
                       std::uint16_t entry, void* buffer, std::uint32_t bufferSize) {
    return onReading(handle, neededFor(code), [=](const Content& content) {
        const auto area = areaOf<char>(buffer, bufferSize);
        return readParameter(content, requireParameter(code), record, entry, area);
    });
}

OrvResult OrvParameterRead(OrvContext handle, std::uint32_t code, std::uint16_t record,
                           std::uint16_t entry, void* buffer, std::uint16_t bufferSize) {
    return resultOf(SOrvGetParam(handle, code, record, entry, buffer, bufferSize));
}

OrvStatus SOrvPutParam(OrvContext handle, std::uint32_t code, std::int32_t record,
                       std::int32_t entry, const void* value, std::uint32_t valueSize) {
    return onChanging(handle, neededFor(code), [=](Content& content) {
        const auto area = areaOf<const char>(value, valueSize);
        writeParameter(content, requireParameter(code), number16(record, codes::noSuchRecord),
                       number16(entry, codes::noSuchEntry), area);
    });
}

OrvResult OrvParameterWrite(OrvContext handle, std::uint32_t code, std::uint16_t record,
                            std::uint16_t entry, const void* value, std::uint16_t valueSize) {
    return resultOf(SOrvPutParam(handle, code, record, entry, value, valueSize));
}

OrvResult OrvParameterDescriptionQuery(OrvContext handle, const OrvParameterDescriptionKey* key,
                                       OrvParameterDescription* description) {
    return resultOf(onContext(handle, [=](const Context&) {
        requirePointers(key, description);
        const std::string_view name(key->name, strnlen(key->name, sizeof key->name));
        const std::uint32_t code = std::uint32_t{key->codeHigh} << 16U | key->codeLow;
        const ParameterDescription& parameter =
            name.empty() ? requireParameter(code) : requireParameter(name);
        *description = OrvParameterDescription{};
        description->type = static_cast<std::uint16_t>(parameter.type);
        description->size = parameter.isText() ? parameter.textLength : parameter.size();
        copyText(parameter.shortName(), description->name);
        copyText(parameter.description, description->text);
    }));
}

OrvStatus SOrvGetSpectrum(OrvContext handle, std::uint16_t firstChannel, std::uint16_t channelCount,
                          std::uint32_t /*option*/, std::int32_t* channels) {
    return onReading(handle, neededForSpectrum, [=](const Content& content) {
        requirePointers(channels);
        readSpectrum(content, firstChannel, {channels, channelCount});
    });
}

OrvStatus SOrvPutSpectrum(OrvContext handle, std::uint16_t firstChannel, std::uint16_t channelCount,
                          const std::int32_t* channels) {
    return onChanging(handle, neededForSpectrum, [=](Content& content) {
        requirePointers(channels);
        writeSpectrum(content, firstChannel, {channels, channelCount});
    });
}

// count: set to the chunks read, 0 at the end of the block, otherwise 1. option: not used.
OrvResult OrvReadUFBlock(OrvContext handle, std::uint16_t classCode, std::uint32_t offset,
                         void* buffer, std::uint32_t length, std::uint32_t /*option*/,
                         std::uint32_t* count) {
    return resultOf(onReading(handle, {{classCode}}, [=](const Content& content) {
        requirePointers(count);
        const auto chunk = areaOf<char>(buffer, length);
        const auto* block = content.find<UnformattedBlock>(classCode);
        if (block == nullptr) {
            throw Failure(codes::noBlock);
        }
        *count = block->read(offset, chunk) == 0 ? 0 : 1;
    }));
}

OrvResult OrvWriteUFBlock(OrvContext handle, std::uint16_t classCode, const void* buffer,
                          std::uint32_t length, std::uint32_t /*option*/) {
    return resultOf(onChanging(handle, {{classCode}}, [=](Content& content) {
        appendToBlock(content, classCode, areaOf<const char>(buffer, length));
    }));
}
