#include "embedded/orv/files/first_page.h"

#include <algorithm>
#include <cstring>
#include <string_view>

namespace embedded {
namespace {

constexpr std::size_t counterOffset = 24;
// The change counter at which the page count was last written.
constexpr std::size_t countedAtOffset = 92;

}  // namespace

FirstPage::FirstPage(Database& database) {
    database.readStart(bytes_);
}

FirstPage::FirstPage(std::span<const unsigned char> bytes) {
    std::ranges::copy(bytes.first(std::min(bytes.size(), bytes_.size())), bytes_.begin());
}

std::uint32_t FirstPage::number(std::size_t offset, std::size_t width) const {
    std::uint32_t number = 0;
    for (const unsigned char byte : bytes().subspan(offset, width)) {
        number = number << 8U | byte;
    }
    return number;
}

bool FirstPage::isOfDataSource() const {
    constexpr std::string_view magic{"SQLite format 3\0", 16};
    return std::memcmp(bytes_.data(), magic.data(), magic.size()) == 0 &&
           number(68, 4) == applicationId;
}

std::uint32_t FirstPage::pageSize() const {
    const std::uint32_t size = number(16, 2);
    return size == 1 ? 65536 : size;
}

std::uint32_t FirstPage::pageCount() const {
    return changeCounter() == number(countedAtOffset, 4) ? number(28, 4) : 0;
}

bool FirstPage::hasPlausibleFreeList() const {
    const std::uint32_t first = number(32, 4);
    const std::uint32_t length = number(36, 4);
    return (first == 0) == (length == 0);
}

void setChangeCounter(std::span<char> file, std::uint32_t counter) {
    for (const std::size_t offset : {counterOffset, countedAtOffset}) {
        for (std::size_t byte = 0; byte < sizeof counter; ++byte) {
            file[offset + byte] = static_cast<char>(counter >> (24 - 8 * byte));
        }
    }
}

}  // namespace embedded
