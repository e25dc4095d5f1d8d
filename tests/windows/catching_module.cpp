// A module with its own runtime, loaded after the shared runtime.
#include "tests/windows/guarded_engine.h"

extern "C" ORV_EXPORT std::uint32_t runInLateModule(std::int32_t kind, std::int32_t value) {
    return runGuarded(kind, value);
}

extern "C" ORV_EXPORT std::uint32_t throwInLateModule(std::int32_t value) {
    return codeOf(pyORV3::guardedRegion([&]() -> pyORV3::Outcome { throw value; }).status);
}
