#include "environment/suite_environment.h"

#include <cstdint>
#include <exception>
#include <string>

#include "environment/registry_key.h"
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
