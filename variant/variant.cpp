#include "variant/variant.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <concepts>
#include <cstdint>
#include <iostream>
#include <limits>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

#include "module/status/status.h"
#include "module/status/trace.h"
#include "parameters/byte_stream.h"

namespace com::tarsel::utility {

using Tarsel::Utility::readLittleEndian;
using Tarsel::Utility::Timestamp;
using Tarsel::Utility::writeLittleEndian;

namespace {

// ---- Numbers in strings ----
// Conversion of strings to numbers, independent of the locale of the process, which a script may
// change. Each function skips leading white space and reads the longest prefix that is a number; a
// string without one gives zero.

constexpr std::string_view digits = "0123456789";

// Returns the part of the string that can contain a number: without leading white space and a
// leading plus sign, which std::from_chars refuses, up to the first character outside ASCII.
std::string numberCandidate(std::u16string_view text) {
    constexpr std::u16string_view whiteSpace = u" \t\n\v\f\r";
    text.remove_prefix(std::min(text.find_first_not_of(whiteSpace), text.size()));
    const bool hasPlus = text.starts_with(u'+');
    text.remove_prefix(hasPlus ? 1 : 0);
    if (hasPlus && text.starts_with(u'-')) {
        return {};
    }
    std::string candidate;
    for (const char16_t character : text) {
        constexpr char16_t lastOfAscii = 0x7F;
        if (character > lastOfAscii) {
            break;
        }
        candidate += static_cast<char>(character);
    }
    return candidate;
}

// Without a sign: std::from_chars alone would also accept "inf" and "nan".
bool beginsWithDecimalNumber(std::string_view candidate) {
    candidate.remove_prefix(candidate.starts_with('-') ? 1 : 0);
    candidate.remove_prefix(candidate.starts_with('.') ? 1 : 0);
    return !candidate.empty() && digits.find(candidate.front()) != std::string_view::npos;
}

std::int64_t readInteger(std::string_view candidate) {
    std::int64_t number = 0;
    const auto [end, error] =
        std::from_chars(candidate.data(), candidate.data() + candidate.size(), number);
    if (error == std::errc::result_out_of_range) {
        using Limits = std::numeric_limits<std::int64_t>;
        return candidate.starts_with('-') ? Limits::min() : Limits::max();
    }
    return number;
}

// Returns infinity or zero for a well-formed number outside the range of double, depending on the
// power of ten of its first significant digit, which is far from zero.
double beyondRange(std::string_view number) {
    const std::size_t mantissaSize = std::min(number.find_first_of("eE"), number.size());
    const std::string_view mantissa = number.substr(0, mantissaSize);
    std::string_view exponent = number.substr(mantissaSize);
    exponent.remove_prefix(std::min(exponent.find_first_of("-0123456789"), exponent.size()));

    const auto point = static_cast<std::int64_t>(std::min(mantissa.find('.'), mantissa.size()));
    const auto firstDigit = static_cast<std::int64_t>(mantissa.find_first_of("123456789"));
    const bool isLarge = readInteger(exponent) > firstDigit - point;
    const double magnitude = isLarge ? std::numeric_limits<double>::infinity() : 0.0;
    return number.starts_with('-') ? -magnitude : magnitude;
}

// Reads an optional sign and decimal digits. Outside 64 bits: the nearest 64-bit number.
std::int64_t integerIn(std::u16string_view text) {
    return readInteger(numberCandidate(text));
}

// Reads a decimal floating-point number like std::wcstod. Too large: infinity; too small: 0, both
// with their sign.
double floatingNumberIn(std::u16string_view text) {
    const std::string candidate = numberCandidate(text);
    if (!beginsWithDecimalNumber(candidate)) {
        return 0.0;
    }
    double number = 0.0;
    const char* const begin = candidate.data();
    const auto [end, error] = std::from_chars(begin, begin + candidate.size(), number);
    if (error == std::errc::result_out_of_range) {
        return beyondRange({begin, end});
    }
    return number;
}

// T, t, Y, y at the front are true and F, f, N, n false; any other string is true if its integer is
// not zero.
bool flagIn(std::u16string_view text) {
    constexpr std::u16string_view trueLetters = u"TtYy";
    constexpr std::u16string_view falseLetters = u"FfNn";
    if (text.empty() || falseLetters.find(text.front()) != std::u16string_view::npos) {
        return false;
    }
    return trueLetters.find(text.front()) != std::u16string_view::npos || integerIn(text) != 0;
}

// ---- Values ----

Timestamp normalised(const Timestamp& date) {
    Timestamp copy;
    copy.setSeconds(date.seconds());
    copy.setNanoseconds(date.nanoseconds());
    return copy;
}

Variant::WideText widened(std::string_view text) {
    Variant::WideText wide;
    wide.reserve(text.size());
    for (const char byte : text) {
        wide += static_cast<char16_t>(static_cast<signed char>(byte));
    }
    return wide;
}

// Truncates toward zero; a number outside the range of Integer becomes the nearest limit.
template <std::signed_integral Integer, std::floating_point Number>
Integer saturated(Number number) {
    using Limits = std::numeric_limits<Integer>;
    constexpr auto lowest = static_cast<Number>(Limits::min());  // a power of two: exact
    if (std::isnan(number)) {
        return 0;
    }
    if (number < lowest) {
        return Limits::min();
    }
    return number >= -lowest ? Limits::max() : static_cast<Integer>(number);
}

template <typename Target, typename Number>
Target numberTo(Number number) {
    if constexpr (std::same_as<Target, bool>) {
        return number != Number{};
    } else if constexpr (std::integral<Target> && std::floating_point<Number>) {
        return saturated<Target>(number);
    } else {
        return static_cast<Target>(number);
    }
}

template <typename Target>
Target textTo(const Variant::WideText& text) {
    if constexpr (std::same_as<Target, bool>) {
        return flagIn(text);
    } else if constexpr (std::floating_point<Target>) {
        return static_cast<Target>(floatingNumberIn(text));
    } else {
        return static_cast<Target>(integerIn(text));
    }
}

// Returns the number in the format %g of printf in the C locale.
std::string generalFormat(double number) {
    constexpr int significantDigits = 6;
    std::array<char, 32> buffer{};
    const auto [end, error] = std::to_chars(buffer.data(), buffer.data() + buffer.size(), number,
                                            std::chars_format::general, significantDigits);
    return {buffer.data(), end};
}

}  // namespace

Variant::Variant(const Variant& other)
    : dataType_(other.dataType_),
      value_(other.value_),
      date_(normalised(other.date_)),
      text_(other.text_) {}

Variant& Variant::operator=(const Variant& other) {
    if (this != &other) {
        *this = Variant(other);
    }
    return *this;
}

template <typename Number>
void Variant::assignNumber(DataType dataType, Number number) noexcept {
    clear();
    writeLittleEndian(value_.data(), number);
    dataType_ = dataType;
}

Variant& Variant::operator=(std::uint16_t value) {
    assignNumber(DataType::Uint16, value);
    return *this;
}

Variant& Variant::operator=(std::uint32_t value) {
    assignNumber(DataType::Uint32, value);
    return *this;
}

Variant& Variant::operator=(std::int64_t value) {
    assignNumber(DataType::Int64, value);
    return *this;
}

Variant& Variant::operator=(float value) {
    assignNumber(DataType::Float, value);
    return *this;
}

Variant& Variant::operator=(double value) {
    assignNumber(DataType::Double, value);
    return *this;
}

Variant& Variant::operator=(bool value) {
    assignNumber(DataType::Boolean, static_cast<std::uint8_t>(value ? 1 : 0));
    return *this;
}

Variant& Variant::operator=(const char* value) {
    WideText text = widened(value);
    clear();
    text_ = std::move(text);
    dataType_ = DataType::String;
    return *this;
}

Variant& Variant::operator=(const Timestamp& value) {
    date_ = value;
    assignNumber(DataType::DateTime, value.toDouble());
    return *this;
}

void Variant::clear() noexcept {
    dataType_ = DataType::Unknown;
    value_.fill(0);
    text_.clear();
}

std::int16_t Variant::toInt16() const {
    return convert<std::int16_t>(dataType_, value_, text_);
}
std::int32_t Variant::toInt32() const {
    return convert<std::int32_t>(dataType_, value_, text_);
}
std::int64_t Variant::toInt64() const {
    return convert<std::int64_t>(dataType_, value_, text_);
}
float Variant::toFloat() const {
    return convert<float>(dataType_, value_, text_);
}
double Variant::toDouble() const {
    return convert<double>(dataType_, value_, text_);
}
bool Variant::toBoolean() const {
    return convert<bool>(dataType_, value_, text_);
}

Variant::WideText Variant::convertToString() const {
    return convertToString(dataType_, value_, date_, text_);
}

std::string Variant::toString() const {
    std::string narrow;
    for (const char16_t character : convertToString()) {
        narrow += static_cast<char>(character);
    }
    return narrow;
}

template <typename Target>
Target Variant::convert(DataType dataType, ValueBytes value, const WideText& text) {
    const std::uint8_t* const bytes = value.data();
    switch (dataType) {
        case DataType::UnsignedByte:
            return numberTo<Target>(readLittleEndian<std::uint8_t>(bytes));
        case DataType::Uint16:
            return numberTo<Target>(readLittleEndian<std::uint16_t>(bytes));
        case DataType::Uint32:
            return numberTo<Target>(readLittleEndian<std::uint32_t>(bytes));
        case DataType::Uint64:
            return numberTo<Target>(readLittleEndian<std::uint64_t>(bytes));
        case DataType::Byte:
            return numberTo<Target>(readLittleEndian<std::int8_t>(bytes));
        case DataType::Int16:
            return numberTo<Target>(readLittleEndian<std::int16_t>(bytes));
        case DataType::Int32:
            return numberTo<Target>(readLittleEndian<std::int32_t>(bytes));
        case DataType::Int64:
            return numberTo<Target>(readLittleEndian<std::int64_t>(bytes));
        case DataType::Float:
            return numberTo<Target>(readLittleEndian<float>(bytes));
        case DataType::Double:
        case DataType::DateTime:
            return numberTo<Target>(readLittleEndian<double>(bytes));
        case DataType::Boolean:
            return static_cast<Target>(bytes[0] != 0);
        case DataType::String:
            return textTo<Target>(text);
        case DataType::Null:
            return Target{};
        case DataType::Unknown:
            break;
    }
    std::cout << "com::tarsel::utility::Variant::convert::Failed to convert data type because type "
                 "is not supported\n"
              << std::flush;
    return Target{};
}

template std::int16_t Variant::convert(DataType, ValueBytes, const WideText&);
template std::int32_t Variant::convert(DataType, ValueBytes, const WideText&);
template std::int64_t Variant::convert(DataType, ValueBytes, const WideText&);
template float Variant::convert(DataType, ValueBytes, const WideText&);
template double Variant::convert(DataType, ValueBytes, const WideText&);
template bool Variant::convert(DataType, ValueBytes, const WideText&);

Variant::WideText Variant::convertToString(DataType dataType, ValueBytes value,
                                           const Timestamp& date, const WideText& text) {
    switch (dataType) {
        case DataType::Unknown:
            return u"unknown";
        case DataType::UnsignedByte:
        case DataType::Uint16:
        case DataType::Uint32:  // shown as the signed number of the same bits
        case DataType::Byte:
        case DataType::Int16:
        case DataType::Int32:
        case DataType::Boolean:
            return widened(std::to_string(convert<std::int32_t>(dataType, value, text)));
        case DataType::Float:
        case DataType::Double:
        case DataType::Int64:
        case DataType::Uint64:
            return widened(generalFormat(convert<double>(dataType, value, text)));
        case DataType::String:
            return text;
        case DataType::DateTime:
            return widened(date.format(true, 0, {}));
        case DataType::Null:
            return u"null";
    }
    pyORV3::trace("Variant::convertToString", pyORV3::failureLevel, "Cannot convert unknown type",
                  pyORV3::unspecifiedFailure);
    return {};
}

}  // namespace com::tarsel::utility
