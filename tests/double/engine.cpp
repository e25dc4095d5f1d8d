// The analysis engine of the double.
#include <chrono>
#include <thread>
#include <type_traits>

#include "tests/double/recorder.h"

namespace {

using recording::Recorder;

#define FOUR_INPUTS \
    { INPUT(first), INPUT(second), INPUT(third), INPUT(fourth) }

constexpr int patience = 10000;  // milliseconds
constexpr uint32_t nobodyCame = 0x00610001;
const recording::Presence presenceOfEngine("double_engine");

}  // namespace

extern "C" {

// Returns or throws the scripted answer; the code of the exception is in the engine.
ORV_EXPORT uint32_t ORV_ENGINE_CALL run(int32_t first, int32_t second, int32_t third,
                                        int32_t fourth) {
    return static_cast<uint32_t>(Recorder::instance().take(__func__, FOUR_INPUTS, 0).end());
}

// Waits until another thread calls a function of the double; fails without such a call.
ORV_EXPORT uint32_t ORV_ENGINE_CALL waitForAnotherCall(int32_t first, int32_t second, int32_t third,
                                                       int32_t fourth) {
    const auto result = recording::reply(__func__, FOUR_INPUTS, 0);
    for (int waited = 0; waited < patience; ++waited) {
        if (Recorder::instance().calls().back().function != __func__) {
            return static_cast<uint32_t>(result);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return nobodyCame;
}
}

static_assert(std::is_same_v<decltype(&run), OrvEngineFunction>);
static_assert(std::is_same_v<decltype(&waitForAnotherCall), OrvEngineFunction>);
