#include "parameters/parameter.h"

#include <algorithm>
#include <string_view>

#include "module/ground/trace.h"
#include "parameters/data_type.h"
#include "parameters/dictionary.h"

namespace Tarsel::Datasources::QAR {

using pyORV3::Status;
using pyORV3::success;

namespace {

std::string_view withoutTrailingWhiteSpace(std::string_view text) {
    const std::size_t last = text.find_last_not_of(" \t\n\v\f\r");
    return text.substr(0, last == std::string_view::npos ? 0 : last + 1);
}

// The longest beginning of at most `limit` bytes that does not cut a UTF-8 sequence in two.
std::string_view cutText(std::string_view text, std::size_t limit) {
    if (text.size() <= limit) {
        return text;
    }
    const auto continuesSequence = [](char byte) {
        return (static_cast<unsigned char>(byte) & 0xC0) == 0x80;
    };
    constexpr std::size_t longestContinuation = 3;
    std::size_t end = limit;
    while (end > limit - longestContinuation && continuesSequence(text[end])) {
        --end;
    }
    return text.substr(0, end);
}

// Fills a NUL-terminated character field; what does not fit is cut.
template <std::size_t fieldSize>
void store(std::array<char, fieldSize>& field, std::string_view text) {
    text = cutText(withoutTrailingWhiteSpace(text), fieldSize - 1);
    field.fill('\0');
    std::ranges::copy(text, field.begin());
}

}  // namespace

Parameter::Parameter(std::uint32_t code) {
    if (const Status status = load(code); status != success) {
        throw static_cast<long>(codeOf(status));
    }
}

Status Parameter::load(std::uint32_t code) {
    if (code == 0) {
        return pyORV3::parameterUnknown;
    }
    code_ = code;
    classCode_ = classCodeOf(code);
    type_ = 0;
    size_ = 0;
    attributes_.fill(0);
    reserved_ = 0;
    name_.fill('\0');
    description_.fill('\0');

    ParameterInfo info;
    if (const Status status = getParameterInfo(code, info); status != success) {
        return trace("Parameter::load", pyORV3::failureLevel, "The dictionary has no description",
                     status);
    }
    constexpr std::uint32_t low16 = 0xFFFF;
    type_ = info.type;
    size_ = (isText(info.type) ? info.length + 1 : info.size) & low16;
    attributes_ = {info.output7, info.length, info.output6 & low16, info.output12};
    output11_ = info.output11;
    store(name_, info.name.data());
    store(description_, info.description.data());
    return success;
}

bool Parameter::descriptionHasHighBytes() const noexcept {
    return std::ranges::any_of(description_,
                               [](char byte) { return static_cast<unsigned char>(byte) >= 0x80; });
}

}  // namespace Tarsel::Datasources::QAR
