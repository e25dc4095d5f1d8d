#include "platform/posix/registry_file.h"

#include <algorithm>
#include <charconv>

#include "platform/posix/registry.h"
#include "platform/posix/text.h"

namespace platform {

namespace {

// ---- Lines with values ----

// Encoding of a string that an export writes as bytes.
enum class TextData { ansi, utf16 };

// deleted: the line removes the value from its key.
struct RegistryLine {
    bool deleted = false;
    RegistryValue value;
};

// Parses the rest of a line from the front. Each function returns false, or nullopt, if its token
// is not there, and then removes nothing that another attempt needs.
class Cursor {
  public:
    explicit Cursor(std::string_view rest) : rest_(rest) {}

    void skipBlanks() {
        rest_.remove_prefix(std::min(rest_.find_first_not_of(" \t"), rest_.size()));
    }

    bool take(std::string_view expected) {
        skipBlanks();
        const bool matches = rest_.starts_with(expected);
        rest_.remove_prefix(matches ? expected.size() : 0);
        return matches;
    }

    // The string up to the closing quote, after the opening one.
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

    // A number of 1 to maxDigits hexadecimal digits, at most 8.
    std::optional<DWORD> takeHexadecimal(std::size_t maxDigits) {
        skipBlanks();
        DWORD number = 0;
        const char* end = rest_.data() + std::min(rest_.size(), maxDigits);
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

// Parses the part after "hex".
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
    const auto wide = wideFromUtf16(*bytes);
    value.data = wide ? ansiText(*wide) : std::string();
    return wide.has_value();
}

// Parses the part after the "=".
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

// Reads one of
//   "name"="text"     a string with the escapes \\ and \"
//   "name"=dword:n    a number of up to 8 hexadecimal digits
//   "name"=hex:b,b    bytes of two hexadecimal digits
//   "name"=hex(n):b,b bytes of a value of type n
//   "name"=-          removes the value
// with @ instead of "name" for the default value and an optional comment after a ";". Returns
// nullopt for any other line.
std::optional<RegistryLine> parseRegistryLine(std::string_view line, TextData textData) {
    Cursor cursor(line);
    RegistryLine result;
    if (takeName(cursor, result.value.name) && cursor.take("=") &&
        takeData(cursor, textData, result) && cursor.isAtEnd()) {
        return result;
    }
    return std::nullopt;
}

// True if the line writes its data as bytes, which continue in the next line after a "\".
bool isHexadecimalLine(std::string_view line) {
    Cursor cursor(line);
    std::string name;
    return takeName(cursor, name) && cursor.take("=") && cursor.take("hex");
}

// ---- Files ----

constexpr std::string_view blanks = " \t\r\n";

// Names in the registry are case-insensitive, here only for letters of ASCII.
std::string foldCase(std::string_view text) {
    std::string folded(text);
    std::transform(folded.begin(), folded.end(), folded.begin(), [](char letter) {
        return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
    });
    return folded;
}

std::string_view trim(std::string_view text) {
    text.remove_prefix(std::min(text.find_first_not_of(blanks), text.size()));
    return text.substr(0, text.find_last_not_of(blanks) + 1);
}

// Returns the content in the ANSI code page, or nullopt if it is not valid in the encoding of its
// byte order mark.
std::optional<std::string> decode(std::string_view content) {
    constexpr std::string_view utf16Mark = "\xFF\xFE";
    constexpr std::string_view utf8Mark = "\xEF\xBB\xBF";
    if (content.starts_with(utf16Mark)) {
        const auto wide = wideFromUtf16(content.substr(utf16Mark.size()));
        return wide ? std::optional(ansiText(*wide)) : std::nullopt;
    }
    if (content.starts_with(utf8Mark)) {
        content.remove_prefix(utf8Mark.size());
    } else if (content.starts_with("REGEDIT4")) {
        return std::string(content);
    }
    // A file without a byte order mark that is not UTF-8 was written in the ANSI code page.
    const auto wide = wideFromUtf8(content);
    return wide ? ansiText(*wide) : std::string(content);
}

// Removes the next line from the front and returns it without surrounding blanks.
std::string_view takeLine(std::string_view& text) {
    const auto length = std::min(text.find('\n'), text.size());
    const std::string_view line = text.substr(0, length);
    text.remove_prefix(std::min(length + 1, text.size()));
    return trim(line);
}

// Returns the next line with the lines that continue its bytes.
std::string takeWholeLine(std::string_view& text) {
    std::string line(takeLine(text));
    const bool mayContinue = isHexadecimalLine(line);
    while (mayContinue && line.ends_with('\\')) {
        line.pop_back();
        line += takeLine(text);
    }
    return line;
}

void eraseKey(RegistryKeys& keys, const std::string& path) {
    keys.erase(path);
    const std::string children = path + '\\';
    auto key = keys.lower_bound(children);
    while (key != keys.end() && key->first.starts_with(children)) {
        key = keys.erase(key);
    }
}

// Creates or deletes the key of a section line. Returns its values, or null if the key is deleted
// or not under HKEY_LOCAL_MACHINE.
RegistryValues* enterSection(RegistryKeys& keys, std::string_view line) {
    const auto end = line.rfind(']');
    if (end == std::string_view::npos) {
        return nullptr;
    }
    const std::string path = foldCase(line.substr(1, end - 1));
    const std::string_view folded = path;
    const bool deleted = folded.starts_with('-');
    constexpr std::string_view root = "hkey_local_machine\\";
    const std::string_view fromRoot = folded.substr(deleted ? 1 : 0);
    if (!fromRoot.starts_with(root)) {
        return nullptr;
    }
    const std::string key(fromRoot.substr(root.size()));
    if (deleted) {
        eraseKey(keys, key);
        return nullptr;
    }
    return &keys[key];
}

void setValue(RegistryValues& values, RegistryLine line) {
    const std::string name = foldCase(line.value.name);
    if (line.deleted) {
        values.erase(name);
    } else {
        values.insert_or_assign(name, std::move(line.value));
    }
}

std::optional<TextData> takeHeader(std::string_view& text) {
    std::string_view line;
    while (line.empty() && !text.empty()) {
        line = takeLine(text);
    }
    if (line == "Windows Registry Editor Version 5.00") {
        return TextData::utf16;
    }
    return line == "REGEDIT4" ? std::optional(TextData::ansi) : std::nullopt;
}

}  // namespace

std::optional<RegistryFile> RegistryFile::parse(std::string_view content) {
    const auto decoded = decode(content);
    if (!decoded) {
        return std::nullopt;
    }
    std::string_view text = *decoded;
    const auto textData = takeHeader(text);
    if (!textData) {
        return std::nullopt;
    }
    RegistryKeys keys;
    RegistryValues* values = nullptr;
    while (!text.empty()) {
        const std::string line = takeWholeLine(text);
        if (line.starts_with('[')) {
            values = enterSection(keys, line);
        } else if (values != nullptr) {
            if (auto parsed = parseRegistryLine(line, *textData)) {
                setValue(*values, *std::move(parsed));
            }
        }
    }
    return RegistryFile(std::move(keys));
}

const RegistryValues* RegistryFile::find(std::string_view path) const {
    const std::string folded = foldCase(path);
    constexpr std::string_view software = "software\\";
    if (folded.starts_with(software)) {
        const std::string suffix = folded.substr(software.size());
        if (const auto* values = findExactly(std::string(software) + "wow6432node\\" + suffix)) {
            return values;
        }
    }
    return findExactly(folded);
}

const RegistryValues* RegistryFile::findExactly(const std::string& foldedPath) const {
    const auto key = keys_.find(foldedPath);
    return key != keys_.end() ? &key->second : nullptr;
}

}  // namespace platform
