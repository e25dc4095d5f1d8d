// Timestamp: an instant in UTC with conversions to and from the date double of the library and ISO
// 8601 strings.
#ifndef PYORV3_PARAMETERS_TIMESTAMP_H
#define PYORV3_PARAMETERS_TIMESTAMP_H

#include <cstdint>
#include <string>
#include <string_view>

namespace Tarsel::Utility {

// Seconds and nanoseconds since 1970-01-01 00:00:00 UTC; the default is that instant.
class Timestamp {
  public:
    constexpr Timestamp() noexcept = default;

    // Stores both unchanged; nanoseconds may be a second or more.
    constexpr Timestamp(std::int64_t seconds, std::uint32_t nanoseconds) noexcept
        : seconds_(seconds), nanoseconds_(nanoseconds) {}

    [[nodiscard]] constexpr std::int64_t seconds() const noexcept { return seconds_; }
    [[nodiscard]] constexpr std::uint32_t nanoseconds() const noexcept { return nanoseconds_; }

    constexpr void setSeconds(std::int64_t seconds) noexcept { seconds_ = seconds; }

    // Moves whole seconds from `nanoseconds` to the seconds.
    void setNanoseconds(std::uint32_t nanoseconds) noexcept;

    // Sets the instant from the double of the library: seconds since 1858-11-17 00:00:00 UTC (the
    // epoch of the Modified Julian Date), truncated to 100 ns. Instants before 1970 and NaN give
    // the zero Timestamp, instants after 9999 the last instant of that year.
    void fromDouble(double librarySeconds) noexcept;

    // Returns the double of the library, rounded to the nearest 100 ns.
    [[nodiscard]] double toDouble() const noexcept;

    // Returns an ISO 8601 string such as 2024-01-24T21:02:12.000Z; milliseconds are truncated. With
    // applyZone the wall time is moved by zoneOffset (seconds east of UTC) and followed by the
    // designator: Z for 0, otherwise +hhmm or -hhmm, none for an offset of a day or more. The
    // letter I in options removes the fraction. Instants outside the years 1970 to 9999 are written
    // as the nearest instant inside.
    [[nodiscard]] std::string format(bool applyZone, std::int32_t zoneOffset,
                                     std::string_view options) const;

    // Parses date, the letter T, hours and minutes, optionally seconds with a fraction and a zone
    // (Z, +hh:mm or +hhmm; none means UTC). Returns false, with the zero Timestamp, for other
    // strings and for instants outside 1970-01-01 00:00:00 to 2038-01-19 03:14:07 UTC.
    [[nodiscard]] bool parse(std::string_view text) noexcept;

    friend constexpr bool operator==(const Timestamp&, const Timestamp&) noexcept = default;

  private:
    std::int64_t seconds_ = 0;
    std::uint32_t nanoseconds_ = 0;
};

// A written wall-clock time: month 0 to 11, year since 1900, day from 1.
struct BrokenDownTime {
    int second;
    int minute;
    int hour;
    int day;
    int month;
    int year;
};

// Returns the seconds since 1970 of a UTC wall time plus `offset` seconds. Overflowing units carry
// into the next (February 31 is March 3 of a common year). -1 if the year is before 1970, the wall
// time is after 2,147,483,647 s, or the sum is outside 0 to 2,147,483,647 s.
[[nodiscard]] std::int64_t civilToSeconds(const BrokenDownTime& time, std::int64_t offset) noexcept;

}  // namespace Tarsel::Utility

#endif
