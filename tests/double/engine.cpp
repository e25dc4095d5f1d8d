// The double's analysis engine.
#include <chrono>
#include <type_traits>

#include "tests/double/reply.h"

namespace {

using recording::Recorder;
using recording::reply;

constexpr std::chrono::seconds patience{10};
constexpr uint32_t nobodyCame = 0x00610001;

}  // namespace

extern "C" {

// Returns or throws what the script says.
ORV_EXPORT uint32_t ORV_ENGINE_CALL run(int32_t first, int32_t second, int32_t third,
                                        int32_t fourth) {
    return static_cast<uint32_t>(
        reply(__func__, {IN(first), IN(second), IN(third), IN(fourth)}, 0));
}

// Blocks until another thread releases the engine; fails when nobody does.
ORV_EXPORT uint32_t ORV_ENGINE_CALL waitForRelease(int32_t first, int32_t second, int32_t third,
                                                   int32_t fourth) {
    const auto result = reply(__func__, {IN(first), IN(second), IN(third), IN(fourth)}, 0);
    return Recorder::instance().waitForRelease(patience) ? static_cast<uint32_t>(result)
                                                         : nobodyCame;
}
}

static_assert(std::is_same_v<decltype(&run), OrvEngineFunction>);
static_assert(std::is_same_v<decltype(&waitForRelease), OrvEngineFunction>);
