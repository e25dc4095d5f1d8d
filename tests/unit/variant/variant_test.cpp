// Tests of Variant that values of data sources do not cover.
#include "variant/variant.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "parameters/byte_stream.h"
#include "variant/parameter_serialisation.h"

namespace {

using com::tarsel::utility::Variant;
using Tarsel::Utility::ByteStream;
using Tarsel::Utility::Timestamp;
using DataType = Variant::DataType;

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

TEST(Variant, TypesWithoutAssignmentConvert) {
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
        EXPECT_EQ(integer, Variant::convert<std::int64_t>(type, value, {}));
        EXPECT_EQ(number, Variant::convert<double>(type, value, {}));
        EXPECT_EQ(type != DataType::Null, Variant::convert<bool>(type, value, {}));
        EXPECT_EQ(text, Variant::convertToString(type, value, {}, {}));
    }
}

TEST(Variant, TypeWithoutNumberIsReportedOnStandardOutput) {
    const Variant empty;
    const auto beyondTheTable = static_cast<DataType>(15);
    const std::string line =
        "com::tarsel::utility::Variant::convert::Failed to convert data type because type is not "
        "supported\n";
    testing::internal::CaptureStdout();
    EXPECT_EQ(0, empty.toInt32());
    EXPECT_FALSE(Variant::convert<bool>(beyondTheTable, bytesOf(1.0), {}));
    EXPECT_EQ(line + line, testing::internal::GetCapturedStdout());
    EXPECT_EQ(u"unknown", empty.convertToString());
    EXPECT_EQ(Timestamp(), empty.toDateTime());
    EXPECT_EQ(u"", Variant::convertToString(beyondTheTable, bytesOf(1.0), {}, u"text"));
}

TEST(Variant, BytesAreSignExtendedAndRestored) {
    const Variant variant = variantOf("A\x7F\x80\xE9\xFF");
    EXPECT_EQ(u"A\u007F\uFF80\uFFE9\uFFFF", variant.convertToString());
    EXPECT_EQ("A\x7F\x80\xE9\xFF", variant.toString());
}

TEST(Variant, AssignmentKeepsOnlyTheDate) {
    const Timestamp timestamp(1706130132, 123456789);
    Variant variant = variantOf(timestamp);
    EXPECT_EQ(timestamp, variant.toDateTime());
    EXPECT_DOUBLE_EQ(5212846932.1234568, variant.toDouble());
    EXPECT_EQ("2024-01-24T21:02:12.123Z", variant.toString());
    variant = std::int64_t{-1};
    variant = std::uint16_t{1};
    EXPECT_EQ(1, variant.toInt64());
    EXPECT_EQ(timestamp, variant.toDateTime());
    ByteStream date;
    EXPECT_EQ(0U, codeOf(Tarsel::Datasources::QAR::serializeValue(35, 8, variant, date)));
    EXPECT_EQ(timestamp.toDouble(), Tarsel::Utility::readLittleEndian<double>(date.data()));
    variant = "12";
    variant = true;
    EXPECT_EQ("1", variant.toString());
}

TEST(Variant, CopyNormalisesItsDate) {
    Variant variant = variantOf("long enough to be stored outside the string object");
    const Variant& itself = variant;
    variant = itself;
    const Variant text(variant);
    EXPECT_EQ("long enough to be stored outside the string object", text.toString());
    variant = Timestamp(10, 1'500'000'000);
    Variant assigned;
    assigned = variant;
    EXPECT_EQ(Timestamp(11, 500'000'000), assigned.toDateTime());
    EXPECT_EQ(variant.toDouble(), assigned.toDouble());
}

}  // namespace
