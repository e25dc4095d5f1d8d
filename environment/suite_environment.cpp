#include "environment/suite_environment.h"

#include <algorithm>
#include <cstdint>
#include <exception>
#include <string>
#include <vector>

#include "platform/platform.h"

namespace pyORV3 {

namespace {

constexpr const char* markerVariable = "OSVENV";
constexpr const char* suiteKey = "SOFTWARE\\Tarsel\\Orsova Environment";

// Max index of a value. Limits a key that fails at every index and never reports its last value,
// for example because it is deleted meanwhile; no suite has so many variables.
constexpr std::uint32_t maxValueCount = 65536;

// Owns a handle to the token of this process.
class ProcessToken {
  public:
    explicit ProcessToken(DWORD access) {
        if (OpenProcessToken(GetCurrentProcess(), access, &handle_) == FALSE) {
            handle_ = nullptr;
        }
    }
    ~ProcessToken() {
        if (isOpen()) {
            CloseHandle(handle_);
        }
    }
    ProcessToken(const ProcessToken&) = delete;
    ProcessToken& operator=(const ProcessToken&) = delete;
    ProcessToken(ProcessToken&&) = delete;
    ProcessToken& operator=(ProcessToken&&) = delete;

    bool isOpen() const { return handle_ != nullptr; }
    HANDLE handle() const { return handle_; }

  private:
    HANDLE handle_ = nullptr;
};

// Removes the default access-control list from the token of the process, so that every user may
// open the objects that it creates without a security descriptor: the libraries of the suite share
// such objects between users.
void relaxDefaultAccess() {
    OSVERSIONINFOA version{};
    version.dwOSVersionInfoSize = sizeof(version);
    static_assert(sizeof(version) == 148);
    if (GetVersionExA(&version) == FALSE || version.dwPlatformId != VER_PLATFORM_WIN32_NT) {
        return;
    }
    const ProcessToken token(TOKEN_ADJUST_DEFAULT);
    if (token.isOpen()) {
        TOKEN_DEFAULT_DACL everyone{};
        SetTokenInformation(token.handle(), TokenDefaultDacl, &everyone, sizeof(everyone));
    }
}

constexpr DWORD usualSize = 256;

// A name has at most 16,383 characters of at most two bytes in an ANSI code page.
constexpr DWORD maxNameSize = 2 * 16383 + 1;

constexpr DWORD maxDataSize = 1024 * 1024;

// Returns the characters before the first NUL.
std::string textIn(const std::vector<char>& buffer, DWORD size) {
    const auto end = buffer.begin() + static_cast<std::ptrdiff_t>(size);
    return {buffer.begin(), std::find(buffer.begin(), end, '\0')};
}

// A key of the registry, open for reading. Owns the key and closes it.
class RegistryKey {
  public:
    // Result of reading one value.
    enum class Reading { value, unreadable, end };

    // Opens the key under root with this path; isOpen is false after a failure.
    RegistryKey(HKEY root, const char* path);
    ~RegistryKey();
    RegistryKey(const RegistryKey&) = delete;
    RegistryKey& operator=(const RegistryKey&) = delete;
    RegistryKey(RegistryKey&&) = delete;
    RegistryKey& operator=(RegistryKey&&) = delete;

    bool isOpen() const { return key_ != nullptr; }

    // Reads the value with an index, counted from 0, of an open key: its name, and its data up to
    // the first NUL for any type. Both are complete and in the ANSI code page; data of more than 1
    // MiB is unreadable. Changes name and text only if a value was read. Throws std::bad_alloc.
    Reading readValue(std::uint32_t index, std::string& name, std::string& text) const;

  private:
    HKEY key_ = nullptr;
};

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
        if (status != ERROR_MORE_DATA || nextSize > maxDataSize) {
            return Reading::unreadable;
        }
        // The system does not report which of the two buffers was too small, and the size only for
        // data.
        nameBuffer.resize(maxNameSize);
        dataBuffer.resize(nextSize);
    }
}

bool canNameVariable(const std::string& name) {
    return !name.empty() && name.find('=') == std::string::npos;
}

void setVariable(const std::string& name, const std::string& registryText) {
    const auto present = processVariable(name);
    const std::string& value = present ? *present : registryText;
    if (!present) {
        SetEnvironmentVariableA(name.c_str(), value.c_str());
    }
    // The runtime library copied the environment before these variables were set.
    _putenv((name + "=" + value).c_str());
}

void copySuiteVariables() {
    if (processVariable(markerVariable)) {
        return;
    }
    relaxDefaultAccess();
    const RegistryKey key(HKEY_LOCAL_MACHINE, suiteKey);
    if (!key.isOpen()) {
        return;
    }
    std::string name;
    std::string text;
    for (std::uint32_t index = 0; index < maxValueCount; ++index) {
        const auto reading = key.readValue(index, name, text);
        if (reading == RegistryKey::Reading::end) {
            break;
        }
        if (reading == RegistryKey::Reading::value && canNameVariable(name)) {
            setVariable(name, text);
        }
    }
    SetEnvironmentVariableA(markerVariable, "1");
}

}  // namespace

std::optional<std::string> processVariable(const std::string& name) {
    std::string value(256, '\0');
    // The necessary size may grow again before the next attempt.
    for (;;) {
        const auto size = static_cast<DWORD>(value.size());
        const DWORD result = GetEnvironmentVariableA(name.c_str(), value.data(), size);
        value.resize(result);
        if (result == 0) {
            return std::nullopt;
        }
        if (result < size) {
            return value;
        }
    }
}

void loadSuiteEnvironment() noexcept {
    try {
        copySuiteVariables();
    } catch (const std::exception&) {  // NOLINT(bugprone-empty-catch)
        // Memory is exhausted. The library fails for a missing variable, and the next call tries
        // again because the marker is set last.
    }
}

}  // namespace pyORV3
