// Status codes: the 32-bit outcome that every method of the module reports; 0 is success. How
// results of the libraries become one, and what the normalisations make of it.
//
// Layout: bits 31-29 failure bits, bit 28 reserved (carried through), bits 27-16 the facility (the
// family of the code), bits 15-0 the number within the family.
#ifndef PYORV3_MODULE_STATUS_STATUS_H
#define PYORV3_MODULE_STATUS_STATUS_H

#include <cstdint>

#include "module/interface/orv.h"

namespace pyORV3 {

// A status. A raw number becomes one through the conversions below and in no other way.
enum class Status : std::uint32_t {
    success = 0,

    // The module's own codes (facility 0xCE9); the mapping passes them unchanged.
    badArguments = 0xECE99D7D,
    outOfMemory = 0xECE99D32,
    standardException = 0xECE99FEC,
    unknownException = 0xECE99F6D,
    contextNotCreated = 0xECE99E48,
    nodeRefused = 0xECE99E49,
    openRefused = 0xECE99EA2,
    openRefusedByState = 0xECE99EA3,

    // Codes of the object layer and of the parameter record (facility 0xBE8).
    noDataSource = 0xEBE81389,
    dataSourceAlreadyOpen = 0xEBE8138D,
    parameterUnknown = 0xEBE8801A,
    blockMissing = 0xEBE88102,

    // Codes of the operating system's own family that the object layer reports.
    memoryExhausted = 0x8007000E,
    invalidArgument = 0x80070057,
    unspecifiedFailure = 0x80004005,

    // Why the object layer has no context; its callers see these numbers as they are.
    noTemporaryContext = 1,
    noNode = 2,
    nodeWithRefusal = 3,
    noBoundContext = 4,
};

using enum Status;

// The number of a status.
[[nodiscard]] constexpr std::uint32_t codeOf(Status status) noexcept {
    return static_cast<std::uint32_t>(status);
}

// ---- What becomes a status ----

// A 32-bit status of the data-access library, the dictionary or an engine.
[[nodiscard]] constexpr Status libraryStatus(OrvStatus status) noexcept {
    return static_cast<Status>(status);
}

// A 16-bit result, sign-extended.
[[nodiscard]] constexpr Status signExtended(OrvResult result) noexcept {
    return static_cast<Status>(static_cast<std::int32_t>(result));
}

// A 16-bit result that is a failure number of the library: sign-extended, with 0x60 ORed in.
[[nodiscard]] constexpr Status failureNumber(OrvResult result) noexcept {
    constexpr std::uint32_t failureNumberBits = 0x60;
    return static_cast<Status>(codeOf(signExtended(result)) | failureNumberBits);
}

// An error number of the operating system.
[[nodiscard]] constexpr Status systemError(std::uint32_t errorNumber) noexcept {
    return static_cast<Status>(errorNumber);
}

// A number that was thrown for its bits.
[[nodiscard]] constexpr Status thrownStatus(std::uint32_t thrown) noexcept {
    return static_cast<Status>(thrown);
}

// ---- The library error pattern ----

// Asks the error query about the last failed call on the context: the library's 32-bit code, or
// the query's own failure number when the query fails.
[[nodiscard]] Status queriedError(OrvContext context) noexcept;

// The status of a 16-bit result of a call on the context: 0, the queried code for
// ORV_RESULT_ASK_ERROR_QUERY, else the failure number.
[[nodiscard]] Status libraryError(OrvResult result, OrvContext context) noexcept;

// ---- The normalisations ----

// The normalisation that every status passes once on its way to Python. Never 0 for a nonzero
// status. The module's own and the engines' codes (facilities 0xCE9 and 0x061) stay as they are;
// library codes become 0xEBE8xxxx, 0xE0400199 or the code with the failure bits set.
[[nodiscard]] Status mapStatus(Status status) noexcept;

// Brings the results of engines, those with 0x61 in bits 23-16, into their own family of codes:
// 0xE061xxxx.
[[nodiscard]] Status engineStatus(Status result) noexcept;

// The reduced normalisation of the object layer: only the library codes that become 0xEBE8xxxx
// change, everything else stays.
[[nodiscard]] Status normalizeStatus(Status status) noexcept;

}  // namespace pyORV3

#endif
