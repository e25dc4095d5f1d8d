// The data type codes with which the parameter dictionary and the data source describe a value.
#ifndef PYORV3_PARAMETERS_DATA_TYPE_H
#define PYORV3_PARAMETERS_DATA_TYPE_H

#include <array>
#include <cstdint>

namespace Tarsel::Datasources::QAR {

// The layouts of value bytes; several codes share one.
enum class ValueLayout : std::uint8_t {
    byteFlag,      // 1 byte
    shortInteger,  // 2 bytes
    longInteger,   // 4 bytes, signed
    longLong,      // 8 bytes, signed
    singleNumber,  // 4 bytes, IEEE 754 single precision
    text,          // NUL-terminated 8-bit text in the ANSI code page
    doubleNumber,  // 8 bytes, IEEE 754 double precision
    date,          // 8 bytes, IEEE 754 double: seconds since 1858-11-17 00:00:00 UTC
};

// What is known of one data type code.
struct ValueType {
    std::uint32_t code;
    ValueLayout layout;
    std::uint32_t width;   // bytes of the layout; of a text the least, its terminator
    const char* typeName;  // as scripts see it in the metadata
};

inline constexpr std::array<ValueType, 12> valueTypes{{
    {2, ValueLayout::byteFlag, 1, "byte"},
    {3, ValueLayout::shortInteger, 2, "short"},
    {6, ValueLayout::byteFlag, 1, "byte"},
    {7, ValueLayout::shortInteger, 2, "short"},
    {8, ValueLayout::longInteger, 4, "long"},
    {9, ValueLayout::longLong, 8, "longlong"},
    {10, ValueLayout::singleNumber, 4, "float"},
    {14, ValueLayout::text, 1, "str"},
    {24, ValueLayout::text, 1, "str"},
    {27, ValueLayout::doubleNumber, 8, "double"},
    {35, ValueLayout::date, 8, "Date"},
    {192, ValueLayout::doubleNumber, 8, "double"},
}};

// The table's row for a code; null for a code that the module does not know.
[[nodiscard]] constexpr const ValueType* findValueType(std::uint32_t code) noexcept {
    for (const ValueType& valueType : valueTypes) {
        if (valueType.code == code) {
            return &valueType;
        }
    }
    return nullptr;
}

// True for the text codes, whose value size is the text length plus one.
[[nodiscard]] constexpr bool isText(std::uint32_t code) noexcept {
    const ValueType* valueType = findValueType(code);
    return valueType != nullptr && valueType->layout == ValueLayout::text;
}

// The class code of a class argument or parameter code: the high 16 bits, or the low ones when the
// high ones are zero.
[[nodiscard]] constexpr std::uint16_t classCodeOf(std::uint32_t code) noexcept {
    return static_cast<std::uint16_t>((code >> 16) != 0 ? code >> 16 : code);
}

// The same of a script's class argument.
[[nodiscard]] constexpr std::uint16_t classCodeOf(std::int32_t classArgument) noexcept {
    return classCodeOf(static_cast<std::uint32_t>(classArgument));
}

}  // namespace Tarsel::Datasources::QAR

#endif
