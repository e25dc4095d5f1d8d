// The header of a database file and the schema's rows behind it.
#ifndef PYORV3_EMBEDDED_ORV_FILES_FIRST_PAGE_H
#define PYORV3_EMBEDDED_ORV_FILES_FIRST_PAGE_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "embedded/orv/files/database.h"

namespace embedded {

// "QAR3" as the database's application id.
inline constexpr std::uint32_t applicationId = 0x51415233;

// The start of a database file as it is on the disk. That is its first page if pages have the
// usual size.
class FirstPage {
  public:
    static constexpr std::size_t headerSize = 100;

    explicit FirstPage(Database& database);
    // bytes: at most 4,096; the rest counts as zeros.
    explicit FirstPage(std::span<const unsigned char> bytes);

    // True if the file begins as a data source does, damaged or not.
    [[nodiscard]] bool isOfDataSource() const;
    [[nodiscard]] std::uint32_t schemaVersion() const { return number(60, 4); }
    [[nodiscard]] std::uint32_t pageSize() const;
    // The pages that the file should have, or 0 if the program that wrote it does not count them.
    [[nodiscard]] std::uint32_t pageCount() const;
    // Increases by 1 with each commit, except in write-ahead mode.
    [[nodiscard]] std::uint32_t changeCounter() const { return number(24, 4); }
    // The latest pages may be in the write-ahead log.
    [[nodiscard]] bool usesWriteAheadLog() const { return bytes_[18] == 2; }
    // The list of unused pages and its length are either both there or both missing.
    [[nodiscard]] bool hasPlausibleFreeList() const;

    [[nodiscard]] std::span<const unsigned char> bytes() const { return bytes_; }
    [[nodiscard]] std::span<const unsigned char> header() const {
        return bytes().first(headerSize);
    }

  private:
    // The number in successive bytes, the most significant first.
    [[nodiscard]] std::uint32_t number(std::size_t offset, std::size_t width) const;

    std::array<unsigned char, 4096> bytes_{};
};

// Sets the change counter in the bytes of a database file.
void setChangeCounter(std::span<char> file, std::uint32_t counter);

}  // namespace embedded

#endif
