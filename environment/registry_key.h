// A key of the registry, open for reading.
#ifndef PYORV3_ENVIRONMENT_REGISTRY_KEY_H
#define PYORV3_ENVIRONMENT_REGISTRY_KEY_H

#include <cstdint>
#include <string>

#include "platform/platform.h"

namespace pyORV3 {

// Owns the open key and closes it.
class RegistryKey {
  public:
    // What became of reading one value: it was read, it cannot be read, or there is none any more.
    enum class Reading { value, unreadable, end };

    // Opens the key under root with this path; isOpen is false where that fails.
    RegistryKey(HKEY root, const char* path);
    ~RegistryKey();
    RegistryKey(const RegistryKey&) = delete;
    RegistryKey& operator=(const RegistryKey&) = delete;
    RegistryKey(RegistryKey&&) = delete;
    RegistryKey& operator=(RegistryKey&&) = delete;

    bool isOpen() const { return key_ != nullptr; }

    // Reads the value with an index, counted from 0, of a key that is open: its name, and its data
    // up to the first NUL whatever its type. Both are in the ANSI code page and whole, however
    // long; data of more than 1 MiB is unreadable. name and text change only where a value was
    // read. Throws std::bad_alloc.
    Reading readValue(std::uint32_t index, std::string& name, std::string& text) const;

  private:
    HKEY key_ = nullptr;
};

}  // namespace pyORV3

#endif
