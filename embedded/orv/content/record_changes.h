// What was changed in the records of a class since they were saved.
#ifndef PYORV3_EMBEDDED_ORV_CONTENT_RECORD_CHANGES_H
#define PYORV3_EMBEDDED_ORV_CONTENT_RECORD_CHANGES_H

#include <compare>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <set>

namespace embedded {

// Notes as little as a save needs to write: single values, whole records, and the record from
// which on everything has another number than it was saved under. What is noted too much costs
// time only; what is not noted is lost.
class RecordChanges {
  public:
    struct ValuePlace {
        std::size_t record;
        std::size_t entry;
        std::uint32_t code;

        // NOLINTNEXTLINE(modernize-use-nullptr): the check mistakes the comparison for one with 0
        auto operator<=>(const ValuePlace&) const = default;
    };

    // In the place of a code: the record got this entry as its last.
    static constexpr std::uint32_t newEntry = 0;

    void noteValue(std::size_t record, std::size_t entry, std::uint32_t code) {
        if (record < movedFrom_ && !records_.contains(record)) {
            values_.insert({record, entry, code});
        }
    }
    void noteRecord(std::size_t record) {
        if (record < movedFrom_) {
            records_.insert(record);
        }
    }
    void noteFrom(std::size_t record) noexcept {
        if (record < movedFrom_) {
            movedFrom_ = record;
            values_.erase(values_.lower_bound({record, 0, 0}), values_.end());
            records_.erase(records_.lower_bound(record), records_.end());
        }
    }
    void clear() noexcept { *this = RecordChanges(); }

    [[nodiscard]] bool empty() const {
        return values_.empty() && records_.empty() && movedFrom_ == noRecord;
    }
    // Those of a record that was noted as a whole later may be among them, and an entry that for
    // lack of memory was not made after all.
    [[nodiscard]] const std::set<ValuePlace>& values() const { return values_; }
    [[nodiscard]] const std::set<std::size_t>& records() const { return records_; }
    // noRecord when none has moved.
    [[nodiscard]] std::size_t movedFrom() const { return movedFrom_; }

    static constexpr std::size_t noRecord = std::numeric_limits<std::size_t>::max();

  private:
    std::set<ValuePlace> values_;
    std::set<std::size_t> records_;
    std::size_t movedFrom_ = noRecord;
};

}  // namespace embedded

#endif
