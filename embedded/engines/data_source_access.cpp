#include "embedded/engines/data_source_access.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <limits>

#include "embedded/engines/engine.h"
#include "embedded/pqar/parameter_codes.h"

namespace embedded::engines {

namespace {

constexpr int stateItem = 1;
constexpr std::size_t channelsInOneReading = 2048;
constexpr std::uint16_t maxCoefficients = 32;
constexpr std::size_t textBufferSize = 256;

}  // namespace

DataSourceAccess::DataSourceAccess(OrvContext context) : context_(context) {
    std::uint32_t state = 0;
    if (SOrvQueryDataSource(context_, stateItem, &state) != 0) {
        throw EngineFailure(status::dataSourceRefused);
    }
}

template <typename Value>
std::optional<Value> DataSourceAccess::read(std::uint32_t code, std::uint16_t record,
                                            std::uint16_t entry) const {
    Value value{};
    if (SOrvGetParam(context_, code, record, entry, &value, sizeof value) != 0) {
        return std::nullopt;
    }
    return value;
}

std::optional<std::int32_t> DataSourceAccess::readLong(std::uint32_t code) const {
    return read<std::int32_t>(code, 1, 1);
}

std::optional<std::int16_t> DataSourceAccess::readShort(std::uint32_t code) const {
    return read<std::int16_t>(code, 1, 1);
}

std::optional<float> DataSourceAccess::readFloat(std::uint32_t code) const {
    return read<float>(code, 1, 1);
}

std::optional<double> DataSourceAccess::readDouble(std::uint32_t code, std::uint16_t record,
                                                   std::uint16_t entry) const {
    return read<double>(code, record, entry);
}

std::optional<std::uint8_t> DataSourceAccess::readByte(std::uint32_t code, std::uint16_t record,
                                                       std::uint16_t entry) const {
    return read<std::uint8_t>(code, record, entry);
}

std::optional<std::string> DataSourceAccess::readText(std::uint32_t code,
                                                      std::uint16_t record) const {
    std::array<char, textBufferSize> buffer{};
    if (SOrvGetParam(context_, code, record, 1, buffer.data(), buffer.size()) != 0) {
        return std::nullopt;
    }
    return std::string(buffer.begin(), std::ranges::find(buffer, '\0'));
}

template <typename Value>
std::vector<double> DataSourceAccess::readEntries(std::uint32_t code,
                                                  std::uint32_t maxEntries) const {
    std::vector<double> values;
    for (std::uint32_t entry = 1; entry <= maxEntries; ++entry) {
        const auto value = read<Value>(code, 1, static_cast<std::uint16_t>(entry));
        if (!value) {
            break;
        }
        values.push_back(static_cast<double>(*value));
    }
    return values;
}

std::vector<double> DataSourceAccess::readCoefficients(std::uint32_t code) const {
    return readEntries<double>(code, maxCoefficients);
}

std::vector<double> DataSourceAccess::readDoubles(std::uint32_t code) const {
    return readEntries<double>(code, std::numeric_limits<std::uint16_t>::max());
}

std::vector<double> DataSourceAccess::readLongs(std::uint32_t code) const {
    return readEntries<std::int32_t>(code, std::numeric_limits<std::uint16_t>::max());
}

std::vector<double> DataSourceAccess::readSpectrum() const {
    const auto channelCount = readLong(QAR_L_CHANNELS);
    if (!channelCount || *channelCount < 1 ||
        *channelCount > std::numeric_limits<std::uint16_t>::max()) {
        throw EngineFailure(status::spectrumUnreadable);
    }
    std::vector<std::int32_t> channels(static_cast<std::size_t>(*channelCount));
    for (std::size_t first = 0; first < channels.size(); first += channelsInOneReading) {
        const std::size_t count = std::min(channelsInOneReading, channels.size() - first);
        if (SOrvGetSpectrum(context_, static_cast<std::uint16_t>(first + 1),
                            static_cast<std::uint16_t>(count), 0, &channels[first]) != 0) {
            throw EngineFailure(status::spectrumUnreadable);
        }
    }
    return {channels.begin(), channels.end()};
}

std::uint16_t DataSourceAccess::recordCount(std::uint16_t classCode) const {
    std::uint16_t count = 0;
    return SOrvClassCount(context_, classCode, &count) == 0 ? count : std::uint16_t{0};
}

std::uint16_t DataSourceAccess::entryCount(std::uint16_t classCode, std::uint16_t record) const {
    std::uint16_t count = 0;
    return SOrvEntryCount(context_, classCode, record, &count) == 0 ? count : std::uint16_t{0};
}

void DataSourceAccess::deleteRecords(std::uint16_t classCode) const {
    for (std::uint16_t record = recordCount(classCode); record > 0; --record) {
        if (SOrvDeleteOne(context_, classCode, record, 0) != 0) {
            throw EngineFailure(status::resultsNotWritable);
        }
    }
}

void DataSourceAccess::write(std::uint32_t code, std::uint16_t record, const void* value,
                             std::uint32_t size, std::uint16_t entry) const {
    if (SOrvPutParam(context_, code, record, entry, value, size) != 0) {
        throw EngineFailure(status::resultsNotWritable);
    }
}

void DataSourceAccess::writeShort(std::uint32_t code, std::uint16_t record,
                                  std::uint16_t value) const {
    write(code, record, &value, sizeof value);
}

void DataSourceAccess::writeLong(std::uint32_t code, std::uint16_t record,
                                 std::int32_t value) const {
    write(code, record, &value, sizeof value);
}

void DataSourceAccess::writeFloat(std::uint32_t code, std::uint16_t record, float value) const {
    write(code, record, &value, sizeof value);
}

void DataSourceAccess::writeDouble(std::uint32_t code, std::uint16_t record, double value,
                                   std::uint16_t entry) const {
    write(code, record, &value, sizeof value, entry);
}

void DataSourceAccess::writeCoefficients(std::uint32_t code,
                                         const std::vector<double>& coefficients) const {
    const std::size_t count = std::max(coefficients.size(), readCoefficients(code).size());
    for (std::size_t index = 0; index < count; ++index) {
        const double value = index < coefficients.size() ? coefficients[index] : 0.0;
        write(code, 1, &value, sizeof value, static_cast<std::uint16_t>(index + 1));
    }
}

void DataSourceAccess::writeText(std::uint32_t code, std::uint16_t record,
                                 const std::string& value) const {
    write(code, record, value.c_str(), static_cast<std::uint32_t>(value.size() + 1));
}

}  // namespace embedded::engines
