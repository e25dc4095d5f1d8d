#include "platform/posix/environment.h"

#include <pthread.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <system_error>

#include "platform/posix/system.h"

namespace {

// getenv returns a pointer that setenv may free. Held during a fork: otherwise the child could find
// the mutex locked by a thread that does not exist there.
std::mutex& environmentMutex() {
    static std::mutex& guarded = []() -> std::mutex& {
        static std::mutex mutex;
        pthread_atfork([] { environmentMutex().lock(); }, [] { environmentMutex().unlock(); },
                       [] { environmentMutex().unlock(); });
        return mutex;
    }();
    return guarded;
}

bool isName(const char* name) {
    return name != nullptr && *name != '\0' && std::strchr(name, '=') == nullptr;
}

BOOL fail(DWORD error) {
    SetLastError(error);
    return FALSE;
}

// Empty if the current directory is not available; error is then the reason.
std::string absolutePath(const std::string& path, std::error_code& error) {
    const std::filesystem::path absolute = path.starts_with('/')
                                               ? std::filesystem::path(path)
                                               : std::filesystem::current_path(error) / path;
    if (error) {
        return {};
    }
    std::string normal = absolute.lexically_normal().string();
    // A path that ends in "." or ".." becomes a directory with a slash, which Windows does not
    // write.
    if (normal.size() > 1 && normal.ends_with('/') && !path.ends_with('/')) {
        normal.pop_back();
    }
    return normal;
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
    // Linux limits the environment far below 4 GiB.
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

// NOLINTNEXTLINE(*-reserved-identifier,cert-dcl*): Windows' name
char* _fullpath(char* buffer, const char* path, std::size_t size) {
    std::error_code error;
    const std::string absolute = absolutePath(path != nullptr ? path : "", error);
    if (error) {
        errno = error.value();
        return nullptr;
    }
    if (buffer == nullptr) {
        return strdup(absolute.c_str());
    }
    if (absolute.size() >= size) {
        errno = ERANGE;
        return nullptr;
    }
    std::memcpy(buffer, absolute.c_str(), absolute.size() + 1);
    return buffer;
}
