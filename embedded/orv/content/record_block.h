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

// The bytes of one value in the layout of its type; of a text, without the NUL.
using ValueBytes = std::string_view;

struct Value {
    std::uint32_t code;
    ValueBytes bytes;
};

// Values by parameter code, packed into one buffer: a file has very many of them and few in one
// place, so that they are looked for in turn and need neither a node nor an allocation each.
class Values {
  public:
    static constexpr std::size_t longestValue = 65535;  // bytes

    class Iterator {
      public:
        explicit Iterator(const char* place) : place_(place) {}
        Value operator*() const;
        Iterator& operator++();
        bool operator==(const Iterator&) const = default;

      private:
        const char* place_;
    };

    // The values ascend by code. Views and iterators hold until the next change.
    [[nodiscard]] Iterator begin() const { return Iterator(packed_.data()); }
    [[nodiscard]] Iterator end() const { return Iterator(packed_.data() + packed_.size()); }

    [[nodiscard]] std::optional<ValueBytes> find(std::uint32_t code) const;

    // bytes: at most longestValue, not of this object. Leaves the values as they were when it
    // throws.
    void set(std::uint32_t code, ValueBytes bytes);

  private:
    // Of each value: its code (4 bytes), the number of its bytes (2) and the bytes. A number of 8
    // bytes that stands alone fits into the string without an allocation.
    std::string packed_;
};

struct Record {
    Values values;                // of parameters that have one value in each record
    std::vector<Values> entries;  // of parameters that have one value in each entry

    // The values of entry 1, 2, ..., or of the record itself where entry is 0.
    [[nodiscard]] const Values& valuesOf(std::size_t entry) const {
        return entry == 0 ? values : entries[entry - 1];
    }
    [[nodiscard]] Values& valuesOf(std::size_t entry) {
        return entry == 0 ? values : entries[entry - 1];
    }
};

// A value, or the code of the reason why there is none.
struct ValueFound {
    ValueBytes bytes;
    std::uint32_t code;  // codes::success; notSet, noSuchRecord, noSuchEntry
};

// Numbered records with numbered entries, both counted from 1 and without holes: what is written
// or inserted one beyond the last becomes the last, and what is deleted closes the gap. A block
// holds at most 65,535 records of at most 65,535 entries. It notes what is changed.
//
// Operations that fail throw Failure and leave the block as it was: noSuchRecord and noSuchEntry
// for numbers outside the block, blockFull where no further one has room.
class RecordBlock {
  public:
    static constexpr std::size_t capacity = 65535;

    RecordBlock() : checksum_(0) {}
    // Records as they were saved.
    explicit RecordBlock(std::vector<Record> records) : records_(std::move(records)) {}
    RecordBlock(std::vector<Record> records, Checksum checksum)
        : records_(std::move(records)), checksum_(checksum) {}

    [[nodiscard]] std::size_t recordCount() const { return records_.size(); }
    [[nodiscard]] const std::vector<Record>& records() const { return records_; }
    [[nodiscard]] const Record& record(std::size_t record) const;

    // Does not throw. entry: 0 and 1 both name the value of a parameter that has one in each
    // record, and the first value of the others. Record 1 and entry 1 need not exist: nothing has
    // been written to them yet.
    [[nodiscard]] ValueFound value(const ParameterDescription& parameter, std::size_t record,
                                   std::size_t entry) const;
    // record and entry: an existing one or the next. bytes: at most Values::longestValue.
    void setValue(const ParameterDescription& parameter, std::size_t record, std::size_t entry,
                  ValueBytes bytes);

    // entry 0: the whole record.
    void insert(std::size_t record, std::size_t entry);
    void erase(std::size_t record, std::size_t entry);

    // Replaces the record, or appends it as the next one.
    void putRecord(std::size_t record, Record content);

    // The sum over the rows of all records, entries and values. Follows most changes; computed
    // again from all records after one that has renumbered some.
    [[nodiscard]] Checksum checksum() const;

    [[nodiscard]] const RecordChanges& changes() const { return changes_; }
    void changesSaved() noexcept { changes_.clear(); }

  private:
    // In a record that there is.
    void changeValue(std::size_t record, std::size_t entry, std::uint32_t code, ValueBytes bytes);
    // Calls change, which changes one existing record, and corrects the checksum by it.
    template <typename Change>
    void changeRecord(std::size_t record, Change change);
    void addToChecksum(Checksum difference) noexcept;

    std::vector<Record> records_;
    mutable std::optional<Checksum> checksum_;  // nullopt: to be computed from the records
    RecordChanges changes_;
};

}  // namespace embedded

#endif
