#include "environment/registry_key.h"

#include <algorithm>
#include <vector>

namespace pyORV3 {

namespace {

constexpr DWORD usualSize = 256;

// A name has at most 16,383 characters, of at most two bytes each in an ANSI code page.
constexpr DWORD maximumNameSize = 2 * 16383 + 1;

constexpr DWORD maximumDataSize = 1024 * 1024;

// The characters before the first NUL.
std::string textIn(const std::vector<char>& buffer, DWORD size) {
    const auto end = buffer.begin() + static_cast<std::ptrdiff_t>(size);
    return {buffer.begin(), std::find(buffer.begin(), end, '\0')};
}

}  // namespace

RegistryKey::RegistryKey(HKEY root, const char* path) {
    if (RegOpenKeyExA(root, path, 0, KEY_READ, &key_) != ERROR_SUCCESS) {
        key_ = nullptr;
    }
}

RegistryKey::~RegistryKey() {
    if (isOpen()) {
        RegCloseKey(key_);
    }
}

RegistryKey::Reading RegistryKey::readValue(std::uint32_t index, std::string& name,
                                            std::string& text) const {
    std::vector<char> nameBuffer(usualSize);
    std::vector<char> dataBuffer(usualSize);
    for (;;) {
        auto nameSize = static_cast<DWORD>(nameBuffer.size());
        auto dataSize = static_cast<DWORD>(dataBuffer.size());
        const LSTATUS status =
            RegEnumValueA(key_, index, nameBuffer.data(), &nameSize, nullptr, nullptr,
                          reinterpret_cast<BYTE*>(dataBuffer.data()), &dataSize);
        if (status == ERROR_SUCCESS) {
            name = textIn(nameBuffer, nameSize);
            text = textIn(dataBuffer, dataSize);
            return Reading::value;
        }
        if (status == ERROR_NO_MORE_ITEMS) {
            return Reading::end;
        }
        const DWORD nextSize = std::max(dataSize, 2 * static_cast<DWORD>(dataBuffer.size()));
        if (status != ERROR_MORE_DATA || nextSize > maximumDataSize) {
            return Reading::unreadable;
        }
        // The system does not say which of the two was too small, and of a name not by how much.
        nameBuffer.resize(maximumNameSize);
        dataBuffer.resize(nextSize);
    }
}

}  // namespace pyORV3
