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
using namespace std::string_literals;

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
    struct Case {
        std::vector<std::uint32_t> types;
        Bytes read;
        DataType dataType;
        std::string text;
        Bytes written;
    };
    const Bytes number = bytesOf(std::int64_t{-5000000000});
    const Bytes date = bytesOf(5212846932.5);
    const std::vector<Case> cases{
        {{2, 6}, "\x05", DataType::Boolean, "1", "\x01"},
        {{2, 6}, "\0\x07"s, DataType::Boolean, "0", "\0\0"s},
        {{3, 7}, "\xFE\xFF", DataType::Uint16, "65534", "\xFE\xFF"},
        {{8}, "\xFF\xFF\xFF\xFF", DataType::Uint32, "-1", "\xFF\xFF\xFF\xFF"},
        {{9}, number, DataType::Int64, "-5e+09", number},
        {{10}, bytesOf(2.5F), DataType::Float, "2.5", bytesOf(2.5F)},
        {{14, 24}, "\xE9t\xE9\0x"s, DataType::String, "\xE9t\xE9", "\xE9t\xE9\0\0"s},
        {{14}, "ABC", DataType::String, "ABC", "AB\0"s},  // its terminator remains
        {{27, 192}, bytesOf(-0.125), DataType::Double, "-0.125", bytesOf(-0.125)},
        {{35}, date, DataType::DateTime, "2024-01-24T21:02:12.500Z", date},
        {{35}, bytesOf(0.0), DataType::DateTime, "1970-01-01T00:00:00.000Z", bytesOf(3506716800.0)},
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
                  (std::vector{
                      failure("ParameterMetadata::deserialize", "Invalid stream size", 0x80070057),
                      failure("ParameterMetadata::serialize", "Invalid stream size", 0x80070057)}));
    }
}

TEST(ParameterSerialisation, writesWhatTheVariantHoldsInTheLayoutThatIsAskedFor) {
    Variant formerDate = variantOf(Timestamp(1, 0));
    formerDate = std::uint16_t{7};
    EXPECT_EQ(serialized(24, 1, variantOf("ABC")), "\0"s);
    EXPECT_EQ(serialized(24, 5, variantOf(2.5)), "2.5\0\0"s);
    EXPECT_EQ(serialized(35, 8, variantOf(2.5)), bytesOf(2.5));
    EXPECT_EQ(serialized(35, 8, variantOf("2024")), bytesOf(3506716800.0));
    EXPECT_EQ(serialized(35, 8, formerDate), bytesOf(3506716801.0));
    testing::internal::CaptureStdout();
    EXPECT_EQ(serialized(8, 4, Variant()), Bytes(4, '\0'));
    EXPECT_NE(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(deserialized(24, "").getDataType(), DataType::String);
}

}  // namespace
