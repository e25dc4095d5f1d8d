#include "variant/variant.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <tuple>
#include <vector>

#include "parameters/byte_stream.h"
#include "tests/support/trace_log.h"
#include "variant/parameter_serialisation.h"

namespace {

using com::tarsel::utility::Variant;
using Tarsel::Datasources::QAR::deserializeValue;
using Tarsel::Datasources::QAR::serializeValue;
using Tarsel::Utility::ByteStream;
using Tarsel::Utility::Timestamp;
using testing_support::Lines;
using testing_support::TraceLog;
using DataType = Variant::DataType;
using Bytes = std::string;
using namespace std::string_literals;

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
    constexpr std::int32_t lowest32 = std::numeric_limits<std::int32_t>::min();
    const std::vector<std::tuple<Variant, DataType, std::int16_t, std::int32_t, std::int64_t,
                                 double, bool, const char*>>
        cases{
            {variantOf(std::uint16_t{65535}), DataType::Uint16, -1, 65535, 65535, 65535, true,
             "65535"},
            {variantOf(0xFFFFFFFFU), DataType::Uint32, -1, -1, 4294967295, 4294967295, true, "-1"},
            {variantOf(std::int64_t{5}), DataType::Int64, 5, 5, 5, 5, true, "5"},
            {variantOf(std::int64_t{123456789}), DataType::Int64, -13035, 123456789, 123456789,
             123456789, true, "1.23457e+08"},
            {variantOf(-2.7F), DataType::Float, -2, -2, -2, -2.7F, true, "-2.7"},
            {variantOf(0.0F), DataType::Float, 0, 0, 0, 0, false, "0"},
            {variantOf(3.14159274F), DataType::Float, 3, 3, 3, 3.14159274F, true, "3.14159"},
            {variantOf(0.1), DataType::Double, 0, 0, 0, 0.1, true, "0.1"},
            {variantOf(2147483648.0), DataType::Double, 32767, 2147483647, 2147483648, 2147483648,
             true, "2.14748e+09"},
            {variantOf(1e300), DataType::Double, 32767, 2147483647, largest, 1e300, true, "1e+300"},
            {variantOf(-9.3e18), DataType::Double, -32768, lowest32, lowest, -9.3e18, true,
             "-9.3e+18"},
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
    const std::string zeros(400, '0');
    const std::vector<std::tuple<std::int64_t, double, bool, std::vector<std::string>>> cases{
        {0, 0, false, {"", "+-8", "- 8", "0", "0x10", "inf", "-nan", "No", "false", " true"}},
        {0, 0, false, {"0.01e-999", "0." + zeros + "1"}},
        {0, 0, true, {"Yes", "true"}},
        {0, 0.5, false, {".5"}},
        {0, -2.5, false, {"-.25e1x"}},
        {1, 1, true, {"1\xB2"}},
        {1, infinity, true, {"1e999"}},
        {-1, -infinity, true, {"-1e+999"}},
        {2, 2, true, {"2e"}},
        {3, 3.9, true, {"3.9"}},
        {-7, -7, true, {" \t\n-7"}},
        {8, 8, true, {"+8"}},
        {42, 42, true, {"42abc"}},
        {largest, 1e20, true, {"99999999999999999999"}},
        {largest, 1, true, {"1" + zeros + "e-400"}},
        {largest, infinity, true, {"1" + zeros + zeros + "e-1"}},
        {lowest, -1e20, true, {"-99999999999999999999"}},
    };
    for (const auto& [integer, number, boolean, texts] : cases) {
        for (const std::string& text : texts) {
            SCOPED_TRACE(text);
            const Variant variant = variantOf(text.c_str());
            EXPECT_EQ(variant.toInt64(), integer);
            EXPECT_EQ(variant.toInt16(), static_cast<std::int16_t>(integer));
            EXPECT_EQ(variant.toDouble(), number);
            EXPECT_EQ(variant.toFloat(), static_cast<float>(number));
            EXPECT_EQ(variant.toBoolean(), boolean);
            EXPECT_EQ(variant.toString(), text);
        }
    }
}

TEST(Variant, acceptsTheTypesThatNoAssignmentProduces) {
    const std::vector<
        std::tuple<DataType, Variant::ValueBytes, std::int64_t, double, std::u16string>>
        cases{
            {DataType::UnsignedByte, bytesOf(std::uint16_t{0x01FF}), 255, 255.0, u"255"},
            {DataType::Byte, bytesOf(std::uint16_t{0x01FF}), -1, -1.0, u"-1"},
            {DataType::Int16, bytesOf(std::int16_t{-300}), -300, -300.0, u"-300"},
            {DataType::Int32, bytesOf(-70000), -70000, -70000.0, u"-70000"},
            {DataType::Uint64, bytesOf(~std::uint64_t{0}), -1, 18446744073709551615.0,
             u"1.84467e+19"},
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

    const TraceLog log;
    EXPECT_EQ(Variant::convertToString(beyondTheTable, bytesOf(1.0), {}, u"text"), u"");
    EXPECT_EQ(log.reports(), Lines{"3 80004005 Variant::convertToString Cannot "
                                   "convert unknown type"});
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
    // A copy carries whole seconds of the nanoseconds.
    variant = Timestamp(10, 1'500'000'000);
    Variant assigned;
    assigned = variant;
    EXPECT_EQ(assigned.toDateTime(), Timestamp(11, 500'000'000));
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

template <typename Number>
Bytes layoutOf(Number number) {
    return {reinterpret_cast<const char*>(&number), sizeof number};
}

Bytes serialized(std::uint32_t type, std::uint32_t bufferSize, const Variant& value) {
    ByteStream out(3);  // former content that must go
    EXPECT_EQ(serializeValue(type, bufferSize, value, out), 0U);
    return {out.data(), out.data() + out.size()};
}

Variant deserialized(std::uint32_t type, const Bytes& bytes) {
    ByteStream in;
    in.allocate(static_cast<std::uint32_t>(bytes.size()));
    std::copy(bytes.begin(), bytes.end(), in.data());
    Variant out = variantOf("former");
    EXPECT_EQ(deserializeValue(type, in, out), 0U);
    return out;
}

TEST(ParameterSerialisation, readsEveryLayoutAndWritesItBack) {
    const Bytes number = layoutOf(std::int64_t{-5000000000});
    const Bytes date = layoutOf(5212846932.5);
    const std::vector<std::tuple<std::vector<std::uint32_t>, Bytes, DataType, std::string, Bytes>>
        cases{
            {{2, 6}, "\x05", DataType::Boolean, "1", "\x01"},
            {{2, 6}, "\0\x07"s, DataType::Boolean, "0", "\0\0"s},
            {{3, 7}, "\xFE\xFF", DataType::Uint16, "65534", "\xFE\xFF"},
            {{8}, "\xFF\xFF\xFF\xFF", DataType::Uint32, "-1", "\xFF\xFF\xFF\xFF"},
            {{9}, number, DataType::Int64, "-5e+09", number},
            {{10}, layoutOf(2.5F), DataType::Float, "2.5", layoutOf(2.5F)},
            {{14, 24}, "\xE9t\xE9\0x"s, DataType::String, "\xE9t\xE9", "\xE9t\xE9\0\0"s},
            {{14}, "ABC", DataType::String, "ABC", "AB\0"s},  // its terminator remains
            {{27, 192}, layoutOf(-0.125), DataType::Double, "-0.125", layoutOf(-0.125)},
            {{35}, date, DataType::DateTime, "2024-01-24T21:02:12.500Z", date},
            {{35},
             layoutOf(0.0),
             DataType::DateTime,
             "1970-01-01T00:00:00.000Z",
             layoutOf(3506716800.0)},
            {{0, 1, 4, 193}, "abcd", DataType::Unknown, "unknown", Bytes(4, '\0')},
        };
    for (const auto& [types, read, dataType, text, written] : cases) {
        for (const std::uint32_t type : types) {
            SCOPED_TRACE(type);
            const Variant value = deserialized(type, read);
            EXPECT_EQ(value.getDataType(), dataType);
            EXPECT_EQ(value.toString(), text);
            EXPECT_EQ(serialized(type, static_cast<std::uint32_t>(read.size()), value), written);
        }
    }
}

TEST(ParameterSerialisation, refusesBuffersShorterThanTheLayout) {
    const std::vector<std::pair<std::uint32_t, std::uint32_t>> cases{
        {2, 0}, {6, 0}, {3, 1}, {7, 1}, {8, 3}, {9, 7}, {10, 3}, {27, 7}, {35, 7}, {192, 7}};
    for (const auto& [type, size] : cases) {
        SCOPED_TRACE(type);
        const TraceLog log;
        const ByteStream in(size);
        Variant value = variantOf(true);
        EXPECT_EQ(deserializeValue(type, in, value), 0x80070057U);
        EXPECT_EQ(value.getDataType(), DataType::Unknown);
        ByteStream out(3);
        EXPECT_EQ(serializeValue(type, size, variantOf(true), out), 0x80070057U);
        EXPECT_EQ(out.size(), 0U);
        EXPECT_EQ(log.reports(),
                  (Lines{"3 80070057 ParameterMetadata::deserialize Invalid stream size",
                         "3 80070057 ParameterMetadata::serialize Invalid stream size"}));
    }
}

TEST(ParameterSerialisation, writesWhatTheVariantHoldsInTheLayoutThatIsAskedFor) {
    Variant formerDate = variantOf(Timestamp(1, 0));
    formerDate = std::uint16_t{7};
    EXPECT_EQ(serialized(24, 1, variantOf("ABC")), "\0"s);
    EXPECT_EQ(serialized(24, 5, variantOf(2.5)), "2.5\0\0"s);
    EXPECT_EQ(serialized(35, 8, variantOf(2.5)), layoutOf(2.5));
    EXPECT_EQ(serialized(35, 8, variantOf("2024")), layoutOf(3506716800.0));
    EXPECT_EQ(serialized(35, 8, formerDate), layoutOf(3506716801.0));
    testing::internal::CaptureStdout();
    EXPECT_EQ(serialized(8, 4, Variant()), Bytes(4, '\0'));
    EXPECT_NE(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(deserialized(24, "").getDataType(), DataType::String);
}

}  // namespace
