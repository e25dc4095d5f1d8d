// DynamicLibrary: a library loaded by name at run time.
#ifndef PYORV3_PLATFORM_DYNAMIC_LIBRARY_H
#define PYORV3_PLATFORM_DYNAMIC_LIBRARY_H

#include "platform/exceptions.h"
#include "platform/platform.h"

namespace platform {

// Owns a loaded library; the destructor unloads it. GetLastError() is the reason of a failed step
// until then.
class DynamicLibrary {
  public:
    // fileName: with the ending ".dll" on every system.
    explicit DynamicLibrary(const char* fileName) : module_(LoadLibraryA(fileName)) {
        if (module_ != nullptr) {
            receiveExceptionsOfLoadedLibraries();
        }
    }
    ~DynamicLibrary() {
        if (module_ != nullptr) {
            FreeLibrary(module_);
        }
    }
    DynamicLibrary(const DynamicLibrary&) = delete;
    DynamicLibrary& operator=(const DynamicLibrary&) = delete;
    DynamicLibrary(DynamicLibrary&&) = delete;
    DynamicLibrary& operator=(DynamicLibrary&&) = delete;

    // False if loading failed.
    explicit operator bool() const noexcept { return module_ != nullptr; }

    // Returns the entry point with this name as a pointer of the given type, or null if it is
    // missing.
    template <typename Function>
    [[nodiscard]] Function find(const char* entryPoint) const {
        // Through void*, since the pointer type of the system has an arbitrary signature.
        return reinterpret_cast<Function>(
            reinterpret_cast<void*>(GetProcAddress(module_, entryPoint)));
    }

  private:
    HMODULE module_;
};

}  // namespace platform

#endif
