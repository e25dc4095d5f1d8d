#include <dlfcn.h>

#include "tests/double/mapped.h"

namespace recording {

bool isMapped(const char* fileName) {
    void* const library = dlopen(fileName, RTLD_LAZY | RTLD_NOLOAD);
    if (library == nullptr) {
        return false;
    }
    dlclose(library);
    return true;
}

}  // namespace recording
