// Timestamp: an instant in UTC, its conversion to and from the library's date double and ISO 8601
// text.
#ifndef PYORV3_PARAMETERS_TIMESTAMP_H
#define PYORV3_PARAMETERS_TIMESTAMP_H

#include <cstdint>
#include <string>
#include <string_view>

namespace Tarsel::Utility {

// Seconds since 1970-01-01 00:00:00 UTC and nanoseconds; the default is that instant itself.
class Timestamp {
  public:
    constexpr Timestamp() noexcept = default;

    // Takes both as they are; nanoseconds of a second and more stay unnormalised.
    constexpr Timestamp(std::int64_t seconds, std::uint32_t nanoseconds) noexcept
        : seconds_(seconds), nanoseconds_(nanoseconds) {}

    [[nodiscard]] constexpr std::int64_t seconds() const noexcept { return seconds_; }
    [[nodiscard]] constexpr std::uint32_t nanoseconds() const noexcept { return nanoseconds_; }

    constexpr void setSeconds(std::int64_t seconds) noexcept { seconds_ = seconds; }

    // Whole seconds in `nanoseconds` are added to the seconds.
    void setNanoseconds(std::uint32_t nanoseconds) noexcept;

    // Sets the instant from the library's double: seconds since 1858-11-17 00:00:00 UTC (the
    // epoch of the Modified Julian Date), truncated to 100 ns. What lies before 1970, and NaN,
    // gives the zero Timestamp; what lies beyond the year 9999 the last instant of it.
    void fromDouble(double librarySeconds) noexcept;

    // The instant as the library's double, rounded to the nearest 100 ns.
    [[nodiscard]] double toDouble() const noexcept;

    // ISO 8601 text such as 2024-01-24T21:02:12.000Z; milliseconds are truncated.
    // With applyZone the wall time is moved by zoneOffset (seconds east of UTC) and followed by
    // the designator: Z for 0, else +hhmm or -hhmm, none for an offset of a day and more. The
    // letter I in options drops the fraction. Instants outside the years 1970 to 9999 are
    // written as the nearest instant within.
    [[nodiscard]] std::string format(bool applyZone, std::int32_t zoneOffset,
                                     std::string_view options) const;

    // Reads a date text: date, the letter T, hours and minutes, optionally seconds with a
    // fraction and a zone (Z, +hh:mm or +hhmm; none means UTC). False, with the zero Timestamp,
    // for any other text and for instants outside 1970-01-01 00:00:00 to 2038-01-19 03:14:07 UTC.
    [[nodiscard]] bool parse(std::string_view text) noexcept;

    friend constexpr bool operator==(const Timestamp&, const Timestamp&) noexcept = default;

  private:
    std::int64_t seconds_ = 0;
    std::uint32_t nanoseconds_ = 0;
};

// A wall-clock time as it was written: month 0 to 11, year since 1900, day from 1.
struct BrokenDownTime {
    int second;
    int minute;
    int hour;
    int day;
    int month;
    int year;
};

// The instant of a UTC wall time plus `offset` seconds, in seconds since 1970; units that
// overflow carry into the next (February 31 is March 3 of a common year). -1 when the year is
// before 1970, the time itself lies beyond 2,147,483,647 s, or the sum outside 0 to
// 2,147,483,647 s.
[[nodiscard]] std::int64_t civilToSeconds(const BrokenDownTime& time, std::int64_t offset) noexcept;

}  // namespace Tarsel::Utility

#endif
