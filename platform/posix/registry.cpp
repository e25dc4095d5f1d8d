#include "platform/posix/registry.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include "platform/posix/environment.h"
#include "platform/posix/registry_file.h"
#include "platform/posix/system.h"

struct platform::OpenKey {
    std::vector<RegistryValue> values;
};

platform::OpenKey platform::localMachine;

namespace {

constexpr std::uintmax_t maxFileSize = 16ULL * 1024 * 1024;

std::string registryPath() {
    const auto named = platform::environmentVariable("ORSOVA_REGISTRY");
    return named && !named->empty() ? *named : "/etc/orsova/registry.reg";
}

// Only a regular file has a size that can be checked before it is read.
std::optional<std::string> readFile(const std::string& path) {
    std::error_code error;
    if (!std::filesystem::is_regular_file(path, error)) {
        return std::nullopt;
    }
    const std::uintmax_t size = std::filesystem::file_size(path, error);
    if (error || size > maxFileSize) {
        return std::nullopt;
    }
    std::string content(static_cast<std::size_t>(size), '\0');
    std::ifstream file(path, std::ios::binary);
    if (!file.read(content.data(), static_cast<std::streamsize>(size))) {
        return std::nullopt;
    }
    return content;
}

}  // namespace

LSTATUS RegOpenKeyExA(HKEY root, LPCSTR path, DWORD /*options*/, REGSAM /*access*/, PHKEY result) {
    if (path == nullptr || result == nullptr) {
        return ERROR_INVALID_PARAMETER;
    }
    if (root != HKEY_LOCAL_MACHINE) {
        return ERROR_INVALID_HANDLE;
    }
    const std::string file = registryPath();
    std::error_code error;
    if (!std::filesystem::exists(file, error) && !error) {
        return ERROR_FILE_NOT_FOUND;
    }
    const auto content = readFile(file);
    const auto registry = content ? platform::RegistryFile::parse(*content) : std::nullopt;
    if (!registry) {
        return ERROR_BADDB;
    }
    const platform::RegistryValues* values = registry->find(path);
    if (values == nullptr) {
        return ERROR_FILE_NOT_FOUND;
    }
    auto key = std::make_unique<platform::OpenKey>();
    for (const auto& [foldedName, value] : *values) {
        key->values.push_back(value);
    }
    *result = key.release();
    return ERROR_SUCCESS;
}

// NOLINTNEXTLINE(readability-non-const-parameter): Windows' parameters
LSTATUS RegEnumValueA(HKEY key, DWORD index, LPSTR name, LPDWORD nameSize, LPDWORD reserved,
                      LPDWORD type, LPBYTE data, LPDWORD dataSize) {
    if (key == nullptr) {
        return ERROR_INVALID_HANDLE;
    }
    if (name == nullptr || nameSize == nullptr || reserved != nullptr ||
        (data != nullptr && dataSize == nullptr)) {
        return ERROR_INVALID_PARAMETER;
    }
    if (index >= key->values.size()) {
        return ERROR_NO_MORE_ITEMS;
    }
    const platform::RegistryValue& value = key->values[index];
    if (type != nullptr) {
        *type = value.type;
    }
    const bool fits =
        value.name.size() < *nameSize && (data == nullptr || value.data.size() <= *dataSize);
    if (dataSize != nullptr) {
        *dataSize = static_cast<DWORD>(value.data.size());
    }
    if (!fits) {
        return ERROR_MORE_DATA;
    }
    if (data != nullptr) {
        std::copy(value.data.begin(), value.data.end(), data);
    }
    *std::copy(value.name.begin(), value.name.end(), name) = '\0';
    *nameSize = static_cast<DWORD>(value.name.size());
    return ERROR_SUCCESS;
}

LSTATUS RegCloseKey(HKEY key) {
    if (key == nullptr) {
        return ERROR_INVALID_HANDLE;
    }
    if (key != HKEY_LOCAL_MACHINE) {
        const std::unique_ptr<platform::OpenKey> closed(key);
    }
    return ERROR_SUCCESS;
}
