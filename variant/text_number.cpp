#include "variant/text_number.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <string>
#include <system_error>

namespace com::tarsel::utility {

namespace {

constexpr std::string_view digits = "0123456789";

// The part of the text in which a number can stand: without leading white space and a leading
// plus sign, which std::from_chars does not take, up to the first character outside ASCII.
std::string numberCandidate(std::u16string_view text) {
    constexpr std::u16string_view whiteSpace = u" \t\n\v\f\r";
    text.remove_prefix(std::min(text.find_first_not_of(whiteSpace), text.size()));
    const bool hasPlus = text.starts_with(u'+');
    text.remove_prefix(hasPlus ? 1 : 0);
    if (hasPlus && text.starts_with(u'-')) {
        return {};
    }
    std::string candidate;
    for (const char16_t character : text) {
        constexpr char16_t lastOfAscii = 0x7F;
        if (character > lastOfAscii) {
            break;
        }
        candidate += static_cast<char>(character);
    }
    return candidate;
}

// Without a sign: std::from_chars alone would also take "inf" and "nan".
bool beginsWithDecimalNumber(std::string_view candidate) {
    candidate.remove_prefix(candidate.starts_with('-') ? 1 : 0);
    candidate.remove_prefix(candidate.starts_with('.') ? 1 : 0);
    return !candidate.empty() && digits.find(candidate.front()) != std::string_view::npos;
}

std::int64_t readInteger(std::string_view candidate) {
    std::int64_t number = 0;
    const auto [end, error] =
        std::from_chars(candidate.data(), candidate.data() + candidate.size(), number);
    if (error == std::errc::result_out_of_range) {
        using Limits = std::numeric_limits<std::int64_t>;
        return candidate.starts_with('-') ? Limits::min() : Limits::max();
    }
    return number;
}

// The end of the double's range that a well-formed number has left. The power of ten of its first
// significant digit tells: it is far from zero.
double beyondRange(std::string_view number) {
    const std::size_t mantissaSize = std::min(number.find_first_of("eE"), number.size());
    const std::string_view mantissa = number.substr(0, mantissaSize);
    std::string_view exponent = number.substr(mantissaSize);
    exponent.remove_prefix(std::min(exponent.find_first_of("-0123456789"), exponent.size()));

    const auto point = static_cast<std::int64_t>(std::min(mantissa.find('.'), mantissa.size()));
    const auto firstDigit = static_cast<std::int64_t>(mantissa.find_first_of("123456789"));
    const bool isLarge = readInteger(exponent) > firstDigit - point;
    const double magnitude = isLarge ? std::numeric_limits<double>::infinity() : 0.0;
    return number.starts_with('-') ? -magnitude : magnitude;
}

}  // namespace

std::int64_t integerIn(std::u16string_view text) {
    return readInteger(numberCandidate(text));
}

double floatingNumberIn(std::u16string_view text) {
    const std::string candidate = numberCandidate(text);
    if (!beginsWithDecimalNumber(candidate)) {
        return 0.0;
    }
    double number = 0.0;
    const char* const begin = candidate.data();
    const auto [end, error] = std::from_chars(begin, begin + candidate.size(), number);
    if (error == std::errc::result_out_of_range) {
        return beyondRange({begin, end});
    }
    return number;
}

bool flagIn(std::u16string_view text) {
    constexpr std::u16string_view trueLetters = u"TtYy";
    constexpr std::u16string_view falseLetters = u"FfNn";
    if (text.empty() || falseLetters.find(text.front()) != std::u16string_view::npos) {
        return false;
    }
    return trueLetters.find(text.front()) != std::u16string_view::npos || integerIn(text) != 0;
}

}  // namespace com::tarsel::utility
