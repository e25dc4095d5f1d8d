// The records of one formatted class, and the values of a record or entry.
#ifndef PYORV3_EMBEDDED_ORV_CONTENT_RECORD_BLOCK_H
#define PYORV3_EMBEDDED_ORV_CONTENT_RECORD_BLOCK_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "embedded/orv/content/checksum.h"
#include "embedded/orv/content/record_changes.h"
#include "embedded/pqar/parameter_table.h"

namespace embedded {

// The bytes of one value in the layout of its type; a string has no NUL.
using ValueBytes = std::string_view;

struct Value {
    std::uint32_t code;
    ValueBytes bytes;
};

// Values by parameter code, packed into one buffer. A file has many values but few in each record
// or entry, so they are searched linearly and need neither a node nor an allocation each.
class Values {
  public:
    static constexpr std::size_t maxValueSize = 65535;  // bytes

    class Iterator {
      public:
        explicit Iterator(const char* position) : position_(position) {}
        Value operator*() const;
        Iterator& operator++();
        bool operator==(const Iterator&) const = default;

      private:
        const char* position_;
    };

    // The values ascend by code. Views and iterators are valid until the next change.
    [[nodiscard]] Iterator begin() const { return Iterator(packed_.data()); }
    [[nodiscard]] Iterator end() const { return Iterator(packed_.data() + packed_.size()); }

    [[nodiscard]] std::optional<ValueBytes> find(std::uint32_t code) const;
    bool operator==(const Values&) const = default;

    // bytes: at most maxValueSize, not a view of this object. If it throws, the values are
    // unchanged.
    void set(std::uint32_t code, ValueBytes bytes);

  private:
    // For each value its code (4 bytes), its size (2 bytes) and its bytes. A single value of 8
    // bytes fits into the string without an allocation.
    std::string packed_;
};

struct Record {
    Values values;                // of parameters that have one value in each record
    std::vector<Values> entries;  // of parameters that have one value in each entry

    // Returns the values of an entry, or of the record itself if entry is 0.
    [[nodiscard]] const Values& valuesOf(std::size_t entry) const {
        return entry == 0 ? values : entries[entry - 1];
    }
    [[nodiscard]] Values& valuesOf(std::size_t entry) {
        return entry == 0 ? values : entries[entry - 1];
    }
    bool operator==(const Record&) const = default;
};

// A value, or the code of the reason if there is none.
struct ValueResult {
    ValueBytes bytes;
    std::uint32_t code;  // codes::success; notSet, noSuchRecord, noSuchEntry
};

// Records with entries, both numbered from 1 without gaps: writing or inserting at the number after
// the last one appends, and deleting renumbers the later ones. A block has at most 65,535 records
// of at most 65,535 entries. It records its changes for the next save.
//
// Operations that fail throw Failure and leave the block unchanged: noSuchRecord and noSuchEntry
// for numbers outside the block, blockFull if there is no room for another one.
class RecordBlock {
  public:
    static constexpr std::size_t capacity = 65535;

    RecordBlock() : checksum_(0) {}
    // Creates a block of saved records.
    explicit RecordBlock(std::vector<Record> records) : records_(std::move(records)) {}
    RecordBlock(std::vector<Record> records, Checksum checksum)
        : records_(std::move(records)), checksum_(checksum) {}

    [[nodiscard]] std::size_t recordCount() const { return records_.size(); }
    [[nodiscard]] const std::vector<Record>& records() const { return records_; }
    [[nodiscard]] const Record& record(std::size_t record) const;

    // Does not throw. entry: 0 and 1 both mean the value of a parameter with one value in each
    // record, or the first value of other parameters. If record 1 or entry 1 does not exist, its
    // values are notSet.
    [[nodiscard]] ValueResult value(const ParameterDescription& parameter, std::size_t record,
                                    std::size_t entry) const;
    // record and entry: existing or the next number. bytes: at most Values::maxValueSize.
    void setValue(const ParameterDescription& parameter, std::size_t record, std::size_t entry,
                  ValueBytes bytes);

    // entry 0: the whole record.
    void insert(std::size_t record, std::size_t entry);
    void erase(std::size_t record, std::size_t entry);

    // Replaces the record, or appends it as the next one.
    void putRecord(std::size_t record, Record content);

    // Returns the sum over the rows of all records, entries and values. Most changes update it; a
    // change that renumbers records makes the next call compute it again from all records.
    [[nodiscard]] Checksum checksum() const;

    [[nodiscard]] const RecordChanges& changes() const { return changes_; }
    void changesSaved() noexcept { changes_.clear(); }

  private:
    // The record must exist.
    void changeValue(std::size_t record, std::size_t entry, std::uint32_t code, ValueBytes bytes);
    // Calls change, which changes one existing record, and updates the checksum.
    template <typename Change>
    void changeRecord(std::size_t record, Change change);
    void addToChecksum(Checksum difference) noexcept;

    std::vector<Record> records_;
    mutable std::optional<Checksum> checksum_;  // nullopt: to be computed from the records
    RecordChanges changes_;
};

}  // namespace embedded

#endif
