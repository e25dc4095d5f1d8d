#include "embedded/orv/files/rollback_journal.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <span>
#include <vector>

#include "embedded/orv/content/failure.h"
#include "embedded/orv/files/file_descriptor.h"

namespace embedded {
namespace {

constexpr std::array<unsigned char, 8> magic = {0xD9, 0xD5, 0x05, 0xF9, 0x20, 0xA1, 0x63, 0xD7};
// Replaces the number of records in a journal that is not synced: all records up to its end.
constexpr std::uint32_t countedBySize = 0xFFFFFFFF;

struct Header {
    std::uint32_t recordCount;
    std::uint32_t checksumSeed;
    std::uint32_t pageCount;
    std::uint32_t sectorSize;
    std::uint32_t pageSize;
};

class JournalFile {
  public:
    explicit JournalFile(const std::string& path) : file_(path, O_RDONLY) {}

    [[nodiscard]] std::int64_t size() const {
        struct stat status {};
        if (fstat(file_.number(), &status) != 0) {
            throwSystemFailure(errno);
        }
        return status.st_size;
    }
    // False if the file is too short.
    bool read(std::int64_t offset, std::span<unsigned char> bytes) const {
        const ssize_t length = pread(file_.number(), bytes.data(), bytes.size(), offset);
        if (length < 0) {
            throwSystemFailure(errno);
        }
        return static_cast<std::size_t>(length) == bytes.size();
    }
    // nullopt if the file is too short.
    [[nodiscard]] std::optional<std::uint32_t> number(std::int64_t offset) const {
        std::array<unsigned char, 4> bytes{};
        return read(offset, bytes) ? std::optional(bigEndian(bytes)) : std::nullopt;
    }
    // nullopt if SQLite does not accept the bytes at the offset as a header.
    [[nodiscard]] std::optional<Header> header(std::int64_t offset) const {
        std::array<unsigned char, magic.size() + sizeof(Header)> bytes{};
        if (!read(offset, bytes) || !std::equal(magic.begin(), magic.end(), bytes.begin())) {
            return std::nullopt;
        }
        const auto number = [&](std::size_t index) {
            return bigEndian(std::span(bytes).subspan(magic.size()).subspan(4 * index));
        };
        const Header header{number(0), number(1), number(2), number(3), number(4)};
        const bool isValid = isPowerOfTwo(header.sectorSize, 32, 65536) &&
                             isPowerOfTwo(header.pageSize, 512, 65536) &&
                             offset + header.sectorSize <= size();
        return isValid ? std::optional(header) : std::nullopt;
    }

  private:
    static std::uint32_t bigEndian(std::span<const unsigned char> bytes) {
        return std::uint32_t{bytes[0]} << 24U | std::uint32_t{bytes[1]} << 16U |
               std::uint32_t{bytes[2]} << 8U | bytes[3];
    }
    static bool isPowerOfTwo(std::uint32_t size, std::uint32_t min, std::uint32_t max) {
        return size >= min && size <= max && std::has_single_bit(size);
    }

    FileDescriptor file_;
};

// SQLite adds every 200th byte, counted from the end.
std::uint32_t checksumOfPage(std::span<const unsigned char> page, std::uint32_t seed) {
    for (std::size_t distance = 200; distance < page.size(); distance += 200) {
        seed += page[page.size() - distance];
    }
    return seed;
}

// Returns the page in the record at the offset, or nullopt if the record is not complete.
std::optional<FirstPage> pageAt(const JournalFile& file, std::int64_t offset,
                                const Header& header) {
    std::vector<unsigned char> page(header.pageSize);
    const bool isRead = file.read(offset + 4, page);
    const auto checksum = file.number(offset + 4 + header.pageSize);
    if (!isRead || checksum != checksumOfPage(page, header.checksumSeed)) {
        return std::nullopt;
    }
    return FirstPage(page);
}

}  // namespace

std::optional<RollbackJournal> RollbackJournal::read(const std::string& path) {
    const JournalFile file(path);
    const auto first = file.header(0);
    if (!first) {
        return std::nullopt;
    }
    RollbackJournal journal;
    journal.databaseSize_ = std::int64_t{first->pageCount} * first->pageSize;
    const std::int64_t recordSize = std::int64_t{first->pageSize} + 8;
    std::int64_t offset = 0;
    for (auto header = first; header && !journal.firstPage_; header = file.header(offset)) {
        offset += header->sectorSize;
        const std::int64_t count = header->recordCount == countedBySize
                                       ? (file.size() - offset) / recordSize
                                       : std::int64_t{header->recordCount};
        journal.hasPages_ = journal.hasPages_ || count > 0;
        for (std::int64_t record = 0; record < count; ++record, offset += recordSize) {
            const auto number = file.number(offset);
            if (!number) {
                return journal;
            }
            if (*number == 1) {
                journal.firstPage_ = pageAt(file, offset, *first);
                return journal;
            }
        }
        offset += (header->sectorSize - offset % header->sectorSize) % header->sectorSize;
    }
    return journal;
}

}  // namespace embedded
