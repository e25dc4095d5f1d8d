#include "variant/variant.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "parameters/little_endian.h"
#include "tests/unit/variant/trace_log.h"

namespace {

using com::tarsel::utility::Variant;
using Tarsel::Utility::Timestamp;
using DataType = Variant::DataType;

constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr std::int64_t largest = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t lowest = std::numeric_limits<std::int64_t>::min();
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

TEST(Variant, convertsEveryAssignedTypeToEveryTarget) {
    struct Case {
        Variant variant;
        DataType dataType;
        std::int16_t int16;
        std::int32_t int32;
        std::int64_t int64;
        double number;
        bool boolean;
        const char* text;
    };
    constexpr std::int32_t lowest32 = std::numeric_limits<std::int32_t>::min();
    const std::vector<Case> cases{
        {variantOf(std::uint16_t{65535}), DataType::Uint16, -1, 65535, 65535, 65535, true, "65535"},
        {variantOf(0xFFFFFFFFU), DataType::Uint32, -1, -1, 4294967295, 4294967295, true, "-1"},
        {variantOf(std::int64_t{5}), DataType::Int64, 5, 5, 5, 5, true, "5"},
        {variantOf(std::int64_t{123456789}), DataType::Int64, -13035, 123456789, 123456789,
         123456789, true, "1.23457e+08"},
        {variantOf(-2.7F), DataType::Float, -2, -2, -2, -2.7F, true, "-2.7"},
        {variantOf(0.0F), DataType::Float, 0, 0, 0, 0, false, "0"},
        {variantOf(3.14159274F), DataType::Float, 3, 3, 3, 3.14159274F, true, "3.14159"},
        {variantOf(0.1), DataType::Double, 0, 0, 0, 0.1, true, "0.1"},
        {variantOf(2147483648.0), DataType::Double, 32767, 2147483647, 2147483648, 2147483648, true,
         "2.14748e+09"},
        {variantOf(1e300), DataType::Double, 32767, 2147483647, largest, 1e300, true, "1e+300"},
        {variantOf(-9.3e18), DataType::Double, -32768, lowest32, lowest, -9.3e18, true, "-9.3e+18"},
        {variantOf(true), DataType::Boolean, 1, 1, 1, 1, true, "1"},
        {variantOf(false), DataType::Boolean, 0, 0, 0, 0, false, "0"},
    };
    for (const auto& [variant, dataType, int16, int32, int64, number, boolean, text] : cases) {
        SCOPED_TRACE(text);
        EXPECT_EQ(variant.getDataType(), dataType);
        EXPECT_EQ(variant.toInt16(), int16);
        EXPECT_EQ(variant.toInt32(), int32);
        EXPECT_EQ(variant.toInt64(), int64);
        EXPECT_EQ(variant.toFloat(), static_cast<float>(number));
        EXPECT_EQ(variant.toDouble(), number);
        EXPECT_EQ(variant.toBoolean(), boolean);
        EXPECT_EQ(variant.toString(), text);
    }
}

TEST(Variant, givesZeroForNotANumberAndCountsItAsTrue) {
    const Variant variant = variantOf(std::nan(""));
    EXPECT_EQ(variant.toInt16(), 0);
    EXPECT_EQ(variant.toInt64(), 0);
    EXPECT_TRUE(variant.toBoolean());
}

TEST(Variant, readsTheNumericPrefixOfText) {
    struct Case {
        const char* text;
        std::int64_t integer;
        double number;
        bool boolean;
    };
    const std::vector<Case> cases{
        {"", 0, 0.0, false},
        {"42abc", 42, 42.0, true},
        {"3.9", 3, 3.9, true},
        {" \t\n-7", -7, -7.0, true},
        {"+8", 8, 8.0, true},
        {"+-8", 0, 0.0, false},
        {"- 8", 0, 0.0, false},
        {"0", 0, 0.0, false},
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
    for (const auto& [text, integer, number, boolean] : cases) {
        SCOPED_TRACE(text);
        const Variant variant = variantOf(text);
        EXPECT_EQ(variant.toInt64(), integer);
        EXPECT_EQ(variant.toInt16(), static_cast<std::int16_t>(integer));
        EXPECT_EQ(variant.toDouble(), number);
        EXPECT_EQ(variant.toFloat(), static_cast<float>(number));
        EXPECT_EQ(variant.toBoolean(), boolean);
        EXPECT_EQ(variant.toString(), text);
    }
}

TEST(Variant, tellsNumbersAboveTheRangeFromNumbersBelowIt) {
    const std::string zeros(400, '0');
    EXPECT_EQ(variantOf(("0." + zeros + "1").c_str()).toDouble(), 0.0);
    EXPECT_EQ(variantOf(("1" + zeros + zeros + "e-1").c_str()).toDouble(), infinity);
    EXPECT_EQ(variantOf(("1" + zeros + "e-400").c_str()).toDouble(), 1.0);
}

TEST(Variant, acceptsTheTypesThatNoAssignmentProduces) {
    struct Case {
        DataType dataType;
        Variant::ValueBytes value;
        std::int64_t integer;
        double number;
        std::u16string text;
    };
    const std::vector<Case> cases{
        {DataType::UnsignedByte, bytesOf(std::uint16_t{0x01FF}), 255, 255.0, u"255"},
        {DataType::Byte, bytesOf(std::uint16_t{0x01FF}), -1, -1.0, u"-1"},
        {DataType::Int16, bytesOf(std::int16_t{-300}), -300, -300.0, u"-300"},
        {DataType::Int32, bytesOf(-70000), -70000, -70000.0, u"-70000"},
        {DataType::Uint64, bytesOf(~std::uint64_t{0}), -1, 18446744073709551615.0, u"1.84467e+19"},
        {DataType::Boolean, bytesOf(std::uint8_t{7}), 1, 1.0, u"1"},
        {DataType::Null, bytesOf(std::int64_t{-1}), 0, 0.0, u"null"},
    };
    for (const auto& [type, value, integer, number, text] : cases) {
        SCOPED_TRACE(static_cast<std::uint32_t>(type));
        EXPECT_EQ(Variant::convert<std::int64_t>(type, value, {}), integer);
        EXPECT_EQ(Variant::convert<double>(type, value, {}), number);
        EXPECT_EQ(Variant::convert<bool>(type, value, {}), type != DataType::Null);
        EXPECT_EQ(Variant::convertToString(type, value, {}, {}), text);
    }
}

TEST(Variant, saysOnStandardOutputThatATypeHoldsNoNumberAndTracesThatItHasNoText) {
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

    const testing_support::TraceLog log;
    EXPECT_EQ(Variant::convertToString(beyondTheTable, bytesOf(1.0), {}, u"text"), u"");
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
    const Timestamp timestamp(1706130132, 123456789);
    Variant variant = variantOf(timestamp);
    EXPECT_EQ(variant.getDataType(), DataType::DateTime);
    EXPECT_EQ(variant.toDateTime(), timestamp);
    EXPECT_DOUBLE_EQ(variant.toDouble(), 5212846932.1234568);
    EXPECT_EQ(variant.toInt64(), 5212846932);
    EXPECT_EQ(variant.toString(), "2024-01-24T21:02:12.123Z");

    // The date stays when the value goes.
    variant.clear();
    EXPECT_EQ(variant.getDataType(), DataType::Unknown);
    variant = 2.5;
    const Variant copy(variant);
    EXPECT_EQ(copy.toDateTime(), timestamp);
    EXPECT_EQ(copy.toDouble(), 2.5);
}

TEST(Variant, forgetsTheFormerValueWhenOneIsAssigned) {
    Variant variant = variantOf(std::int64_t{-1});
    variant = std::uint16_t{1};
    EXPECT_EQ(variant.toInt64(), 1);
    variant = "12";
    variant = true;
    EXPECT_EQ(variant.toString(), "1");
    variant = "long enough to be stored outside the string object";
    const Variant& itself = variant;
    variant = itself;
    EXPECT_EQ(variant.toString(), "long enough to be stored outside the string object");
}

TEST(Variant, carriesWholeSecondsOfTheNanosecondsWhenCopied) {
    const Variant variant = variantOf(Timestamp(10, 1'500'000'000));
    EXPECT_EQ(variant.toDateTime(), Timestamp(10, 1'500'000'000));
    Variant copy;
    copy = variant;
    EXPECT_EQ(copy.toDateTime(), Timestamp(11, 500'000'000));
}

}  // namespace
