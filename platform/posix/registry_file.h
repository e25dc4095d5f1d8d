// A part of the registry as the Registry Editor exports it to a text file.
#ifndef PYORV3_PLATFORM_POSIX_REGISTRY_FILE_H
#define PYORV3_PLATFORM_POSIX_REGISTRY_FILE_H

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "platform/posix/system.h"

namespace platform {

// name: in the ANSI code page, empty for the default value of a key. data: its bytes as the ANSI
// functions of Windows return them; a string is in the ANSI code page, with its NUL.
struct RegistryValue {
    std::string name;
    DWORD type = 0;
    std::string data;
};

// The values of one key by their names in lower case.
using RegistryValues = std::map<std::string, RegistryValue>;

// Keys under HKEY_LOCAL_MACHINE by their paths in lower case.
using RegistryKeys = std::map<std::string, RegistryValues>;

class RegistryFile {
  public:
    // Parses the content of an export file, in any of the encodings that README.md lists. Skips
    // invalid lines. Returns nullopt if the content does not start like an export.
    static std::optional<RegistryFile> parse(std::string_view content);

    // Returns the values of the key under HKEY_LOCAL_MACHINE with this path, in any case, or null
    // if the file has no section for it. Like a 32-bit process, it sees the key under
    // "SOFTWARE\Wow6432Node" instead of the key under "SOFTWARE". The values live as long as this
    // object.
    const RegistryValues* find(std::string_view path) const;

  private:
    explicit RegistryFile(RegistryKeys keys) : keys_(std::move(keys)) {}

    const RegistryValues* findExactly(const std::string& foldedPath) const;

    RegistryKeys keys_;
};

}  // namespace platform

#endif
