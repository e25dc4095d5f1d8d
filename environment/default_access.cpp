#include "environment/default_access.h"

#include "platform/platform.h"

namespace pyORV3 {

namespace {

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

}  // namespace

std::uint32_t relaxDefaultAccess() {
    OSVERSIONINFOA version{};
    version.dwOSVersionInfoSize = sizeof(version);
    static_assert(sizeof(version) == 148);
    if (GetVersionExA(&version) == FALSE) {
        return GetLastError();
    }
    if (version.dwPlatformId != VER_PLATFORM_WIN32_NT) {
        return ERROR_SUCCESS;
    }
    const ProcessToken token(TOKEN_ADJUST_DEFAULT);
    if (!token.isOpen()) {
        return GetLastError();
    }
    TOKEN_DEFAULT_DACL everyone{};
    if (SetTokenInformation(token.handle(), TokenDefaultDacl, &everyone, sizeof(everyone)) ==
        FALSE) {
        return GetLastError();
    }
    return ERROR_SUCCESS;
}

}  // namespace pyORV3
