#include "platform/posix/registry_file.h"

#include <algorithm>

#include "platform/posix/code_page.h"
#include "platform/posix/encoding.h"

namespace platform {

namespace {

constexpr std::string_view blanks = " \t\r\n";

// Names differ in the registry only where they differ in more than case; of letters outside ASCII
// the case is kept.
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

// The content in the ANSI code page, from whichever encoding it has; none where it is not in the
// encoding of its mark.
std::optional<std::string> decode(std::string_view content) {
    constexpr std::string_view utf16Mark = "\xFF\xFE";
    constexpr std::string_view utf8Mark = "\xEF\xBB\xBF";
    if (content.starts_with(utf16Mark)) {
        const auto wide = wideFromBytes("UTF-16LE", content.substr(utf16Mark.size()));
        return wide ? std::optional(ansiText(*wide)) : std::nullopt;
    }
    if (content.starts_with(utf8Mark)) {
        content.remove_prefix(utf8Mark.size());
    } else if (content.starts_with("REGEDIT4")) {
        return std::string(content);
    }
    // A file without a mark that is not UTF-8 was written in the ANSI code page.
    const auto wide = wideFromBytes("UTF-8", content);
    return wide ? ansiText(*wide) : std::string(content);
}

// Takes the next line off the text, without blanks around it.
std::string_view takeLine(std::string_view& text) {
    const auto length = std::min(text.find('\n'), text.size());
    const std::string_view line = text.substr(0, length);
    text.remove_prefix(std::min(length + 1, text.size()));
    return trim(line);
}

// The same with the lines that continue its bytes.
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

// Makes or deletes the key that a section line names, and gives its values to fill: none where the
// key is deleted or not under HKEY_LOCAL_MACHINE.
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
