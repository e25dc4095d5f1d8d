#include "variant/parameter_serialisation.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "tests/unit/variant/trace_log.h"

namespace {

using com::tarsel::utility::Variant;
using Tarsel::Datasources::QAR::deserializeValue;
using Tarsel::Datasources::QAR::serializeValue;
using Tarsel::Utility::ByteStream;
using Tarsel::Utility::Timestamp;
using testing_support::failure;
using testing_support::TraceLog;
using DataType = Variant::DataType;
using Bytes = std::string;

template <typename Value>
Variant variantOf(Value value) {
    Variant variant;
    variant = value;
    return variant;
}

template <typename Number>
Bytes bytesOf(Number number) {
    Bytes bytes(sizeof number, '\0');
    std::memcpy(bytes.data(), &number, sizeof number);
    return bytes;
}

Bytes contentOf(const ByteStream& stream) {
    return {stream.data(), stream.data() + stream.size()};
}

Bytes serialized(std::uint32_t type, std::uint32_t bufferSize, const Variant& value) {
    ByteStream out(3);  // former content that must go
    EXPECT_EQ(serializeValue(type, bufferSize, value, out), 0U);
    return contentOf(out);
}

Variant deserialized(std::uint32_t type, const Bytes& bytes) {
    ByteStream in;
    in.allocate(static_cast<std::uint32_t>(bytes.size()));
    std::copy(bytes.begin(), bytes.end(), in.data());
    Variant out = variantOf("former");
    EXPECT_EQ(deserializeValue(type, in, out), 0U);
    return out;
}

struct RoundTrip {
    std::vector<std::uint32_t> types;
    Bytes read;
    DataType dataType;
    std::string text;
    Bytes written;
};

TEST(ParameterSerialisation, readsEveryLayoutAndWritesItBack) {
    const double date = 5212846932.5;
    const std::vector<RoundTrip> cases{
        {{2, 6}, "\x05", DataType::Boolean, "1", "\x01"},
        {{2, 6}, Bytes("\0\x07", 2), DataType::Boolean, "0", Bytes("\0\0", 2)},
        {{3, 7}, "\xFE\xFF", DataType::Uint16, "65534", "\xFE\xFF"},
        {{8}, "\xFF\xFF\xFF\xFF", DataType::Uint32, "-1", "\xFF\xFF\xFF\xFF"},
        {{9},
         bytesOf(std::int64_t{-5000000000}),
         DataType::Int64,
         "-5e+09",
         bytesOf(std::int64_t{-5000000000})},
        {{10}, bytesOf(2.5F), DataType::Float, "2.5", bytesOf(2.5F)},
        {{14, 24},
         Bytes("\xE9t\xE9\0x", 5),
         DataType::String,
         "\xE9t\xE9",
         Bytes("\xE9t\xE9\0\0", 5)},
        {{27, 192}, bytesOf(-0.125), DataType::Double, "-0.125", bytesOf(-0.125)},
        {{35}, bytesOf(date), DataType::DateTime, "2024-01-24T21:02:12.500Z", bytesOf(date)},
        {{35}, bytesOf(0.0), DataType::DateTime, "1970-01-01T00:00:00.000Z", bytesOf(3506716800.0)},
        {{0, 1, 4, 193}, "abcd", DataType::Unknown, "unknown", Bytes(4, '\0')},
    };
    for (const RoundTrip& testCase : cases) {
        for (const std::uint32_t type : testCase.types) {
            SCOPED_TRACE(type);
            const Variant value = deserialized(type, testCase.read);
            EXPECT_EQ(value.getDataType(), testCase.dataType);
            EXPECT_EQ(value.toString(), testCase.text);
            const auto size = static_cast<std::uint32_t>(testCase.read.size());
            EXPECT_EQ(serialized(type, size, value), testCase.written);
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
                  (std::vector{
                      failure("ParameterMetadata::deserialize", "Invalid stream size", 0x80070057),
                      failure("ParameterMetadata::serialize", "Invalid stream size", 0x80070057)}));
    }
}

TEST(ParameterSerialisation, cutsTextsSoThatTheirTerminatorRemains) {
    EXPECT_EQ(serialized(14, 9, variantOf("ABCDEFGHIJ")), Bytes("ABCDEFGH\0", 9));
    EXPECT_EQ(serialized(24, 1, variantOf("ABC")), Bytes(1, '\0'));
    EXPECT_EQ(serialized(24, 5, variantOf(2.5)), Bytes("2.5\0\0", 5));
}

TEST(ParameterSerialisation, readsTextsWithoutTerminatorUpToTheEndOfTheBuffer) {
    EXPECT_EQ(deserialized(14, "ABC").toString(), "ABC");
    const Variant empty = deserialized(24, "");
    EXPECT_EQ(empty.getDataType(), DataType::String);
    EXPECT_EQ(empty.toString(), "");
}

TEST(ParameterSerialisation, writesADateFromTheTimestampUnlessTheVariantIsADouble) {
    EXPECT_EQ(serialized(35, 8, variantOf(2.5)), bytesOf(2.5));
    EXPECT_EQ(serialized(35, 8, variantOf("2024")), bytesOf(3506716800.0));
    Variant formerDate = variantOf(Timestamp(1, 0));
    formerDate = std::uint16_t{7};
    EXPECT_EQ(serialized(35, 8, formerDate), bytesOf(3506716801.0));
}

TEST(ParameterSerialisation, writesZeroForAnUnknownVariant) {
    testing::internal::CaptureStdout();
    EXPECT_EQ(serialized(8, 4, Variant()), Bytes(4, '\0'));
    EXPECT_NE(testing::internal::GetCapturedStdout(), "");
}

}  // namespace
