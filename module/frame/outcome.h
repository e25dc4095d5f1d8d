// Outcome: how a method ended, its status and the text of the step that failed.
#ifndef PYORV3_MODULE_FRAME_OUTCOME_H
#define PYORV3_MODULE_FRAME_OUTCOME_H

#include "module/ground/status.h"

namespace pyORV3 {

struct Outcome {
    // A bare status is an outcome: most steps have no text of their own.
    // NOLINTNEXTLINE(google-explicit-constructor)
    constexpr Outcome(Status code = success, const char* step = "") noexcept
        : status(code), failedStep(step) {}

    Status status;
    const char* failedStep;  // static text; meaningful when the status is not 0
};

}  // namespace pyORV3

#endif
