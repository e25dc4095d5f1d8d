#include "embedded/orv/content/checksum.h"

#define XXH_INLINE_ALL
#include <xxhash.h>

namespace embedded {

Checksum checksumOfRow(std::uint32_t code, std::size_t record, std::size_t entry,
                       std::span<const char> bytes) {
    const bool isMark = (code & 0xFFFFU) == 0 && record > 0;
    return XXH3_64bits_withSeed(bytes.data(), bytes.size(),
                                keyOfRow(isMark ? 0 : code, record, entry));
}

}  // namespace embedded
