// What the functions of the interface have in common.
#ifndef PYORV3_EMBEDDED_ORV_INTERFACE_INTERFACE_H
#define PYORV3_EMBEDDED_ORV_INTERFACE_INTERFACE_H

#include <utility>

#include "embedded/orv/interface/contexts.h"
#include "module/interface/orv.h"

namespace embedded {

// Calls body with the context and returns its status: 0, or the code of what it throws. Nothing is
// thrown across the interface.
template <typename Body>
OrvStatus onContext(OrvContext handle, Body body) noexcept {
    try {
        return contexts().find(handle)->run(std::move(body));
    } catch (...) {
        return codeOfCurrentException();
    }
}

// The 16-bit result for a status: the error query has the code of a failure.
inline OrvResult resultOf(OrvStatus status) {
    return status == codes::success ? 0 : -1;
}

}  // namespace embedded

#endif
