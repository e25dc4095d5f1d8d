// The first page of a database file: the header and the rows of the schema.
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

// The first bytes of a database file on the disk. These are its first page if pages have the usual
// size.
class FirstPage {
  public:
    static constexpr std::size_t headerSize = 100;

    explicit FirstPage(Database& database);
    // bytes: at most 4,096; missing ones are 0.
    explicit FirstPage(std::span<const unsigned char> bytes);

    // True if the file begins like a data source, which may be damaged.
    [[nodiscard]] bool isOfDataSource() const;
    [[nodiscard]] std::uint32_t schemaVersion() const { return number(60, 4); }
    [[nodiscard]] std::uint32_t pageSize() const;
    // Returns the expected number of pages, or 0 if the program that wrote the file does not count
    // them.
    [[nodiscard]] std::uint32_t pageCount() const;
    // Increases by 1 with each commit, except in write-ahead mode.
    [[nodiscard]] std::uint32_t changeCounter() const { return number(24, 4); }
    // True if the latest pages may be in a write-ahead log.
    [[nodiscard]] bool usesWriteAheadLog() const { return bytes_[18] == 2; }
    // True if the header has both the first unused page and a number of unused pages, or neither.
    [[nodiscard]] bool hasPlausibleFreeList() const;

    [[nodiscard]] std::span<const unsigned char> bytes() const { return bytes_; }
    [[nodiscard]] std::span<const unsigned char> header() const {
        return bytes().first(headerSize);
    }

  private:
    // Returns the big-endian number at the offset.
    [[nodiscard]] std::uint32_t number(std::size_t offset, std::size_t width) const;

    std::array<unsigned char, 4096> bytes_{};
};

// Sets the change counter in the bytes of a database file.
void setChangeCounter(std::span<char> file, std::uint32_t counter);

}  // namespace embedded

#endif
