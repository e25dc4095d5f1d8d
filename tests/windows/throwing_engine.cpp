// An engine whose first value selects the exception that it throws.
#include <new>
#include <stdexcept>

#include "module/interface/orv.h"

namespace {

// Its destructor and its description lie in the engine.
class EngineFailure {
  public:
    EngineFailure() = default;
    EngineFailure(const EngineFailure&) = default;
    EngineFailure& operator=(const EngineFailure&) = default;
    ~EngineFailure() { ++released; }

    static int released;
};

int EngineFailure::released = 0;

}  // namespace

extern "C" ORV_EXPORT uint32_t ORV_ENGINE_CALL fail(int32_t kind, int32_t value, int32_t, int32_t) {
    switch (kind) {
        case 0:
            throw static_cast<unsigned long>(value);
        case 1:
            throw static_cast<int>(value);
        case 2:
            throw static_cast<short>(value);
        case 3:
            throw std::bad_alloc();
        case 4:
            throw std::runtime_error("engine");
        case 5:
            throw static_cast<long>(value);
        case 6:
            throw EngineFailure();
        default:
            return static_cast<uint32_t>(value);
    }
}
