// Reading of date texts. The numbers are read without the C library's scanning functions, whose
// decimal point follows the process's locale.
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <optional>

#include "parameters/timestamp.h"

namespace Tarsel::Utility {

namespace {

constexpr std::size_t longestText = 63;
constexpr std::size_t longestTimePart = 31;
constexpr std::size_t longestZonePart = 15;

// Reads numbers and single characters from the front of a text, as a scanning format would.
class Scanner {
  public:
    explicit Scanner(std::string_view text) noexcept : rest_(text) {}

    // A decimal integer with an optional sign after optional blanks, of at most `width`
    // characters. Numbers beyond the range of int become its limits.
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

    // A single-precision number after optional blanks; infinity beyond its range.
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

    // True when the text goes on with exactly this character.
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
    text = text.substr(0, longestText);
    const std::size_t separator = text.find('T');
    parts.date = text.substr(0, separator);
    if (separator != std::string_view::npos) {
        parts.time = text.substr(separator + 1, longestTimePart);
        const std::size_t zone = parts.time.find_first_of("Z+-");
        if (zone != std::string_view::npos) {
            parts.zone = parts.time.substr(zone, longestZonePart);
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
    // Every month has 31 days here: what lies beyond its end is moved into the next.
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

// The seconds to add to the written wall time to get UTC; nothing when the zone is refused.
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
