#include "embedded/orv/files/block_reader.h"

#include <cstring>
#include <limits>
#include <span>
#include <utility>

#include "embedded/orv/content/failure.h"
#include "embedded/pqar/parameter_codes.h"
#include "embedded/pqar/parameter_table.h"

namespace embedded {
namespace {

constexpr std::uint32_t largestNumber = 65535;  // of classes, records and entries
constexpr std::uint32_t largestCount = std::numeric_limits<std::uint32_t>::max();

[[noreturn]] void refuse() {
    throw Failure(codes::damaged);
}

SpectrumBlock spectrumOf(const StoredBytes& stored) {
    constexpr std::size_t width = sizeof(std::int32_t);
    if (stored.size() % width != 0 || stored.size() / width > SpectrumBlock::capacity) {
        refuse();
    }
    std::vector<std::int32_t> contents(stored.size() / width);
    const auto bytes = std::as_writable_bytes(std::span(contents));
    stored.read({reinterpret_cast<char*>(bytes.data()), bytes.size()});
    return SpectrumBlock(std::move(contents));
}

UnformattedBlock unformattedOf(const StoredBytes& stored) {
    if (stored.size() > UnformattedBlock::capacity) {
        refuse();
    }
    std::vector<char> bytes(stored.size());
    stored.read(bytes);
    return UnformattedBlock(std::move(bytes));
}

// Values of codes that the dictionary does not know are kept: a later dictionary may know them.
void requireFittingValue(std::uint32_t code, std::size_t entry, std::span<const char> bytes) {
    const ParameterDescription* parameter = findParameter(code);
    if (parameter == nullptr) {
        if (bytes.size() > Values::longestValue) {
            refuse();
        }
        return;
    }
    const bool rightPlace = (entry > 0) == (parameter->scope == ParameterScope::Entry);
    const bool rightSize =
        parameter->isText()
            ? bytes.size() < parameter->size() &&
                  (bytes.empty() || std::memchr(bytes.data(), '\0', bytes.size()) == nullptr)
            : bytes.size() == parameter->size();
    if (!rightPlace || !rightSize) {
        refuse();
    }
}

}  // namespace

BlockReader::BlockReader(Database& database)
    : database_(database),
      classes_(database, "SELECT class FROM block"),
      places_(database,
              "SELECT record, entry FROM place WHERE class = ? ORDER BY class, record, entry"),
      values_(database, "SELECT code, record, entry, bytes FROM value WHERE code BETWEEN ? AND ?"),
      placeCount_(database, "SELECT count(*) FROM place"),
      valueCount_(database, "SELECT count(*) FROM value") {}

std::vector<std::uint16_t> BlockReader::classes() {
    std::vector<std::uint16_t> classes;
    for (Execution row(classes_); row.step();) {
        const auto classCode = static_cast<std::uint16_t>(row.number(0, largestNumber));
        try {
            kindOf(classCode);
        } catch (const Failure&) {
            refuse();
        }
        classes.push_back(classCode);
    }
    return classes;
}

Block BlockReader::read(std::uint16_t classCode) {
    const BlockKind kind = kindOf(classCode);
    if (kind != BlockKind::Records) {
        return readContent(classCode, kind);
    }
    std::vector<Record> records = readPlaces(classCode);
    readValues(classCode, records);
    return RecordBlock(std::move(records));
}

Block BlockReader::readContent(std::uint16_t classCode, BlockKind kind) const {
    const StoredBytes stored(database_, "block", "content", classCode);
    return kind == BlockKind::Spectrum ? Block(spectrumOf(stored)) : Block(unformattedOf(stored));
}

std::vector<Record> BlockReader::readPlaces(std::uint16_t classCode) {
    std::vector<Record> records;
    for (Execution row(places_, std::int64_t{classCode}); row.step(); ++placesRead_) {
        const std::size_t record = row.number(0, largestNumber);
        const std::size_t entry = row.number(1, largestNumber);
        if (entry == 0 && record == records.size() + 1) {
            records.emplace_back();
        } else if (entry > 0 && record > 0 && record == records.size() &&
                   entry == records.back().entries.size() + 1) {
            records.back().entries.emplace_back();
        } else {
            refuse();
        }
    }
    return records;
}

void BlockReader::readValues(std::uint16_t classCode, std::vector<Record>& records) {
    const std::int64_t first = std::int64_t{classCode} << 16U;
    for (Execution row(values_, first, first + 0xFFFF); row.step(); ++valuesRead_) {
        const std::uint32_t code = row.number(0, largestCount);
        const std::size_t record = row.number(1, largestNumber);
        const std::size_t entry = row.number(2, largestNumber);
        const auto bytes = row.bytes(3);
        if (record == 0 || record > records.size() || entry > records[record - 1].entries.size()) {
            refuse();
        }
        requireFittingValue(code, entry, bytes);
        records[record - 1].valuesOf(entry).set(code, {bytes.data(), bytes.size()});
    }
}

void BlockReader::requireNothingOf(std::uint16_t classCode) {
    const std::int64_t first = std::int64_t{classCode} << 16U;
    if (Execution(places_, std::int64_t{classCode}).step() ||
        Execution(values_, first, first + 0xFFFF).step()) {
        refuse();
    }
}

void BlockReader::readAll() {
    placesRead_ = 0;
    valuesRead_ = 0;
    for (const std::uint16_t classCode : classes()) {
        read(classCode);
    }
    Execution places(placeCount_);
    Execution values(valueCount_);
    if (!places.step() || !values.step() || places.number(0, largestCount) != placesRead_ ||
        values.number(0, largestCount) != valuesRead_) {
        refuse();
    }
}

}  // namespace embedded
