// What the functions of the interface have in common.
#ifndef PYORV3_EMBEDDED_ORV_ENTRY_POINTS_GUARDED_CALL_H
#define PYORV3_EMBEDDED_ORV_ENTRY_POINTS_GUARDED_CALL_H

#include <utility>

#include "embedded/orv/entry_points/context.h"
#include "embedded/orv/files/fork_gate.h"
#include "module/interface/orv.h"

namespace embedded {

// Each of the following returns the status of a call: 0, or the code of what body returns or
// throws. Nothing is thrown across the interface.

// Of a call on no context.
template <typename Body>
OrvStatus onLibrary(Body body) noexcept {
    const LibraryCall call;
    return codeOfCall(std::move(body));
}

// Of a call on the context with the handle, which body is called with.
template <typename Body>
OrvStatus onContext(OrvContext handle, Body body) noexcept {
    return onLibrary([&] { return contexts().find(handle)->run(std::move(body)); });
}

// Of a call that reads or changes the context's open source, with whose content body is called. The
// needed classes are loaded then.
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

// The 16-bit result for a status: the error query has the code of a failure.
inline OrvResult resultOf(OrvStatus status) {
    return status == codes::success ? OrvResult{0} : OrvResult{ORV_RESULT_ASK_ERROR_QUERY};
}

}  // namespace embedded

#endif
