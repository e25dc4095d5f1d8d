#include <dlfcn.h>

#include "tests/double/recorder.h"

namespace recording {

bool isMapped(const char* fileName) {
    void* const library = dlopen(fileName, RTLD_LAZY | RTLD_NOLOAD);
    return library != nullptr && dlclose(library) == 0;
}

}  // namespace recording
