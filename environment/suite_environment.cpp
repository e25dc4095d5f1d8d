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

// Ends the reading of a key that fails at every index and never reports its last one, as one that
// is deleted meanwhile; no suite has so many variables.
constexpr std::uint32_t maximumValueCount = 65536;

// A handle to the token of this process, closed at the end.
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

// Takes the default access-control list from the token of the process, so that every user may open
// the objects that it creates without a security description of their own: the suite's libraries
// share such objects between users.
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

// A name has at most 16,383 characters, of at most two bytes each in an ANSI code page.
constexpr DWORD maximumNameSize = 2 * 16383 + 1;

constexpr DWORD maximumDataSize = 1024 * 1024;

// The characters before the first NUL.
std::string textIn(const std::vector<char>& buffer, DWORD size) {
    const auto end = buffer.begin() + static_cast<std::ptrdiff_t>(size);
    return {buffer.begin(), std::find(buffer.begin(), end, '\0')};
}

// A key of the registry, open for reading. Owns the open key and closes it.
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

bool canNameVariable(const std::string& name) {
    return !name.empty() && name.find('=') == std::string::npos;
}

void setVariable(const std::string& name, const std::string& registryText) {
    const auto present = processVariable(name);
    const std::string& value = present ? *present : registryText;
    if (!present) {
        SetEnvironmentVariableA(name.c_str(), value.c_str());
    }
    // The runtime library made its copy of the environment before these variables were set.
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
    for (std::uint32_t index = 0; index < maximumValueCount; ++index) {
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
    // The size that is needed may grow again before the next attempt.
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
        // Memory is short. What is missing shows as a failure of the library; the next call tries
        // again, for the marker is set last.
    }
}

}  // namespace pyORV3
