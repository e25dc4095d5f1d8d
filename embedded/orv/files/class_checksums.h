// The directory of a file: its classes and their checksums.
#ifndef PYORV3_EMBEDDED_ORV_FILES_CLASS_CHECKSUMS_H
#define PYORV3_EMBEDDED_ORV_FILES_CLASS_CHECKSUMS_H

#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <vector>

#include "embedded/orv/content/checksum.h"

namespace embedded {

// The code of the row that stores the directory; its record and entry are 0.
inline constexpr std::uint32_t directoryCode = 0;

// The checksums of all classes that have a block.
class ClassChecksums {
  public:
    ClassChecksums() = default;
    // bytes: the stored form. Throws Failure(damaged).
    explicit ClassChecksums(std::span<const char> bytes);

    // Adds a class or replaces its checksum.
    void set(std::uint16_t classCode, Checksum checksum) { checksums_[classCode] = checksum; }
    void remove(std::uint16_t classCode) { checksums_.erase(classCode); }

    // Throws Failure(damaged) if the file has no block of the class.
    [[nodiscard]] Checksum of(std::uint16_t classCode) const;
    // Ascending.
    [[nodiscard]] std::vector<std::uint16_t> classes() const;
    [[nodiscard]] std::string bytes() const;

  private:
    std::map<std::uint16_t, Checksum> checksums_;
};

}  // namespace embedded

#endif
