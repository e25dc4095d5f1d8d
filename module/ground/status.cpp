#include "module/ground/status.h"

namespace pyORV3 {

namespace {

constexpr Status moduleFacility = 0x0CE9;
constexpr Status engineFacility = 0x0061;
constexpr Status failureBits = 0xE0000000;
constexpr Status normalizedLibraryCode = 0xEBE80000;
constexpr Status libraryWarningBit = 0x00400000;
constexpr Status mappedLibraryWarning = 0xE0400199;

constexpr Status facility(Status status) {
    return (status >> 16) & 0x0FFF;
}
constexpr Status number(Status status) {
    return status & 0xFFFF;
}

// Library codes that carry the family 0x27 or a number of the range 0x8000 to 0x9FFF.
constexpr bool belongsToNormalizedFamily(Status status) {
    constexpr Status family = 0x27;
    return ((status >> 16) & 0xFF) == family ||
           (number(status) >= 0x8000 && number(status) <= 0x9FFF);
}

}  // namespace

Status mapStatus(Status status) noexcept {
    if (status == success || facility(status) == moduleFacility ||
        facility(status) == engineFacility) {
        return status;
    }
    if (belongsToNormalizedFamily(status)) {
        return normalizedLibraryCode | number(status);
    }
    if ((status & libraryWarningBit) != 0) {
        return mappedLibraryWarning;
    }
    return status | failureBits;
}

Status normalizeStatus(Status status) noexcept {
    if (status != success && belongsToNormalizedFamily(status)) {
        return normalizedLibraryCode | number(status);
    }
    return status;
}

}  // namespace pyORV3
