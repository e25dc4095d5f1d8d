// Numbers in value bytes, which are little-endian.
#ifndef PYORV3_PARAMETERS_LITTLE_ENDIAN_H
#define PYORV3_PARAMETERS_LITTLE_ENDIAN_H

#include <bit>
#include <cstdint>
#include <cstring>

namespace Tarsel::Utility {

static_assert(std::endian::native == std::endian::little,
              "value bytes are moved as the machine holds them");

// The number of type Number in the sizeof(Number) bytes at `bytes`, which need no alignment.
template <typename Number>
[[nodiscard]] Number readLittleEndian(const std::uint8_t* bytes) noexcept {
    Number number{};
    std::memcpy(&number, bytes, sizeof number);
    return number;
}

// Writes the sizeof(Number) bytes of the number to `bytes`.
template <typename Number>
void writeLittleEndian(std::uint8_t* bytes, Number number) noexcept {
    std::memcpy(bytes, &number, sizeof number);
}

}  // namespace Tarsel::Utility

#endif
