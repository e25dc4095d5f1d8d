#include "embedded/orv/content/record_block.h"

#include <iterator>
#include <utility>

#include "embedded/orv/content/failure.h"

namespace embedded {
namespace {

// The position of a number counted from 1, which may be one beyond the last.
template <typename Items>
std::size_t positionOrNext(const Items& items, std::size_t number, std::uint32_t missingCode) {
    if (number == 0 || number > items.size() + 1) {
        throw Failure(missingCode);
    }
    if (number > RecordBlock::capacity) {
        throw Failure(codes::blockFull);
    }
    return number - 1;
}

template <typename Items>
void insertEmpty(Items& items, std::size_t number, std::uint32_t missingCode) {
    const std::size_t position = positionOrNext(items, number, missingCode);
    if (items.size() == RecordBlock::capacity) {
        throw Failure(codes::blockFull);
    }
    items.emplace(std::next(items.begin(), static_cast<std::ptrdiff_t>(position)));
}

template <typename Items>
void eraseOne(Items& items, std::size_t number, std::uint32_t missingCode) {
    if (number == 0 || number > items.size()) {
        throw Failure(missingCode);
    }
    items.erase(std::next(items.begin(), static_cast<std::ptrdiff_t>(number - 1)));
}

template <typename Records>
auto& at(Records& records, std::size_t record) {
    if (record == 0 || record > records.size()) {
        throw Failure(codes::noSuchRecord);
    }
    return records[record - 1];
}

const ValueBytes* find(const Values& values, std::uint32_t code) {
    const auto found = values.find(code);
    return found == values.end() ? nullptr : &found->second;
}

void setIn(Record& record, std::uint32_t code, std::size_t entry, ValueBytes bytes) {
    if (entry == 0) {
        record.values.insert_or_assign(code, std::move(bytes));
        return;
    }
    const std::size_t position = positionOrNext(record.entries, entry, codes::noSuchEntry);
    if (position == record.entries.size()) {
        Values made;
        made.emplace(code, std::move(bytes));
        record.entries.push_back(std::move(made));
    } else {
        record.entries[position].insert_or_assign(code, std::move(bytes));
    }
}

}  // namespace

std::size_t entryOfValue(const ParameterDescription& parameter, std::size_t entry) {
    if (parameter.scope == ParameterScope::Entry) {
        return entry == 0 ? 1 : entry;
    }
    if (entry > 1) {
        throw Failure(codes::noSuchEntry);
    }
    return 0;
}

const Record& RecordBlock::record(std::size_t record) const {
    return at(records_, record);
}

const ValueBytes* RecordBlock::value(const ParameterDescription& parameter, std::size_t record,
                                     std::size_t entry) const {
    entry = entryOfValue(parameter, entry);
    if (record == 1 && records_.empty() && entry <= 1) {
        return nullptr;
    }
    const Record& holder = this->record(record);
    if (entry == 0) {
        return find(holder.values, parameter.code);
    }
    if (entry == 1 && holder.entries.empty()) {
        return nullptr;
    }
    if (entry > holder.entries.size()) {
        throw Failure(codes::noSuchEntry);
    }
    return find(holder.entries[entry - 1], parameter.code);
}

void RecordBlock::setValue(const ParameterDescription& parameter, std::size_t record,
                           std::size_t entry, ValueBytes bytes) {
    entry = entryOfValue(parameter, entry);
    const std::size_t position = positionOrNext(records_, record, codes::noSuchRecord);
    if (position == records_.size()) {
        Record made;
        setIn(made, parameter.code, entry, std::move(bytes));
        records_.push_back(std::move(made));
    } else {
        setIn(records_[position], parameter.code, entry, std::move(bytes));
    }
}

void RecordBlock::insert(std::size_t record, std::size_t entry) {
    if (entry == 0) {
        insertEmpty(records_, record, codes::noSuchRecord);
    } else {
        insertEmpty(at(records_, record).entries, entry, codes::noSuchEntry);
    }
}

void RecordBlock::erase(std::size_t record, std::size_t entry) {
    if (entry == 0) {
        eraseOne(records_, record, codes::noSuchRecord);
    } else {
        eraseOne(at(records_, record).entries, entry, codes::noSuchEntry);
    }
}

void RecordBlock::putRecord(std::size_t record, Record content) {
    const std::size_t position = positionOrNext(records_, record, codes::noSuchRecord);
    if (position == records_.size()) {
        records_.push_back(std::move(content));
    } else {
        records_[position] = std::move(content);
    }
}

}  // namespace embedded
