// Runs the throwing engine inside the guarded region, as the module does.
#ifndef PYORV3_TESTS_WINDOWS_GUARDED_ENGINE_H
#define PYORV3_TESTS_WINDOWS_GUARDED_ENGINE_H

#include <cstdint>

#include "module/binding/outcome.h"
#include "module/interface/orv.h"
#include "platform/dynamic_library.h"

// Returns the result of the engine, or the status of its exception.
inline std::uint32_t runGuarded(std::int32_t kind, std::int32_t value) {
    const platform::DynamicLibrary engine("throwing_engine.dll");
    const auto outcome = pyORV3::guardedRegion([&]() -> pyORV3::Outcome {
        return {engine.find<OrvEngineFunction>("fail")(kind, value, 0, 0), "The engine failed"};
    });
    return codeOf(outcome.status);
}

#endif
