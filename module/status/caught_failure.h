// The catch table of the object layer: the status for each thrown value.
#ifndef PYORV3_MODULE_STATUS_CAUGHT_FAILURE_H
#define PYORV3_MODULE_STATUS_CAUGHT_FAILURE_H

#include <string_view>

#include "module/status/status.h"

namespace pyORV3 {

// Converts the exception that is being handled to a status and traces it under the context.
// REQUIRES: called inside a catch (...) clause. Does not stop the end of a thread.
//
// A thrown unsigned int, int or short is the status (sign-extended); std::bad_alloc is
// memoryExhausted; a std::string, any other std::exception and anything else are unknownException.
// A thrown 0 is success and is not traced.
[[nodiscard]] Status reportCaught(std::string_view context);

}  // namespace pyORV3

#endif
