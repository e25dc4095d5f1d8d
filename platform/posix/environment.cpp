#include "platform/posix/environment.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "platform/posix/errors.h"

namespace {

// getenv hands out a pointer that setenv may free.
std::mutex& environmentMutex() {
    static std::mutex mutex;
    return mutex;
}

bool isName(const char* name) {
    return name != nullptr && *name != '\0' && std::strchr(name, '=') == nullptr;
}

BOOL fail(DWORD error) {
    SetLastError(error);
    return FALSE;
}

}  // namespace

std::optional<std::string> platform::environmentVariable(const char* name) {
    const std::lock_guard lock(environmentMutex());
    const char* value = std::getenv(name);
    return value != nullptr ? std::optional<std::string>(value) : std::nullopt;
}

DWORD GetEnvironmentVariableA(LPCSTR name, LPSTR buffer, DWORD size) {
    const auto value = isName(name) ? platform::environmentVariable(name) : std::nullopt;
    if (!value) {
        SetLastError(ERROR_ENVVAR_NOT_FOUND);
        return 0;
    }
    SetLastError(ERROR_SUCCESS);
    // Linux bounds the environment far below 4 GiB.
    const auto length = static_cast<DWORD>(value->size());
    if (buffer == nullptr || size <= length) {
        return length + 1;
    }
    std::memcpy(buffer, value->c_str(), value->size() + 1);
    return length;
}

BOOL SetEnvironmentVariableA(LPCSTR name, LPCSTR value) {
    if (!isName(name)) {
        return fail(ERROR_INVALID_PARAMETER);
    }
    const std::lock_guard lock(environmentMutex());
    if (value != nullptr) {
        return setenv(name, value, 1) == 0 ? TRUE : fail(ERROR_NOT_ENOUGH_MEMORY);
    }
    if (std::getenv(name) == nullptr) {
        return fail(ERROR_ENVVAR_NOT_FOUND);
    }
    unsetenv(name);
    return TRUE;
}

// NOLINTNEXTLINE(*-reserved-identifier,cert-dcl*): Windows' name
int _putenv(const char* assignment) {
    const char* equals = assignment != nullptr ? std::strchr(assignment, '=') : nullptr;
    if (equals == nullptr || equals == assignment) {
        errno = EINVAL;
        return -1;
    }
    if (equals[1] == '\0') {
        return 0;
    }
    const std::string name(assignment, equals);
    return SetEnvironmentVariableA(name.c_str(), equals + 1) != FALSE ? 0 : -1;
}
