// Status codes: the 32-bit outcome that every method of the module reports; 0 is success.
//
// Layout: bits 31-29 failure bits, bit 28 reserved (carried through), bits 27-16 the facility (the
// family of the code), bits 15-0 the number within the family.
#ifndef PYORV3_MODULE_GROUND_STATUS_H
#define PYORV3_MODULE_GROUND_STATUS_H

#include <cstdint>

namespace pyORV3 {

// An unsigned 32-bit status code; Python sees it as a signed 32-bit int.
using Status = std::uint32_t;

inline constexpr Status success = 0;

// The module's own codes (facility 0xCE9); the mapping passes them unchanged.
inline constexpr Status badArguments = 0xECE99D7D;
inline constexpr Status outOfMemory = 0xECE99D32;
inline constexpr Status standardException = 0xECE99FEC;
inline constexpr Status unknownException = 0xECE99F6D;
inline constexpr Status contextNotCreated = 0xECE99E48;
inline constexpr Status nodeRefused = 0xECE99E49;
inline constexpr Status openRefused = 0xECE99EA2;
inline constexpr Status openRefusedByState = 0xECE99EA3;

// Codes of the object layer and of the parameter record (facility 0xBE8).
inline constexpr Status noDataSource = 0xEBE81389;
inline constexpr Status dataSourceAlreadyOpen = 0xEBE8138D;
inline constexpr Status parameterUnknown = 0xEBE8801A;
inline constexpr Status blockMissing = 0xEBE88102;

// Codes of the operating system's own family that the object layer reports.
inline constexpr Status memoryExhausted = 0x8007000E;
inline constexpr Status invalidArgument = 0x80070057;
inline constexpr Status unspecifiedFailure = 0x80004005;

// The normalisation that every status passes once on its way to Python. Never 0 for a nonzero
// status. The module's own and the engines' codes (facilities 0xCE9 and 0x061) stay as they are;
// library codes become 0xEBE8xxxx, 0xE0400199 or the code with the failure bits set.
[[nodiscard]] Status mapStatus(Status status) noexcept;

// The reduced normalisation of the object layer: only the library codes that become 0xEBE8xxxx
// change, everything else stays.
[[nodiscard]] Status normalizeStatus(Status status) noexcept;

// A 16-bit library result or thrown number as a status.
[[nodiscard]] constexpr Status signExtended(std::int16_t result) noexcept {
    return static_cast<Status>(static_cast<std::int32_t>(result));
}

}  // namespace pyORV3

#endif
