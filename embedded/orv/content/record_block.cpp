#include "embedded/orv/content/record_block.h"

#include <cstring>
#include <iterator>
#include <utility>

#include "embedded/orv/content/failure.h"

namespace embedded {
namespace {

constexpr std::size_t codeSize = sizeof(std::uint32_t);
constexpr std::size_t headSize = codeSize + sizeof(std::uint16_t);

template <typename Number>
Number numberAt(const char* position) {
    Number number{};
    std::memcpy(&number, position, sizeof number);
    return number;
}

// Throws if a number, counted from 1, is neither in use nor the next one.
template <typename Items>
void requireThisOrNext(const Items& items, std::size_t number, std::uint32_t missingCode) {
    if (number == 0 || number > items.size() + 1) {
        throw Failure(missingCode);
    }
    if (number > RecordBlock::capacity) {
        throw Failure(codes::blockFull);
    }
}

template <typename Items>
void requireRoom(const Items& items) {
    if (items.size() == RecordBlock::capacity) {
        throw Failure(codes::blockFull);
    }
}

template <typename Items>
void requireThis(const Items& items, std::size_t number, std::uint32_t missingCode) {
    if (number == 0 || number > items.size()) {
        throw Failure(missingCode);
    }
}

// Reserves memory for one more item.
template <typename Items>
void makeRoom(Items& items) {
    if (items.size() == items.capacity()) {
        items.reserve(2 * items.size() + 1);
    }
}

template <typename Items>
auto positionOf(Items& items, std::size_t number) {
    return std::next(items.begin(), static_cast<std::ptrdiff_t>(number - 1));
}

ValueResult resultIn(const Values& values, std::uint32_t code) {
    const auto bytes = values.find(code);
    return bytes ? ValueResult{*bytes, codes::success} : ValueResult{{}, codes::notSet};
}

// Returns the entry under which a value is stored, for the entry that a caller passes.
std::size_t entryOfValue(const ParameterDescription& parameter, std::size_t entry) {
    if (parameter.scope == ParameterScope::Entry) {
        return entry == 0 ? 1 : entry;
    }
    return entry == 1 ? 0 : entry;
}

Checksum checksumOfMark(std::size_t record, std::size_t entry) {
    return checksumOfRow(0, record, entry, {});
}

// Returns the sum over the rows of the record with this number.
Checksum checksumOfRecord(std::size_t number, const Record& record) {
    Checksum sum = 0;
    for (std::size_t entry = 0; entry <= record.entries.size(); ++entry) {
        sum += checksumOfMark(number, entry);
        for (const Value value : record.valuesOf(entry)) {
            sum += checksumOfRow(value.code, number, entry, value.bytes);
        }
    }
    return sum;
}

bool hasOneInEachRecord(const ParameterDescription& parameter) {
    return parameter.scope == ParameterScope::Record;
}

}  // namespace

Value Values::Iterator::operator*() const {
    return {numberAt<std::uint32_t>(position_),
            {position_ + headSize, numberAt<std::uint16_t>(position_ + codeSize)}};
}

Values::Iterator& Values::Iterator::operator++() {
    position_ += headSize + numberAt<std::uint16_t>(position_ + codeSize);
    return *this;
}

std::optional<ValueBytes> Values::find(std::uint32_t code) const {
    for (const Value value : *this) {
        if (value.code == code) {
            return value.bytes;
        }
    }
    return std::nullopt;
}

void Values::set(std::uint32_t code, ValueBytes bytes) {
    const auto length = static_cast<std::uint16_t>(bytes.size());
    std::string packed(headSize, '\0');
    std::memcpy(packed.data(), &code, sizeof code);
    std::memcpy(packed.data() + codeSize, &length, sizeof length);
    packed.append(bytes);

    std::size_t offset = 0;
    std::size_t replaced = 0;
    for (const Value value : *this) {
        if (value.code >= code) {
            replaced = value.code == code ? headSize + value.bytes.size() : 0;
            break;
        }
        offset += headSize + value.bytes.size();
    }
    packed_.replace(offset, replaced, packed);
}

const Record& RecordBlock::record(std::size_t record) const {
    requireThis(records_, record, codes::noSuchRecord);
    return records_[record - 1];
}

ValueResult RecordBlock::value(const ParameterDescription& parameter, std::size_t record,
                               std::size_t entry) const {
    entry = entryOfValue(parameter, entry);
    if (hasOneInEachRecord(parameter) && entry > 0) {
        return {{}, codes::noSuchEntry};
    }
    if (record == 0 || record > records_.size()) {
        const bool isFirst = record == 1 && entry <= 1;
        return {{}, isFirst ? codes::notSet : codes::noSuchRecord};
    }
    const Record& holder = records_[record - 1];
    if (entry > holder.entries.size()) {
        return {{}, entry == 1 ? codes::notSet : codes::noSuchEntry};
    }
    return resultIn(holder.valuesOf(entry), parameter.code);
}

void RecordBlock::setValue(const ParameterDescription& parameter, std::size_t record,
                           std::size_t entry, ValueBytes bytes) {
    entry = entryOfValue(parameter, entry);
    if (hasOneInEachRecord(parameter) && entry > 0) {
        throw Failure(codes::noSuchEntry);
    }
    requireThisOrNext(records_, record, codes::noSuchRecord);
    if (record <= records_.size()) {
        changeValue(record, entry, parameter.code, bytes);
        return;
    }
    Record newRecord;
    if (entry > 0) {
        requireThisOrNext(newRecord.entries, entry, codes::noSuchEntry);
        newRecord.entries.emplace_back();
    }
    newRecord.valuesOf(entry).set(parameter.code, bytes);
    putRecord(record, std::move(newRecord));
}

void RecordBlock::changeValue(std::size_t record, std::size_t entry, std::uint32_t code,
                              ValueBytes bytes) {
    Record& holder = records_[record - 1];
    if (entry > 0) {
        requireThisOrNext(holder.entries, entry, codes::noSuchEntry);
    }
    const bool isNew = entry > holder.entries.size();
    Values values = isNew ? Values() : holder.valuesOf(entry);
    Checksum difference = isNew ? checksumOfMark(record, entry) : 0;
    if (const auto old = values.find(code)) {
        difference -= checksumOfRow(code, record, entry, *old);
    }
    difference += checksumOfRow(code, record, entry, bytes);
    values.set(code, bytes);
    if (isNew) {
        makeRoom(holder.entries);
        changes_.noteValue(record, entry, RecordChanges::newEntry);
    }
    changes_.noteValue(record, entry, code);
    addToChecksum(difference);
    if (isNew) {
        holder.entries.push_back(std::move(values));
    } else {
        holder.valuesOf(entry) = std::move(values);
    }
}

void RecordBlock::insert(std::size_t record, std::size_t entry) {
    if (entry == 0) {
        requireThisOrNext(records_, record, codes::noSuchRecord);
        requireRoom(records_);
        if (record > records_.size()) {
            putRecord(record, Record());
            return;
        }
        records_.emplace(positionOf(records_, record));
        changes_.noteFrom(record);
        checksum_.reset();
        return;
    }
    requireThis(records_, record, codes::noSuchRecord);
    auto& entries = records_[record - 1].entries;
    requireThisOrNext(entries, entry, codes::noSuchEntry);
    requireRoom(entries);
    makeRoom(entries);
    changeRecord(record, [&] { entries.emplace(positionOf(entries, entry)); });
}

void RecordBlock::erase(std::size_t record, std::size_t entry) {
    requireThis(records_, record, codes::noSuchRecord);
    if (entry == 0) {
        if (record == records_.size()) {
            addToChecksum(Checksum{0} - checksumOfRecord(record, records_.back()));
        } else {
            checksum_.reset();
        }
        records_.erase(positionOf(records_, record));
        changes_.noteFrom(record);
        return;
    }
    auto& entries = records_[record - 1].entries;
    requireThis(entries, entry, codes::noSuchEntry);
    changeRecord(record, [&] { entries.erase(positionOf(entries, entry)); });
}

void RecordBlock::putRecord(std::size_t record, Record content) {
    requireThisOrNext(records_, record, codes::noSuchRecord);
    if (record <= records_.size()) {
        changeRecord(record, [&] { records_[record - 1] = std::move(content); });
        return;
    }
    const Checksum difference = checksumOfRecord(record, content);
    records_.push_back(std::move(content));
    changes_.noteFrom(record);
    addToChecksum(difference);
}

// ---- Changes and checksum --------------------------------------------------------------------

template <typename Change>
void RecordBlock::changeRecord(std::size_t record, Change change) {
    changes_.noteRecord(record);
    const Checksum before = checksumOfRecord(record, records_[record - 1]);
    change();
    addToChecksum(checksumOfRecord(record, records_[record - 1]) - before);
}

void RecordBlock::addToChecksum(Checksum difference) noexcept {
    if (checksum_) {
        *checksum_ += difference;
    }
}

Checksum RecordBlock::checksum() const {
    if (!checksum_) {
        Checksum sum = 0;
        std::size_t number = 0;
        for (const Record& record : records_) {
            sum += checksumOfRecord(++number, record);
        }
        checksum_ = sum;
    }
    return *checksum_;
}

}  // namespace embedded
