#include "platform/posix/system.h"

namespace {

thread_local DWORD lastError = ERROR_SUCCESS;

// Handles are addresses; these two objects have no other use.
char currentProcess = 0;
char currentToken = 0;

BOOL succeedIf(bool valid, DWORD error) {
    if (!valid) {
        SetLastError(error);
    }
    return valid ? TRUE : FALSE;
}

}  // namespace

DWORD GetLastError() {
    return lastError;
}

void SetLastError(DWORD error) {
    lastError = error;
}

BOOL GetVersionExA(OSVERSIONINFOA* version) {
    const bool fits = version != nullptr && version->dwOSVersionInfoSize >= sizeof(*version);
    if (fits) {
        *version = OSVERSIONINFOA{};
        version->dwOSVersionInfoSize = sizeof(*version);
        version->dwPlatformId = VER_PLATFORM_WIN32_NT;
    }
    return succeedIf(fits, ERROR_INSUFFICIENT_BUFFER);
}

HANDLE GetCurrentProcess() {
    return &currentProcess;
}

BOOL OpenProcessToken(HANDLE process, DWORD /*access*/, HANDLE* token) {
    const bool valid = process == &currentProcess && token != nullptr;
    if (valid) {
        *token = &currentToken;
    }
    return succeedIf(valid, ERROR_INVALID_HANDLE);
}

BOOL SetTokenInformation(HANDLE token, TOKEN_INFORMATION_CLASS /*informationClass*/,
                         LPVOID /*information*/, DWORD /*size*/) {
    return succeedIf(token == &currentToken, ERROR_INVALID_HANDLE);
}

BOOL CloseHandle(HANDLE handle) {
    return succeedIf(handle == &currentToken, ERROR_INVALID_HANDLE);
}
