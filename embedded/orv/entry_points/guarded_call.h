// Frames of the interface functions: they look up contexts and convert exceptions to codes.
#ifndef PYORV3_EMBEDDED_ORV_ENTRY_POINTS_GUARDED_CALL_H
#define PYORV3_EMBEDDED_ORV_ENTRY_POINTS_GUARDED_CALL_H

#include <utility>

#include "embedded/orv/entry_points/context.h"
#include "embedded/orv/files/fork_gate.h"
#include "module/interface/orv.h"

namespace embedded {

// Each of these returns the status of a call: 0, or the code that body returns or throws. No
// exception leaves the interface.

// Calls body without a context.
template <typename Body>
OrvStatus onLibrary(Body body) noexcept {
    const LibraryCall call;
    return codeOfCall(std::move(body));
}

// Calls body with the context that has the handle.
template <typename Body>
OrvStatus onContext(OrvContext handle, Body body) noexcept {
    return onLibrary([&] { return contexts().find(handle)->run(std::move(body)); });
}

// Loads the needed classes and calls body with the content of the context's open source, to read or
// to change it.
template <typename Body>
OrvStatus onReading(OrvContext handle, const NeededClasses& needed, Body body) noexcept {
    return onContext(
        handle, [&](Context& context) { return context.source().read(needed, std::move(body)); });
}
template <typename Body>
OrvStatus onChanging(OrvContext handle, const NeededClasses& needed, Body body) noexcept {
    return onContext(handle, [&](Context& context) {
        return context.writableSource().change(needed, std::move(body));
    });
}

// Returns the 16-bit result for a status; the error query then returns the code of a failure.
inline OrvResult resultOf(OrvStatus status) {
    return status == codes::success ? OrvResult{0} : OrvResult{ORV_RESULT_ASK_ERROR_QUERY};
}

}  // namespace embedded

#endif
