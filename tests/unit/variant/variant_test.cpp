#include "variant/variant.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <ostream>
#include <string>
#include <vector>

#include "parameters/little_endian.h"
#include "tests/unit/variant/trace_log.h"

namespace {

using com::tarsel::utility::Variant;
using Tarsel::Utility::Timestamp;
using DataType = Variant::DataType;

constexpr double infinity = std::numeric_limits<double>::infinity();
const std::string unsupportedTypeLine =
    "com::tarsel::utility::Variant::convert::Failed to convert data type because type is not "
    "supported\n";

template <typename Value>
Variant variantOf(Value value) {
    Variant variant;
    variant = value;
    return variant;
}

template <typename Number>
Variant::ValueBytes bytesOf(Number number) {
    Variant::ValueBytes bytes{};
    Tarsel::Utility::writeLittleEndian(bytes.data(), number);
    return bytes;
}

// What the conversions make of one Variant.
struct Conversions {
    std::int16_t int16;
    std::int32_t int32;
    std::int64_t int64;
    float single;
    double number;
    bool boolean;
    std::string text;

    friend bool operator==(const Conversions&, const Conversions&) = default;
    friend std::ostream& operator<<(std::ostream& stream, const Conversions& c) {
        return stream << c.int16 << ' ' << c.int32 << ' ' << c.int64 << ' ' << c.single << ' '
                      << c.number << ' ' << c.boolean << ' ' << c.text;
    }
};

Conversions conversionsOf(const Variant& variant) {
    return {variant.toInt16(),  variant.toInt32(),   variant.toInt64(), variant.toFloat(),
            variant.toDouble(), variant.toBoolean(), variant.toString()};
}

struct AssignedCase {
    const char* name;
    Variant variant;
    DataType dataType;
    Conversions expected;
};

TEST(Variant, convertsEveryAssignedTypeToEveryTarget) {
    const std::vector<AssignedCase> cases{
        {"16 bits",
         variantOf(std::uint16_t{65535}),
         DataType::Uint16,
         {-1, 65535, 65535, 65535.0F, 65535.0, true, "65535"}},
        {"32 bits",
         variantOf(std::uint32_t{4294967295}),
         DataType::Uint32,
         {-1, -1, 4294967295, 4294967295.0F, 4294967295.0, true, "-1"}},
        {"64 bits", variantOf(std::int64_t{5}), DataType::Int64, {5, 5, 5, 5.0F, 5.0, true, "5"}},
        {"64 bits, exponent",
         variantOf(std::int64_t{123456789}),
         DataType::Int64,
         {-13035, 123456789, 123456789, 123456789.0F, 123456789.0, true, "1.23457e+08"}},
        {"float",
         variantOf(-2.7F),
         DataType::Float,
         {-2, -2, -2, -2.7F, static_cast<double>(-2.7F), true, "-2.7"}},
        {"float zero", variantOf(0.0F), DataType::Float, {0, 0, 0, 0.0F, 0.0, false, "0"}},
        {"float digits",
         variantOf(3.14159274F),
         DataType::Float,
         {3, 3, 3, 3.14159274F, static_cast<double>(3.14159274F), true, "3.14159"}},
        {"double", variantOf(0.1), DataType::Double, {0, 0, 0, 0.1F, 0.1, true, "0.1"}},
        {"double just above",
         variantOf(2147483648.0),
         DataType::Double,
         {32767, 2147483647, 2147483648, 2147483648.0F, 2147483648.0, true, "2.14748e+09"}},
        {"double above",
         variantOf(1e300),
         DataType::Double,
         {32767, 2147483647, std::numeric_limits<std::int64_t>::max(),
          std::numeric_limits<float>::infinity(), 1e300, true, "1e+300"}},
        {"double below",
         variantOf(-9.3e18),
         DataType::Double,
         {-32768, std::numeric_limits<std::int32_t>::min(),
          std::numeric_limits<std::int64_t>::min(), -9.3e18F, -9.3e18, true, "-9.3e+18"}},
        {"true", variantOf(true), DataType::Boolean, {1, 1, 1, 1.0F, 1.0, true, "1"}},
        {"false", variantOf(false), DataType::Boolean, {0, 0, 0, 0.0F, 0.0, false, "0"}},
    };
    for (const AssignedCase& testCase : cases) {
        SCOPED_TRACE(testCase.name);
        EXPECT_EQ(testCase.variant.getDataType(), testCase.dataType);
        EXPECT_EQ(conversionsOf(testCase.variant), testCase.expected);
    }
}

TEST(Variant, givesZeroForNotANumberAndCountsItAsTrue) {
    const Variant variant = variantOf(std::nan(""));
    EXPECT_EQ(variant.toInt16(), 0);
    EXPECT_EQ(variant.toInt64(), 0);
    EXPECT_TRUE(variant.toBoolean());
}

struct TextCase {
    const char* text;
    std::int64_t integer;
    double number;
    bool boolean;
};

TEST(Variant, readsTheNumericPrefixOfText) {
    const std::int64_t largest = std::numeric_limits<std::int64_t>::max();
    const std::int64_t lowest = std::numeric_limits<std::int64_t>::min();
    const std::vector<TextCase> cases{
        {"", 0, 0.0, false},
        {"42abc", 42, 42.0, true},
        {"3.9", 3, 3.9, true},
        {" \t\n-7", -7, -7.0, true},
        {"+8", 8, 8.0, true},
        {"+-8", 0, 0.0, false},
        {"- 8", 0, 0.0, false},
        {"0", 0, 0.0, false},
        {"abc", 0, 0.0, false},
        {".5", 0, 0.5, false},
        {"-.25e1x", 0, -2.5, false},
        {"2e", 2, 2.0, true},
        {"0x10", 0, 0.0, false},
        {"inf", 0, 0.0, false},
        {"-nan", 0, 0.0, false},
        {"Yes", 0, 0.0, true},
        {"true", 0, 0.0, true},
        {"No", 0, 0.0, false},
        {"false", 0, 0.0, false},
        {" true", 0, 0.0, false},
        {"1\xB2", 1, 1.0, true},
        {"99999999999999999999", largest, 1e20, true},
        {"-99999999999999999999", lowest, -1e20, true},
        {"1e999", 1, infinity, true},
        {"-1e+999", -1, -infinity, true},
        {"0.01e-999", 0, 0.0, false},
    };
    for (const TextCase& testCase : cases) {
        SCOPED_TRACE(testCase.text);
        const Variant variant = variantOf(testCase.text);
        EXPECT_EQ(variant.toInt64(), testCase.integer);
        EXPECT_EQ(variant.toInt16(), static_cast<std::int16_t>(testCase.integer));
        EXPECT_EQ(variant.toDouble(), testCase.number);
        EXPECT_EQ(variant.toFloat(), static_cast<float>(testCase.number));
        EXPECT_EQ(variant.toBoolean(), testCase.boolean);
        EXPECT_EQ(variant.toString(), testCase.text);
    }
}

TEST(Variant, tellsNumbersAboveTheRangeFromNumbersBelowIt) {
    const std::string manyZeros(400, '0');
    EXPECT_EQ(variantOf(("1" + manyZeros).c_str()).toDouble(), infinity);
    EXPECT_EQ(variantOf(("0." + manyZeros + "1").c_str()).toDouble(), 0.0);
    EXPECT_EQ(variantOf(("1" + manyZeros + manyZeros + "e-1").c_str()).toDouble(), infinity);
    EXPECT_EQ(variantOf(("1" + manyZeros + "e-400").c_str()).toDouble(), 1.0);
}

struct StoredCase {
    DataType dataType;
    Variant::ValueBytes value;
    std::int64_t integer;
    double number;
    bool boolean;
    std::u16string text;
};

TEST(Variant, acceptsTheTypesThatNoAssignmentProduces) {
    const std::vector<StoredCase> cases{
        {DataType::UnsignedByte, bytesOf(std::uint16_t{0x01FF}), 255, 255.0, true, u"255"},
        {DataType::Byte, bytesOf(std::uint16_t{0x01FF}), -1, -1.0, true, u"-1"},
        {DataType::Int16, bytesOf(std::int16_t{-300}), -300, -300.0, true, u"-300"},
        {DataType::Int32, bytesOf(std::int32_t{-70000}), -70000, -70000.0, true, u"-70000"},
        {DataType::Uint64, bytesOf(std::uint64_t{0xFFFFFFFFFFFFFFFF}), -1, 18446744073709551615.0,
         true, u"1.84467e+19"},
        {DataType::Boolean, bytesOf(std::uint8_t{7}), 1, 1.0, true, u"1"},
        {DataType::Null, bytesOf(std::int64_t{-1}), 0, 0.0, false, u"null"},
    };
    for (const StoredCase& testCase : cases) {
        SCOPED_TRACE(static_cast<std::uint32_t>(testCase.dataType));
        EXPECT_EQ(Variant::convert<std::int64_t>(testCase.dataType, testCase.value, {}),
                  testCase.integer);
        EXPECT_EQ(Variant::convert<double>(testCase.dataType, testCase.value, {}), testCase.number);
        EXPECT_EQ(Variant::convert<bool>(testCase.dataType, testCase.value, {}), testCase.boolean);
        EXPECT_EQ(Variant::convertToString(testCase.dataType, testCase.value, {}, {}),
                  testCase.text);
    }
}

TEST(Variant, saysOnStandardOutputThatATypeHoldsNoNumber) {
    const Variant empty;
    const auto beyondTheTable = static_cast<DataType>(15);
    testing::internal::CaptureStdout();
    EXPECT_EQ(empty.toInt32(), 0);
    EXPECT_EQ(empty.toDouble(), 0.0);
    EXPECT_FALSE(Variant::convert<bool>(beyondTheTable, bytesOf(1.0), {}));
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              unsupportedTypeLine + unsupportedTypeLine + unsupportedTypeLine);
    EXPECT_EQ(empty.convertToString(), u"unknown");
    EXPECT_EQ(empty.toDateTime(), Timestamp());
}

