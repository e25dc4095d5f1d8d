#include "embedded/orv/files/file_name.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <memory>

#include "embedded/orv/content/failure.h"
#include "embedded/orv/files/file_descriptor.h"

namespace embedded {
namespace {

// Windows-1252 from 0x80 to 0x9F; it is Latin-1 elsewhere, and where it has no character.
constexpr std::array<std::uint16_t, 32> windows1252 = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0x008D, 0x017D, 0x008F, 0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};

std::uint32_t characterOf(unsigned char byte) {
    return byte >= 0x80 && byte <= 0x9F ? windows1252.at(byte - 0x80U) : byte;
}

void appendUtf8(std::string& text, std::uint32_t character) {
    const auto append = [&text](std::uint32_t byte) { text += static_cast<char>(byte); };
    if (character < 0x80) {
        append(character);
    } else if (character < 0x800) {
        append(0xC0U | character >> 6U);
        append(0x80U | (character & 0x3FU));
    } else {
        append(0xE0U | character >> 12U);
        append(0x80U | (character >> 6U & 0x3FU));
        append(0x80U | (character & 0x3FU));
    }
}

// The sequences of UTF-8 by their first byte, and what may follow it; then come bytes 80 to BF.
struct Sequence {
    unsigned char firstLow, firstHigh;
    unsigned char secondLow, secondHigh;
    std::size_t length;
};
constexpr std::array<Sequence, 9> sequences = {{
    {0x00, 0x7F, 0, 0, 1},
    {0xC2, 0xDF, 0x80, 0xBF, 2},
    {0xE0, 0xE0, 0xA0, 0xBF, 3},
    {0xE1, 0xEC, 0x80, 0xBF, 3},
    {0xED, 0xED, 0x80, 0x9F, 3},
    {0xEE, 0xEF, 0x80, 0xBF, 3},
    {0xF0, 0xF0, 0x90, 0xBF, 4},
    {0xF1, 0xF3, 0x80, 0xBF, 4},
    {0xF4, 0xF4, 0x80, 0x8F, 4},
}};

bool isBetween(char byte, unsigned char low, unsigned char high) {
    const auto number = static_cast<unsigned char>(byte);
    return number >= low && number <= high;
}

// The length of the sequence that the text begins with; 0 when it begins with none.
std::size_t sequenceLength(std::string_view text) {
    for (const Sequence& sequence : sequences) {
        if (isBetween(text[0], sequence.firstLow, sequence.firstHigh)) {
            if (text.size() < sequence.length ||
                (sequence.length > 1 &&
                 !isBetween(text[1], sequence.secondLow, sequence.secondHigh))) {
                return 0;
            }
            for (std::size_t place = 2; place < sequence.length; ++place) {
                if (!isBetween(text[place], 0x80, 0xBF)) {
                    return 0;
                }
            }
            return sequence.length;
        }
    }
    return 0;
}

}  // namespace

bool isUtf8(std::string_view text) {
    while (!text.empty()) {
        const std::size_t length = sequenceLength(text);
        if (length == 0) {
            return false;
        }
        text.remove_prefix(length);
    }
    return true;
}

std::string nameInUtf8(std::string_view name) {
    if (isUtf8(name)) {
        return std::string(name);
    }
    std::string text;
    for (const char byte : name) {
        appendUtf8(text, characterOf(static_cast<unsigned char>(byte)));
    }
    return text;
}

void requireLocalPath(std::string_view path) {
    const auto isLetter = [](char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); };
    const auto isSlash = [](char c) { return c == '\\' || c == '/'; };
    if (path.starts_with("\\\\") ||
        (path.size() > 2 && isLetter(path[0]) && path[1] == ':' && isSlash(path[2]))) {
        throw Failure(codes::windowsPath);
    }
}

std::string absolutePath(const std::string& name) {
    const auto release = [](char* text) { std::free(text); };
    const std::unique_ptr<char, decltype(release)> resolved(realpath(name.c_str(), nullptr));
    if (resolved == nullptr) {
        throwSystemFailure(errno);
    }
    return resolved.get();
}

std::string folderOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos) {
        return ".";
    }
    return path.substr(0, slash == 0 ? 1 : slash);
}

std::string lastNameOf(const std::string& path) {
    return path.substr(path.rfind('/') + 1);
}

void requireSavable(const std::string& path) {
    constexpr std::size_t journalSuffix = sizeof "-journal" - 1;
    const sqlite3_vfs* const files = sqlite3_vfs_find(nullptr);
    if (files == nullptr) {
        throw std::bad_alloc();
    }
    const std::string folder = folderOf(path);
    const long stated = pathconf(folder.c_str(), _PC_NAME_MAX);
    const std::size_t longestName = stated > 0 ? static_cast<std::size_t>(stated) : NAME_MAX;
    if (lastNameOf(path).size() + journalSuffix > longestName ||
        path.size() + journalSuffix > static_cast<std::size_t>(files->mxPathname)) {
        throw Failure(codes::nameRefused);
    }
    const FileDescriptor opened(folder, O_RDONLY | O_DIRECTORY);
    if (faccessat(AT_FDCWD, folder.c_str(), W_OK | X_OK, AT_EACCESS) != 0) {
        throwSystemFailure(errno);
    }
}

}  // namespace embedded
