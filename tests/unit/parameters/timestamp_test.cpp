// Tests of dates that parameter values do not cover.
#include "parameters/timestamp.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <tuple>
#include <vector>

namespace {

using Tarsel::Utility::BrokenDownTime;
using Tarsel::Utility::civilToSeconds;
using Tarsel::Utility::Timestamp;

constexpr std::int64_t epochDistance = 3'506'716'800;
constexpr std::int64_t lastWritableSecond = 253'402'300'799;

TEST(Timestamp, LibraryDoubleIsRoundedToTicks) {
    EXPECT_EQ(5'212'846'932.0, Timestamp(1'706'130'132, 0).toDouble());
    for (const auto& [nanoseconds, ticks] : {std::pair{49U, 0}, {149U, 1}, {150U, 2}}) {
        const Timestamp afterLibraryEpoch(-epochDistance, nanoseconds);
        EXPECT_EQ(ticks, std::round(afterLibraryEpoch.toDouble() / 1e-7));
    }
}

TEST(Timestamp, FormatAppliesZoneAndFraction) {
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
        EXPECT_EQ(expected, timestamp.format(applyZone, offset, options));
    }
}

TEST(CivilToSeconds, OverflowingUnitsCarry) {
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
        EXPECT_EQ(expected, civilToSeconds(time, offset));
    }
}

}  // namespace
