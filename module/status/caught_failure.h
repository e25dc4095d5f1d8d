// The catch table of the object layer: what a thrown value means as a status.
#ifndef PYORV3_MODULE_STATUS_CAUGHT_FAILURE_H
#define PYORV3_MODULE_STATUS_CAUGHT_FAILURE_H

#include <string_view>

#include "module/status/status.h"

namespace pyORV3 {

// Turns the value that is being handled into a status and traces it under the context. To be
// called inside a catch (...) clause only. The end of a thread passes through.
//
// A thrown unsigned int, int or short is the status (sign-extended); std::bad_alloc is
// memoryExhausted; a std::string, any other std::exception and anything else are unknownException.
// A thrown 0 is no failure: nothing is traced and success returned.
[[nodiscard]] Status reportCaught(std::string_view context);

}  // namespace pyORV3

#endif
