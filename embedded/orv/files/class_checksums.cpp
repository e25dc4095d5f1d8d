#include "embedded/orv/files/class_checksums.h"

#include <cstring>

#include "embedded/orv/content/failure.h"

namespace embedded {
namespace {

constexpr std::size_t classCodeSize = sizeof(std::uint16_t);
constexpr std::size_t itemSize = classCodeSize + sizeof(Checksum);

}  // namespace

ClassChecksums::ClassChecksums(std::span<const char> bytes) {
    if (bytes.size() % itemSize != 0) {
        throw Failure(codes::damaged);
    }
    for (; !bytes.empty(); bytes = bytes.subspan(itemSize)) {
        std::uint16_t classCode = 0;
        Checksum checksum = 0;
        std::memcpy(&classCode, bytes.data(), sizeof classCode);
        std::memcpy(&checksum, &bytes[classCodeSize], sizeof checksum);
        set(classCode, checksum);
    }
}

Checksum ClassChecksums::of(std::uint16_t classCode) const {
    const auto item = checksums_.find(classCode);
    if (item == checksums_.end()) {
        throw Failure(codes::damaged);
    }
    return item->second;
}

std::vector<std::uint16_t> ClassChecksums::classes() const {
    std::vector<std::uint16_t> classes;
    for (const auto& [classCode, checksum] : checksums_) {
        classes.push_back(classCode);
    }
    return classes;
}

std::string ClassChecksums::bytes() const {
    std::string bytes;
    for (const auto& [classCode, checksum] : checksums_) {
        bytes.append(reinterpret_cast<const char*>(&classCode), sizeof classCode);
        bytes.append(reinterpret_cast<const char*>(&checksum), sizeof checksum);
    }
    return bytes;
}

}  // namespace embedded