TEST(Variant, tracesTheTextOfAnUnknownType) {
    const testing_support::TraceLog log;
    EXPECT_EQ(Variant::convertToString(static_cast<DataType>(15), bytesOf(1.0), {}, u"text"), u"");
    EXPECT_EQ(log.reports(),
              std::vector{testing_support::failure("Variant::convertToString",
                                                   "Cannot convert unknown type", 0x80004005)});
}

TEST(Variant, widensBytesWithTheirSignAndBringsThemBack) {
    const Variant variant = variantOf("A\x7F\x80\xE9\xFF");
    EXPECT_EQ(variant.convertToString(), u"A\u007F\uFF80\uFFE9\uFFFF");
    EXPECT_EQ(variant.toString(), "A\x7F\x80\xE9\xFF");
}

TEST(Variant, holdsADateAsTimestampAndAsLibraryDouble) {
    const Variant variant = variantOf(Timestamp(1706130132, 123456789));
    EXPECT_EQ(variant.getDataType(), DataType::DateTime);
    EXPECT_EQ(variant.toDateTime(), Timestamp(1706130132, 123456789));
    EXPECT_DOUBLE_EQ(variant.toDouble(), 5212846932.1234568);
    EXPECT_EQ(variant.toInt64(), 5212846932);
    EXPECT_EQ(variant.toString(), "2024-01-24T21:02:12.123Z");
}

