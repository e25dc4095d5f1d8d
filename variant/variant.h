// Variant: one typed value, converted on request into the type that its consumer needs.
#ifndef PYORV3_VARIANT_VARIANT_H
#define PYORV3_VARIANT_VARIANT_H

#include <array>
#include <cstdint>
#include <string>

#include "parameters/timestamp.h"

namespace com::tarsel::utility {

// A plain value that owns only its string. Conversions never fail: a value without a number gives
// zero. Throws std::bad_alloc if memory is exhausted.
class Variant {
  public:
    enum class DataType : std::uint32_t {
        Unknown = 0,  // nothing; the state after construction and clear
        UnsignedByte = 1,
        Uint16 = 2,
        Uint32 = 3,
        Byte = 4,  // signed, 8 bits
        Int16 = 5,
        Int32 = 6,
        Float = 7,
        Double = 8,
        String = 9,
        Int64 = 10,
        Uint64 = 11,
        Boolean = 12,   // one byte; 0 is false
        DateTime = 13,  // a date, with the same instant as a library double
        Null = 14,      // an explicit empty value
    };

    // Storage that the numeric types share, little-endian from its first byte. A DateTime holds
    // its seconds since 1858-11-17 00:00:00 UTC as a double.
    using ValueBytes = std::array<std::uint8_t, 8>;

    // String of 16-bit characters: each is one byte, sign-extended, so that 0x80 to 0xFF become
    // 0xFF80 to 0xFFFF. No code page is involved.
    using WideText = std::u16string;

    // Unknown, with the zero Timestamp.
    Variant() noexcept = default;

    // A copy normalises its date: whole seconds move from the nanoseconds to the seconds.
    Variant(const Variant& other);
    Variant& operator=(const Variant& other);
    Variant(Variant&&) noexcept = default;
    Variant& operator=(Variant&&) noexcept = default;
    ~Variant() = default;

    // Each assignment clears the Variant, then stores the value under its data type.
    Variant& operator=(std::uint16_t value);
    Variant& operator=(std::uint32_t value);
    Variant& operator=(std::int64_t value);
    Variant& operator=(float value);
    Variant& operator=(double value);
    Variant& operator=(bool value);
    Variant& operator=(const char* value);  // NUL-terminated, not null
    Variant& operator=(const Tarsel::Utility::Timestamp& value);

    // Resets the value to Unknown; the date stays.
    void clear() noexcept;

    [[nodiscard]] DataType getDataType() const noexcept { return dataType_; }

    [[nodiscard]] std::int16_t toInt16() const;
    [[nodiscard]] std::int32_t toInt32() const;
    [[nodiscard]] std::int64_t toInt64() const;
    [[nodiscard]] float toFloat() const;
    [[nodiscard]] double toDouble() const;
    [[nodiscard]] bool toBoolean() const;

    // Returns the date of the last assigned DateTime, whatever the data type is now.
    [[nodiscard]] Tarsel::Utility::Timestamp toDateTime() const noexcept { return date_; }

    // Returns the value as a string: integers in decimal, floating-point numbers and 64-bit
    // integers in the general format with six significant digits, a Uint32 as the signed number
    // with the same bits, a Boolean as 1 or 0, a date in ISO 8601 form, "unknown" and "null".
    [[nodiscard]] WideText convertToString() const;

    // Returns convertToString with the low 8 bits of each character.
    [[nodiscard]] std::string toString() const;

    // Converts a value of the data type to Target (a signed 16-, 32- or 64-bit integer, float,
    // double or bool). Integers keep their low bits; floating-point numbers are truncated toward
    // zero and saturate, NaN gives 0 (true as a bool); of a string the longest prefix that is a
    // number is used. A data type without a number (Unknown and ids above Null) is reported on
    // standard output and gives zero.
    template <typename Target>
    [[nodiscard]] static Target convert(DataType dataType, ValueBytes value, const WideText& text);

    // Converts a value of the data type to a string; an id above Null is traced and gives an empty
    // string.
    [[nodiscard]] static WideText convertToString(DataType dataType, ValueBytes value,
                                                  const Tarsel::Utility::Timestamp& date,
                                                  const WideText& text);

  private:
    template <typename Number>
    void assignNumber(DataType dataType, Number number) noexcept;

    DataType dataType_ = DataType::Unknown;
    ValueBytes value_{};
    Tarsel::Utility::Timestamp date_;
    WideText text_;
};

}  // namespace com::tarsel::utility

#endif
