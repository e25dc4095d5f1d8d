// DynamicLibrary: a library loaded by name at run time.
#ifndef PYORV3_PLATFORM_DYNAMIC_LIBRARY_H
#define PYORV3_PLATFORM_DYNAMIC_LIBRARY_H

#include "platform/exceptions.h"
#include "platform/platform.h"

namespace platform {

// Loads a library and unloads it when the object goes, also when something is thrown meanwhile.
// Why a step failed is in GetLastError() until the object goes.
class DynamicLibrary {
  public:
    // fileName: with the ending ".dll", also where libraries are called otherwise.
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

    // False when loading failed.
    explicit operator bool() const noexcept { return module_ != nullptr; }

    // The entry point of that name as a pointer of the given type; null when it is missing.
    template <typename Function>
    [[nodiscard]] Function find(const char* entryPoint) const {
        // By way of void*, since the system's pointer has a signature that is nobody's.
        return reinterpret_cast<Function>(
            reinterpret_cast<void*>(GetProcAddress(module_, entryPoint)));
    }

  private:
    HMODULE module_;
};

}  // namespace platform

#endif
