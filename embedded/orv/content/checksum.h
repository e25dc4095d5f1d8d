// The checksums of the rows of a file (FORMAT.md).
#ifndef PYORV3_EMBEDDED_ORV_CONTENT_CHECKSUM_H
#define PYORV3_EMBEDDED_ORV_CONTENT_CHECKSUM_H

#include <cstddef>
#include <cstdint>
#include <span>

namespace embedded {

// 64 bits of XXH3. The checksum of several rows is the sum of their checksums modulo 2^64, so it
// can be updated from the changed row alone.
using Checksum = std::uint64_t;

// The code of the row of a class's block (record and entry 0), and of the rows that mark its
// records (entry 0) and their entries. No parameter has such a code.
constexpr std::uint32_t codeOfBlock(std::uint16_t classCode) {
    return std::uint32_t{classCode} << 16U;
}

// The key of a row. record, entry: at most 65,535.
constexpr std::uint64_t keyOfRow(std::uint32_t code, std::size_t record, std::size_t entry) {
    return std::uint64_t{code} << 32U | std::uint64_t{record} << 16U | std::uint64_t{entry};
}

// Returns the checksum of a row with its key. Ignores the class of a row that marks a record or
// entry.
Checksum checksumOfRow(std::uint32_t code, std::size_t record, std::size_t entry,
                       std::span<const char> bytes);

}  // namespace embedded

#endif
