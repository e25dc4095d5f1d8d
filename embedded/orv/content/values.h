// The values of one record, or of one entry of a record.
#ifndef PYORV3_EMBEDDED_ORV_CONTENT_VALUES_H
#define PYORV3_EMBEDDED_ORV_CONTENT_VALUES_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

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

}  // namespace embedded

#endif
