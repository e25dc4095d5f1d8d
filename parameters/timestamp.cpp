#include "parameters/timestamp.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace Tarsel::Utility {

namespace chrono = std::chrono;

namespace {

constexpr std::int64_t epochDistance = 3'506'716'800;  // 40,587 days, 1858-11-17 to 1970-01-01
constexpr std::int64_t ticksPerSecond = 10'000'000;
constexpr std::uint32_t nanosecondsPerTick = 100;
constexpr std::uint32_t nanosecondsPerSecond = 1'000'000'000;
constexpr std::int64_t secondsPerDay = 86'400;
constexpr std::int64_t lastWritableSecond = 253'402'300'799;  // 9999-12-31 23:59:59 UTC

// The three decimals of the fraction as text, ".123", truncated. The fraction goes through single
// precision, so that from about 999,999,500 ns it is 1.000000 and shown as ".000".
std::string fractionText(std::uint32_t nanoseconds) {
    const float fraction =
        static_cast<float>(nanoseconds) / static_cast<float>(nanosecondsPerSecond);
    std::array<char, 16> digits{};
    const auto [end, error] =
        std::to_chars(digits.data(), digits.data() + digits.size(), static_cast<double>(fraction),
                      std::chars_format::fixed, 6);
    const std::string text(digits.data(), end);
    return text.substr(text.find('.'), 4);
}

std::string zoneText(std::int32_t zoneOffset) {
    if (zoneOffset <= -secondsPerDay || zoneOffset >= secondsPerDay) {
        return {};
    }
    if (zoneOffset == 0) {
        return "Z";
    }
    const int distance = std::abs(zoneOffset);
    std::array<char, 16> designator{};
    static_cast<void>(std::snprintf(designator.data(), designator.size(), "%c%02d%02d",
                                    zoneOffset < 0 ? '-' : '+', distance / 3600,
                                    distance % 3600 / 60));
    return designator.data();
}

}  // namespace

void Timestamp::setNanoseconds(std::uint32_t nanoseconds) noexcept {
    seconds_ += nanoseconds / nanosecondsPerSecond;
    nanoseconds_ = nanoseconds % nanosecondsPerSecond;
}

void Timestamp::fromDouble(double librarySeconds) noexcept {
    *this = Timestamp();
    const double ticks = librarySeconds * static_cast<double>(ticksPerSecond);
    constexpr auto firstTick = static_cast<double>(epochDistance * ticksPerSecond);
    constexpr auto endTick =
        static_cast<double>((epochDistance + lastWritableSecond + 1) * ticksPerSecond);
    if (ticks >= endTick) {
        *this = Timestamp(lastWritableSecond, nanosecondsPerSecond - 1);
    } else if (ticks >= firstTick) {  // false for NaN too
        const std::uint64_t sinceEpoch = static_cast<std::uint64_t>(ticks) -
                                         static_cast<std::uint64_t>(epochDistance * ticksPerSecond);
        seconds_ = static_cast<std::int64_t>(sinceEpoch / ticksPerSecond);
        nanoseconds_ = static_cast<std::uint32_t>(sinceEpoch % ticksPerSecond) * nanosecondsPerTick;
    }
}

double Timestamp::toDouble() const noexcept {
    // Unsigned, so that seconds beyond all dates wrap instead of overflowing.
    const std::uint64_t wholeSeconds =
        static_cast<std::uint64_t>(seconds_) + static_cast<std::uint64_t>(epochDistance);
    const std::uint64_t ticks =
        wholeSeconds * static_cast<std::uint64_t>(ticksPerSecond) +
        (std::uint64_t{nanoseconds_} + nanosecondsPerTick / 2) / nanosecondsPerTick;
    return static_cast<double>(ticks) / static_cast<double>(ticksPerSecond);
}

std::string Timestamp::format(bool applyZone, std::int32_t zoneOffset,
                              std::string_view options) const {
    // Far outside the writable years the offset makes no difference, but it could overflow.
    std::int64_t wallSeconds = std::clamp(seconds_, -lastWritableSecond, 2 * lastWritableSecond);
    wallSeconds += applyZone ? zoneOffset : 0;
    wallSeconds += nanoseconds_ / nanosecondsPerSecond;
    std::uint32_t fraction = nanoseconds_ % nanosecondsPerSecond;
    if (wallSeconds < 0) {
        wallSeconds = 0;
        fraction = 0;
    } else if (wallSeconds > lastWritableSecond) {
        constexpr std::uint32_t lastMillisecond = 999'000'000;
        wallSeconds = lastWritableSecond;
        fraction = lastMillisecond;
    }

    const chrono::sys_seconds instant{chrono::seconds{wallSeconds}};
    const chrono::sys_days midnight = chrono::floor<chrono::days>(instant);
    const chrono::year_month_day date{midnight};
    const chrono::hh_mm_ss time{instant - midnight};
    const bool wantsFraction = options.find('I') == std::string_view::npos;

    std::array<char, 64> text{};
    static_cast<void>(std::snprintf(
        text.data(), text.size(), "%04d-%02d-%02dT%02d:%02d:%02d%s%s",
        static_cast<int>(date.year()), static_cast<int>(unsigned{date.month()}),
        static_cast<int>(unsigned{date.day()}), static_cast<int>(time.hours().count()),
        static_cast<int>(time.minutes().count()), static_cast<int>(time.seconds().count()),
        wantsFraction ? fractionText(fraction).c_str() : "",
        applyZone ? zoneText(zoneOffset).c_str() : ""));
    return text.data();
}

std::int64_t civilToSeconds(const BrokenDownTime& time, std::int64_t offset) noexcept {
    constexpr std::int64_t lastSecond = 2'147'483'647;  // 2038-01-19 03:14:07 UTC
    constexpr int monthsPerYear = 12;

    const std::int64_t months =
        (std::int64_t{time.year} + 1900) * monthsPerYear + std::int64_t{time.month};
    const std::int64_t civilYear = months >= 0 ? months / monthsPerYear : -1;
    if (civilYear < 0 || civilYear > static_cast<int>(chrono::year::max())) {
        return -1;
    }
    const auto civilMonth = static_cast<unsigned>(months % monthsPerYear) + 1;
    const chrono::sys_days firstOfMonth{chrono::year{static_cast<int>(civilYear)} /
                                        chrono::month{civilMonth} / 1};
    // Counting on from the first of the month moves a day beyond its end into the next months.
    const std::int64_t dayCount =
        firstOfMonth.time_since_epoch().count() + std::int64_t{time.day} - 1;
    const std::int64_t total = dayCount * secondsPerDay + std::int64_t{time.hour} * 3600 +
                               std::int64_t{time.minute} * 60 + time.second;
    if (total < 0 || total > lastSecond || total + offset < 0 || total + offset > lastSecond) {
        return -1;
    }
    return total + offset;
}

}  // namespace Tarsel::Utility
