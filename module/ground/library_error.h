// The library error pattern: how a 16-bit result of the data-access library becomes a status.
#ifndef PYORV3_MODULE_GROUND_LIBRARY_ERROR_H
#define PYORV3_MODULE_GROUND_LIBRARY_ERROR_H

#include "module/ground/status.h"
#include "module/interface/orv.h"

namespace pyORV3 {

// The status of a library failure number: sign-extended, with 0x60 ORed in.
[[nodiscard]] constexpr Status failureNumber(OrvResult result) noexcept {
    constexpr Status failureNumberBits = 0x60;
    return signExtended(result) | failureNumberBits;
}

// Asks the error query about the last failed call on the context: the library's 32-bit code, or
// the query's own failure number when the query fails.
[[nodiscard]] Status queriedError(OrvContext context) noexcept;

// The status of a 16-bit result of a call on the context: 0, the queried code for
// ORV_RESULT_ASK_ERROR_QUERY, else the
// failure number.
[[nodiscard]] Status libraryError(OrvResult result, OrvContext context) noexcept;

}  // namespace pyORV3

#endif
