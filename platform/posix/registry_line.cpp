#include "platform/posix/registry_line.h"

#include <algorithm>
#include <charconv>

#include "platform/posix/code_page.h"
#include "platform/posix/encoding.h"
#include "platform/posix/registry.h"

namespace platform {

namespace {

// The rest of a line, read from the front. Each function that takes something says whether it was
// there, and otherwise takes nothing that a further attempt needs.
class Cursor {
  public:
    explicit Cursor(std::string_view rest) : rest_(rest) {}

    void skipBlanks() {
        rest_.remove_prefix(std::min(rest_.find_first_not_of(" \t"), rest_.size()));
    }

    bool take(std::string_view expected) {
        skipBlanks();
        const bool found = rest_.starts_with(expected);
        rest_.remove_prefix(found ? expected.size() : 0);
        return found;
    }

    // The text up to the closing quote; the opening one is already taken.
    std::optional<std::string> takeQuoted() {
        std::string text;
        for (std::size_t i = 0; i < rest_.size(); ++i) {
            if (rest_[i] == '"') {
                rest_.remove_prefix(i + 1);
                return text;
            }
            const bool escape = rest_[i] == '\\' && i + 1 < rest_.size() &&
                                (rest_[i + 1] == '\\' || rest_[i + 1] == '"');
            i += escape ? 1 : 0;
            text.push_back(rest_[i]);
        }
        return std::nullopt;
    }

    // A number of 1 to maximumDigits hexadecimal digits, at most 8.
    std::optional<DWORD> takeHexadecimal(std::size_t maximumDigits) {
        skipBlanks();
        DWORD number = 0;
        const char* end = rest_.data() + std::min(rest_.size(), maximumDigits);
        const auto [next, error] = std::from_chars(rest_.data(), end, number, 16);
        if (error != std::errc()) {
            return std::nullopt;
        }
        rest_.remove_prefix(static_cast<std::size_t>(next - rest_.data()));
        return number;
    }

    bool isAtEnd() {
        skipBlanks();
        return rest_.empty() || rest_.front() == ';';
    }

  private:
    std::string_view rest_;
};

std::string littleEndian(DWORD number) {
    std::string bytes;
    for (unsigned shift = 0; shift < 32; shift += 8) {
        bytes.push_back(static_cast<char>(number >> shift & 0xFF));
    }
    return bytes;
}

std::optional<std::string> takeBytes(Cursor& cursor) {
    std::string bytes;
    if (cursor.isAtEnd()) {
        return bytes;
    }
    do {
        const auto byte = cursor.takeHexadecimal(2);
        if (!byte) {
            return std::nullopt;
        }
        bytes.push_back(static_cast<char>(*byte));
    } while (cursor.take(","));
    return bytes;
}

bool isText(DWORD type) {
    return type == REG_SZ || type == REG_EXPAND_SZ || type == REG_MULTI_SZ;
}

// What follows "hex".
bool takeHexadecimalData(Cursor& cursor, TextData textData, RegistryValue& value) {
    value.type = REG_BINARY;
    if (cursor.take("(")) {
        const auto type = cursor.takeHexadecimal(8);
        if (!type || !cursor.take(")")) {
            return false;
        }
        value.type = *type;
    }
    if (!cursor.take(":")) {
        return false;
    }
    const auto bytes = takeBytes(cursor);
    if (!bytes) {
        return false;
    }
    if (textData != TextData::utf16 || !isText(value.type)) {
        value.data = *bytes;
        return true;
    }
    const auto wide = wideFromBytes("UTF-16LE", *bytes);
    value.data = wide ? ansiText(*wide) : std::string();
    return wide.has_value();
}

// What follows the "=".
bool takeData(Cursor& cursor, TextData textData, RegistryLine& line) {
    if (cursor.take("-")) {
        line.deleted = true;
        return true;
    }
    if (cursor.take("\"")) {
        const auto text = cursor.takeQuoted();
        line.value.type = REG_SZ;
        line.value.data = text.value_or("") + '\0';
        return text.has_value();
    }
    if (cursor.take("dword:")) {
        const auto number = cursor.takeHexadecimal(8);
        line.value.type = REG_DWORD;
        line.value.data = littleEndian(number.value_or(0));
        return number.has_value();
    }
    return cursor.take("hex") && takeHexadecimalData(cursor, textData, line.value);
}

bool takeName(Cursor& cursor, std::string& name) {
    if (cursor.take("@")) {
        return true;
    }
    const auto quoted = cursor.take("\"") ? cursor.takeQuoted() : std::nullopt;
    name = quoted.value_or("");
    return quoted.has_value();
}

}  // namespace

std::optional<RegistryLine> parseRegistryLine(std::string_view line, TextData textData) {
    Cursor cursor(line);
    RegistryLine result;
    if (takeName(cursor, result.value.name) && cursor.take("=") &&
        takeData(cursor, textData, result) && cursor.isAtEnd()) {
        return result;
    }
    return std::nullopt;
}

bool isHexadecimalLine(std::string_view line) {
    Cursor cursor(line);
    std::string name;
    return takeName(cursor, name) && cursor.take("=") && cursor.take("hex");
}

}  // namespace platform
