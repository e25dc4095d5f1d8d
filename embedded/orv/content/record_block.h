// The records of one formatted class.
#ifndef PYORV3_EMBEDDED_ORV_CONTENT_RECORD_BLOCK_H
#define PYORV3_EMBEDDED_ORV_CONTENT_RECORD_BLOCK_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "embedded/pqar/parameter_table.h"

namespace embedded {

// The bytes of one value in the layout of its type; of a text, without the NUL. A string, because
// it keeps numbers and short texts without an allocation of their own.
using ValueBytes = std::string;

// Values by parameter code.
using Values = std::map<std::uint32_t, ValueBytes>;

struct Record {
    Values values;                // of parameters that have one value in each record
    std::vector<Values> entries;  // of parameters that have one value in each entry
};

// Numbered records with numbered entries, both counted from 1 and without holes: what is written
// or inserted one beyond the last becomes the last, and what is deleted closes the gap. A block
// holds at most 65,535 records of at most 65,535 entries.
//
// Operations that fail throw Failure and leave the block as it was: noSuchRecord and noSuchEntry
// for numbers outside the block, blockFull where no further one has room.
class RecordBlock {
  public:
    static constexpr std::size_t capacity = 65535;

    RecordBlock() = default;
    explicit RecordBlock(std::vector<Record> records) : records_(std::move(records)) {}

    [[nodiscard]] std::size_t recordCount() const { return records_.size(); }
    [[nodiscard]] const std::vector<Record>& records() const { return records_; }
    [[nodiscard]] const Record& record(std::size_t record) const;

    // The value, or null when the parameter has none there. Record 1 and entry 1 need not exist:
    // nothing has been written to them yet.
    [[nodiscard]] const ValueBytes* value(const ParameterDescription& parameter, std::size_t record,
                                          std::size_t entry) const;
    // record and entry: an existing one or the next.
    void setValue(const ParameterDescription& parameter, std::size_t record, std::size_t entry,
                  ValueBytes bytes);

    // entry 0: the whole record.
    void insert(std::size_t record, std::size_t entry);
    void erase(std::size_t record, std::size_t entry);

    // Replaces the record, or appends it as the next one.
    void putRecord(std::size_t record, Record content);

  private:
    std::vector<Record> records_;
};

// The entry at which a value stands, from the entry that a caller gives: 0 for a parameter with
// one value in each record (callers give 0 or 1), at least 1 for the others (0 means 1).
// Throws noSuchEntry.
std::size_t entryOfValue(const ParameterDescription& parameter, std::size_t entry);

}  // namespace embedded

#endif
