#include "parameters/timestamp.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

namespace {

using Tarsel::Utility::BrokenDownTime;
using Tarsel::Utility::civilToSeconds;
using Tarsel::Utility::Timestamp;

constexpr std::int64_t epochDistance = 3'506'716'800;
constexpr std::int64_t lastWritableSecond = 253'402'300'799;

TEST(Timestamp, ReadsTheLibraryDouble) {
    const double infinity = std::numeric_limits<double>::infinity();
    const Timestamp last(lastWritableSecond, 999'999'999);
    const std::vector<std::pair<double, Timestamp>> cases = {
        {3'506'716'800.5, Timestamp(0, 500'000'000)},
        {5'212'846'932.0, Timestamp(1'706'130'132, 0)},
        {3'506'716'799.9, Timestamp()},
        {std::nan(""), Timestamp()},
        {-infinity, Timestamp()},
        {infinity, last},
        {static_cast<double>(epochDistance + lastWritableSecond + 1), last},
    };
    for (const auto& [librarySeconds, expected] : cases) {
        Timestamp timestamp(7, 7);
        timestamp.fromDouble(librarySeconds);
        EXPECT_EQ(timestamp, expected) << librarySeconds;
    }
}

TEST(Timestamp, WritesTheLibraryDoubleRoundedToTicks) {
    EXPECT_EQ(Timestamp(1'706'130'132, 0).toDouble(), 5'212'846'932.0);
    for (const auto& [nanoseconds, ticks] : {std::pair{49U, 0}, {149U, 1}, {150U, 2}}) {
        const Timestamp afterLibraryEpoch(-epochDistance, nanoseconds);
        EXPECT_EQ(std::round(afterLibraryEpoch.toDouble() / 1e-7), ticks);
    }
}

TEST(Timestamp, FormatsWithZoneAndFraction) {
    const Timestamp instant(1'706'130'132, 123'456'789);
    const std::int64_t far = std::numeric_limits<std::int64_t>::max();
    const std::vector<std::tuple<Timestamp, bool, std::int32_t, const char*, const char*>> cases = {
        {instant, true, 0, "", "2024-01-24T21:02:12.123Z"},
        {instant, true, 0, "I", "2024-01-24T21:02:12Z"},
        {instant, true, 19'800, "", "2024-01-25T02:32:12.123+0530"},
        {instant, true, -12'600, "", "2024-01-24T17:32:12.123-0330"},
        {instant, true, 86'400, "", "2024-01-25T21:02:12.123"},
        {instant, false, 19'800, "", "2024-01-24T21:02:12.123"},
        {Timestamp(0, 123'600'000), true, 0, "", "1970-01-01T00:00:00.123Z"},
        {Timestamp(0, 999'999'600), true, 0, "", "1970-01-01T00:00:00.000Z"},
        {Timestamp(10, 2'500'000'000), true, 0, "", "1970-01-01T00:00:12.500Z"},
        {Timestamp(-1, 900'000'000), true, 0, "", "1970-01-01T00:00:00.000Z"},
        {Timestamp(0, 0), true, -3'600, "", "1970-01-01T00:00:00.000-0100"},
        {Timestamp(lastWritableSecond + 1, 0), true, 0, "", "9999-12-31T23:59:59.999Z"},
        {Timestamp(far, 0), true, 3'600, "", "9999-12-31T23:59:59.999+0100"},
        {Timestamp(-far, 0), true, -3'600, "", "1970-01-01T00:00:00.000-0100"},
    };
    for (const auto& [timestamp, applyZone, offset, options, expected] : cases) {
        EXPECT_EQ(timestamp.format(applyZone, offset, options), expected);
    }
}

TEST(Timestamp, ParsesDateTexts) {
    const std::vector<std::pair<const char*, Timestamp>> cases = {
        {"2024-01-24T21:02:12.000Z", {1'706'130'132, 0}},
        {"2024-01-24T21:02", {1'706'130'120, 0}},
        {"2024-01-24T21:02:12.5Z", {1'706'130'132, 500'000'000}},
        {"2024-01-24T21:02:12.345", {1'706'130'132, 345'000'267}},
        {"2024-01-24T21:02:12+01:00", {1'706'126'532, 0}},
        {"2024-01-24T21:02:12-0330", {1'706'142'732, 0}},
        {"2024-01-24T21:02:12-00:30", {1'706'131'932, 0}},
        {"2024-01-24T21:02:12+05", {1'706'112'132, 0}},
        {" 2024-1-24T 21: 2:12", {1'706'130'132, 0}},
        {"2023-02-31T00:00Z", {1'677'801'600, 0}},  // 2023-03-03
        {"1970-01-01T00:00:00Z", {0, 0}},
        {"2038-01-19T03:14:07Z", {2'147'483'647, 0}},
    };
    for (const auto& [text, expected] : cases) {
        Timestamp timestamp(7, 7);
        EXPECT_TRUE(timestamp.parse(text)) << text;
        EXPECT_EQ(timestamp, expected) << text;
    }
}

TEST(Timestamp, RefusesWhatIsNoDateText) {
    std::istringstream texts(
        "|T|now|24.01.2024|2024-01-24|2024-01T21:02|2024-01-24T|2024-01-24T21|"
        "2024-13-01T00:00|2024-00-01T00:00|2024-01-32T00:00|2024-01-24T24:00|2024-01-24T21:60|"
        "2024-01-24T21:02:60|2024-01-24T21:02:nan|2024-01-24T21:02:1e99|99999999999-01-01T00:00|"
        "2024-01-24T21:02:12+24:00|2024-01-24T21:02:12+01:60|2024-01-24T21:02:12+0160|"
        "2024-01-24T21:02:12+x|2024-01-24T21:02:12+01:|1969-12-31T23:00:00Z|2038-01-19T03:14:08Z|"
        // Before the offset these lie outside the range.
        "1970-01-01T00:30:00+01:00|2038-01-19T04:14:07+01:00");
    for (std::string text; std::getline(texts, text, '|');) {
        Timestamp timestamp(7, 7);
        EXPECT_FALSE(timestamp.parse(text)) << text;
        EXPECT_EQ(timestamp, Timestamp()) << text;
    }
}

TEST(CivilToSeconds, CarriesUnitsIntoTheNext) {
    const std::vector<std::tuple<BrokenDownTime, std::int64_t, std::int64_t>> cases = {
        {{0, 0, 0, 1, 0, 70}, 0, 0},
        {{0, 0, 0, 31, 1, 123}, 0, 1'677'801'600},      // 2023-02-31 is 2023-03-03
        {{75, 59, 23, 31, 11, 123}, 0, 1'704'067'215},  // into the next year
        {{0, 0, 0, 1, -1, 124}, 0, 1'701'388'800},      // month -1 is December before
        {{-1, 0, 0, 1, 0, 71}, 0, 31'535'999},
        {{-1, 0, 0, 1, 0, 70}, 3600, -1},  // the time itself is before 1970
        {{7, 14, 3, 19, 0, 138}, 0, 2'147'483'647},
        {{0, 0, 0, 1, 0, 40'000}, 0, -1},
    };
    for (const auto& [time, offset, expected] : cases) {
        EXPECT_EQ(civilToSeconds(time, offset), expected);
    }
}

TEST(Timestamp, SetNanosecondsCarries) {
    Timestamp timestamp(5, 0);
    timestamp.setNanoseconds(3'000'000'001);
    EXPECT_EQ(timestamp, Timestamp(8, 1));
}

}  // namespace
