// The changes in the records of a class since the last save.
#ifndef PYORV3_EMBEDDED_ORV_CONTENT_RECORD_CHANGES_H
#define PYORV3_EMBEDDED_ORV_CONTENT_RECORD_CHANGES_H

#include <compare>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <set>

namespace embedded {

// Records as little as a save needs: single values, whole records, and the first record whose
// number differs from its saved number. Recording too much only costs time; a change that is not
// recorded is lost.
class RecordChanges {
  public:
    struct ValueKey {
        std::size_t record;
        std::size_t entry;
        std::uint32_t code;

        // NOLINTNEXTLINE(modernize-use-nullptr): the check mistakes the comparison for one with 0
        auto operator<=>(const ValueKey&) const = default;
    };

    // Used instead of a code: this entry was appended to the record.
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
    // May also contain values of a record that was recorded as a whole later, and an entry that was
    // not created because memory ran out.
    [[nodiscard]] const std::set<ValueKey>& values() const { return values_; }
    [[nodiscard]] const std::set<std::size_t>& records() const { return records_; }
    // noRecord if no record has moved.
    [[nodiscard]] std::size_t movedFrom() const { return movedFrom_; }

    static constexpr std::size_t noRecord = std::numeric_limits<std::size_t>::max();

  private:
    std::set<ValueKey> values_;
    std::set<std::size_t> records_;
    std::size_t movedFrom_ = noRecord;
};

}  // namespace embedded

#endif
