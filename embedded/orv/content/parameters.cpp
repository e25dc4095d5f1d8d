#include "embedded/orv/content/parameters.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <optional>
#include <string_view>
#include <utility>

#include "embedded/orv/content/failure.h"
#include "embedded/pqar/parameter_codes.h"

namespace embedded {
namespace {

const SpectrumBlock* findSpectrum(const Content& content) {
    return content.find<SpectrumBlock>(QAR_CLS_SPECTRUM);
}

// Returns the written channel count, limited to the valid range.
std::optional<std::size_t> writtenChannelCount(const Content& content) {
    const auto* measurement = content.find<RecordBlock>(QAR_CLS_MEASUREMENT);
    if (measurement == nullptr) {
        return std::nullopt;
    }
    const ValueResult result = measurement->value(requireParameter(QAR_L_CHANNELS), 1, 0);
    if (result.code != codes::success) {
        return std::nullopt;
    }
    std::int32_t count = 0;
    std::memcpy(&count, result.bytes.data(), sizeof count);
    return std::clamp<std::int64_t>(count, 0, SpectrumBlock::capacity);
}

ValueResult storedValue(const Content& content, const ParameterDescription& parameter,
                        std::size_t record, std::size_t entry) {
    static const RecordBlock nothing;
    const auto* block = content.find<RecordBlock>(parameter.classCode());
    return (block == nullptr ? nothing : *block).value(parameter, record, entry);
}

// Fills at most the maximum size of a value: the size that a caller passes may exceed its buffer.
std::uint32_t copyValue(const ParameterDescription& parameter, ValueBytes bytes,
                        std::span<char> buffer) {
    if (buffer.size() < bytes.size() + (parameter.isText() ? 1 : 0)) {
        return codes::sizeRefused;
    }
    const auto area = buffer.first(std::min<std::size_t>(buffer.size(), parameter.size()));
    const auto stop = std::ranges::copy(bytes, area.begin()).out;
    std::fill(stop, area.end(), '\0');
    return codes::success;
}

ValueBytes textOf(const ParameterDescription& parameter, std::span<const char> value) {
    const std::string_view area(value.data(),
                                std::min<std::size_t>(value.size(), parameter.size()));
    const std::size_t length = area.find('\0');
    if (value.size() > parameter.size() || length == std::string_view::npos) {
        throw Failure(codes::sizeRefused);
    }
    return area.substr(0, length);
}

ValueBytes numberOf(const ParameterDescription& parameter, std::span<const char> value) {
    if (value.size() != parameter.size()) {
        throw Failure(codes::sizeRefused);
    }
    return {value.data(), value.size()};
}

}  // namespace

const ParameterDescription& requireParameter(std::uint32_t code) {
    const ParameterDescription* parameter = findParameter(code);
    if (parameter == nullptr) {
        throw Failure(codes::unknownParameter);
    }
    return *parameter;
}

const ParameterDescription& requireParameter(std::string_view shortName) {
    const ParameterDescription* parameter = findParameterByShortName(shortName);
    if (parameter == nullptr) {
        throw Failure(codes::unknownParameter);
    }
    return *parameter;
}

NeededClasses neededFor(std::uint32_t code) {
    return code == QAR_L_CHANNELS ? neededForSpectrum : NeededClasses{{classOf(code)}};
}

std::uint32_t readParameter(const Content& content, const ParameterDescription& parameter,
                            std::size_t record, std::size_t entry, std::span<char> buffer) {
    const ValueResult result = storedValue(content, parameter, record, entry);
    if (result.code == codes::success) {
        return copyValue(parameter, result.bytes, buffer);
    }
    const bool isChannelCount = parameter.code == QAR_L_CHANNELS && result.code == codes::notSet;
    const SpectrumBlock* spectrum = isChannelCount ? findSpectrum(content) : nullptr;
    if (spectrum == nullptr || record != 1) {
        return result.code;
    }
    const auto count = static_cast<std::int32_t>(spectrum->channelCount());
    std::array<char, sizeof count> counted{};
    std::memcpy(counted.data(), &count, sizeof count);
    return copyValue(parameter, {counted.data(), counted.size()}, buffer);
}

void writeParameter(Content& content, const ParameterDescription& parameter, std::size_t record,
                    std::size_t entry, std::span<const char> value) {
    const ValueBytes bytes =
        parameter.isText() ? textOf(parameter, value) : numberOf(parameter, value);
    content.change<RecordBlock>(parameter.classCode(), [&](RecordBlock& block) {
        block.setValue(parameter, record, entry, bytes);
    });
}

std::size_t channelCount(const Content& content) {
    const SpectrumBlock* spectrum = findSpectrum(content);
    return writtenChannelCount(content).value_or(spectrum == nullptr ? 0
                                                                     : spectrum->channelCount());
}

void writeSpectrum(Content& content, std::size_t firstChannel,
                   std::span<const std::int32_t> channels) {
    if (channels.empty()) {
        return;
    }
    const std::size_t limit = writtenChannelCount(content).value_or(SpectrumBlock::capacity);
    content.change<SpectrumBlock>(QAR_CLS_SPECTRUM, [&](SpectrumBlock& spectrum) {
        spectrum.put(firstChannel, channels, limit);
    });
}

void readSpectrum(const Content& content, std::size_t firstChannel,
                  std::span<std::int32_t> channels) {
    if (channels.empty()) {
        return;
    }
    static const SpectrumBlock nothing;
    const SpectrumBlock* spectrum = findSpectrum(content);
    const auto written = writtenChannelCount(content);
    if (spectrum == nullptr && !written) {
        throw Failure(codes::noBlock);
    }
    (spectrum == nullptr ? nothing : *spectrum).get(firstChannel, channels, channelCount(content));
}

}  // namespace embedded