TEST(Variant, keepsItsDateThroughClearAssignmentAndCopy) {
    Variant variant = variantOf(Timestamp(1000, 5));
    variant.clear();
    EXPECT_EQ(variant.getDataType(), DataType::Unknown);
    variant = 2.5;
    EXPECT_EQ(variant.toDateTime(), Timestamp(1000, 5));
    const Variant copy(variant);
    EXPECT_EQ(copy.toDateTime(), Timestamp(1000, 5));
    EXPECT_EQ(copy.toDouble(), 2.5);
}

TEST(Variant, forgetsTheFormerValueWhenOneIsAssigned) {
    Variant variant = variantOf(std::int64_t{-1});
    variant = std::uint16_t{1};
    EXPECT_EQ(variant.toInt64(), 1);
    variant = "12";
    variant = true;
    EXPECT_EQ(variant.toString(), "1");
    Variant other;
    other = "long enough to be stored outside the string object";
    const Variant& itself = other;
    other = itself;
    EXPECT_EQ(other.toString(), "long enough to be stored outside the string object");
}

TEST(Variant, carriesWholeSecondsOfTheNanosecondsWhenCopied) {
    const Variant variant = variantOf(Timestamp(10, 1'500'000'000));
    EXPECT_EQ(variant.toDateTime(), Timestamp(10, 1'500'000'000));
    Variant copy;
    copy = variant;
    EXPECT_EQ(copy.toDateTime(), Timestamp(11, 500'000'000));
}

}  // namespace
