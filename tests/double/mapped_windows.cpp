#include <windows.h>

#include "tests/double/recorder.h"

namespace recording {

bool isMapped(const char* fileName) {
    return GetModuleHandleA(fileName) != nullptr;
}

}  // namespace recording
