#include "parameters/timestamp.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <optional>
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

// Returns the three decimals of the fraction, ".123", truncated. The fraction is rounded to single
// precision, so that it is 1.000000 from about 999,999,500 ns on and gives ".000".
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
    // Unsigned, so that seconds outside all dates wrap instead of overflowing.
    const std::uint64_t wholeSeconds =
        static_cast<std::uint64_t>(seconds_) + static_cast<std::uint64_t>(epochDistance);
    const std::uint64_t ticks =
        wholeSeconds * static_cast<std::uint64_t>(ticksPerSecond) +
        (std::uint64_t{nanoseconds_} + nanosecondsPerTick / 2) / nanosecondsPerTick;
    return static_cast<double>(ticks) / static_cast<double>(ticksPerSecond);
}

std::string Timestamp::format(bool applyZone, std::int32_t zoneOffset,
                              std::string_view options) const {
    // Far outside the writable years the offset has no effect, but it could overflow.
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

// ---- Reading ----
// Not with the scanning functions of the C library, whose decimal point depends on the locale.

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
    // Adding to the first of the month moves a day after its end into the next months.
    const std::int64_t dayCount =
        firstOfMonth.time_since_epoch().count() + std::int64_t{time.day} - 1;
    const std::int64_t total = dayCount * secondsPerDay + std::int64_t{time.hour} * 3600 +
                               std::int64_t{time.minute} * 60 + time.second;
    if (total < 0 || total > lastSecond || total + offset < 0 || total + offset > lastSecond) {
        return -1;
    }
    return total + offset;
}

namespace {

constexpr std::size_t maxTextLength = 63;
constexpr std::size_t maxTimeLength = 31;
constexpr std::size_t maxZoneLength = 15;

// Reads numbers and single characters from the front of a string, like a scanning format.
class Scanner {
  public:
    explicit Scanner(std::string_view text) noexcept : rest_(text) {}

    // Reads a decimal integer of at most `width` characters, with an optional sign and leading
    // blanks. Numbers outside the range of int become its limits.
    std::optional<int> integer(std::size_t width = std::string_view::npos) noexcept {
        skipBlanks();
        std::string_view field = rest_.substr(0, width);
        const bool plus = field.starts_with('+');
        if (plus) {
            field.remove_prefix(1);
        }
        int number = 0;
        const auto [end, error] =
            std::from_chars(field.data(), field.data() + field.size(), number);
        if (error == std::errc::invalid_argument || (plus && field.starts_with('-'))) {
            return std::nullopt;
        }
        if (error == std::errc::result_out_of_range) {
            number = field.starts_with('-') ? std::numeric_limits<int>::min()
                                            : std::numeric_limits<int>::max();
        }
        rest_.remove_prefix(static_cast<std::size_t>(end - rest_.data()));
        return number;
    }

    // Reads a single-precision number after optional blanks; infinity if it is too large.
    std::optional<float> number() noexcept {
        skipBlanks();
        float value = 0;
        const auto error = std::from_chars(rest_.data(), rest_.data() + rest_.size(), value).ec;
        if (error == std::errc::invalid_argument) {
            return std::nullopt;
        }
        return error == std::errc::result_out_of_range ? std::numeric_limits<float>::infinity()
                                                       : value;
    }

    // Removes this character from the front; returns false if it is not there.
    bool character(char expected) noexcept {
        if (!rest_.starts_with(expected)) {
            return false;
        }
        rest_.remove_prefix(1);
        return true;
    }

  private:
    void skipBlanks() noexcept {
        const std::size_t first = rest_.find_first_not_of(" \t\n\v\f\r");
        rest_.remove_prefix(first == std::string_view::npos ? rest_.size() : first);
    }

    std::string_view rest_;
};

struct DateTextParts {
    std::string_view date;
    std::string_view time;
    std::string_view zone;
};

DateTextParts split(std::string_view text) noexcept {
    DateTextParts parts;
    text = text.substr(0, maxTextLength);
    const std::size_t separator = text.find('T');
    parts.date = text.substr(0, separator);
    if (separator != std::string_view::npos) {
        parts.time = text.substr(separator + 1, maxTimeLength);
        const std::size_t zone = parts.time.find_first_of("Z+-");
        if (zone != std::string_view::npos) {
            parts.zone = parts.time.substr(zone, maxZoneLength);
            parts.time = parts.time.substr(0, zone);
        }
    }
    return parts;
}

constexpr bool within(int number, int first, int last) {
    return number >= first && number <= last;
}

bool readDate(std::string_view text, BrokenDownTime& time) noexcept {
    Scanner scanner(text);
    const auto year = scanner.integer();
    if (!year || !scanner.character('-')) {
        return false;
    }
    const auto month = scanner.integer();
    if (!month || !scanner.character('-')) {
        return false;
    }
    const auto day = scanner.integer();
    // Every month has 31 days here; a day after the end of the month becomes one of the next month.
    if (!day || *year < 1970 || !within(*month, 1, 12) || !within(*day, 1, 31)) {
        return false;
    }
    time.year = *year - 1900;
    time.month = *month - 1;
    time.day = *day;
    return true;
}

bool readTime(std::string_view text, BrokenDownTime& time, float& seconds) noexcept {
    Scanner scanner(text);
    const auto hour = scanner.integer();
    if (!hour || !scanner.character(':')) {
        return false;
    }
    const auto minute = scanner.integer();
    if (!minute) {
        return false;
    }
    seconds = scanner.character(':') ? scanner.number().value_or(0.0F) : 0.0F;
    if (!within(*hour, 0, 23) || !within(*minute, 0, 59) || !(seconds >= 0.0F && seconds < 60.0F)) {
        return false;
    }
    time.hour = *hour;
    time.minute = *minute;
    time.second = static_cast<int>(seconds);
    return true;
}

// Returns the seconds to add to the wall time to get UTC, or nullopt for an invalid zone.
std::optional<std::int64_t> readZone(std::string_view text) noexcept {
    if (!text.starts_with('+') && !text.starts_with('-')) {
        return 0;
    }
    Scanner scanner(text);
    const bool withColon = text.find(':') != std::string_view::npos;
    const auto hours = withColon ? scanner.integer() : scanner.integer(3);
    if (!hours || !within(*hours, -23, 23)) {
        return std::nullopt;
    }
    int minutes = 0;
    if (withColon) {
        const auto read = scanner.character(':') ? scanner.integer() : std::nullopt;
        if (!read || !within(*read, 0, 59)) {
            return std::nullopt;
        }
        minutes = *read;
    } else {
        minutes = scanner.integer(2).value_or(0);
        if (minutes > 59) {
            return std::nullopt;
        }
    }
    const std::int64_t east = (std::int64_t{std::abs(*hours)} * 60 + minutes) * 60;
    return text.starts_with('-') ? east : -east;
}

}  // namespace

bool Timestamp::parse(std::string_view text) noexcept {
    *this = Timestamp();
    const DateTextParts parts = split(text);
    BrokenDownTime time{};
    float writtenSeconds = 0;
    if (!readDate(parts.date, time) || !readTime(parts.time, time, writtenSeconds)) {
        return false;
    }
    const auto offset = readZone(parts.zone);
    if (!offset) {
        return false;
    }
    const std::int64_t instant = civilToSeconds(time, *offset);
    if (instant < 0) {
        return false;
    }
    double wholeSeconds = 0;
    const double fraction = std::modf(static_cast<double>(writtenSeconds), &wholeSeconds);
    *this = Timestamp(instant, static_cast<std::uint32_t>(fraction * 1e9));
    return true;
}

}  // namespace Tarsel::Utility
