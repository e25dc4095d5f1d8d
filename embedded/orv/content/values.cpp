#include "embedded/orv/content/values.h"

#include <cstring>

namespace embedded {
namespace {

constexpr std::size_t codeSize = sizeof(std::uint32_t);
constexpr std::size_t headSize = codeSize + sizeof(std::uint16_t);

template <typename Number>
Number numberAt(const char* place) {
    Number number{};
    std::memcpy(&number, place, sizeof number);
    return number;
}

}  // namespace

Value Values::Iterator::operator*() const {
    return {numberAt<std::uint32_t>(place_),
            {place_ + headSize, numberAt<std::uint16_t>(place_ + codeSize)}};
}

Values::Iterator& Values::Iterator::operator++() {
    place_ += headSize + numberAt<std::uint16_t>(place_ + codeSize);
    return *this;
}

std::optional<ValueBytes> Values::find(std::uint32_t code) const {
    for (const Value value : *this) {
        if (value.code == code) {
            return value.bytes;
        }
    }
    return std::nullopt;
}

void Values::set(std::uint32_t code, ValueBytes bytes) {
    const auto length = static_cast<std::uint16_t>(bytes.size());
    std::string packed(headSize, '\0');
    std::memcpy(packed.data(), &code, sizeof code);
    std::memcpy(packed.data() + codeSize, &length, sizeof length);
    packed.append(bytes);

    std::size_t place = 0;
    std::size_t replaced = 0;
    for (const Value value : *this) {
        if (value.code >= code) {
            replaced = value.code == code ? headSize + value.bytes.size() : 0;
            break;
        }
        place += headSize + value.bytes.size();
    }
    packed_.replace(place, replaced, packed);
}

}  // namespace embedded
