#include "module/status/status.h"

namespace pyORV3 {

namespace {

constexpr std::uint32_t moduleFacility = 0x0CE9;
constexpr std::uint32_t engineFacility = 0x0061;
constexpr std::uint32_t failureBits = 0xE0000000;
constexpr std::uint32_t normalizedLibraryCode = 0xEBE80000;
constexpr std::uint32_t libraryWarningBit = 0x00400000;

constexpr std::uint32_t facility(Status status) {
    return (codeOf(status) >> 16) & 0x0FFF;
}
constexpr std::uint32_t family(Status status) {
    return (codeOf(status) >> 16) & 0xFF;
}
constexpr std::uint32_t number(Status status) {
    return codeOf(status) & 0xFFFF;
}

// True for library codes with the family 0x27 or a number from 0x8000 to 0x9FFF.
constexpr bool belongsToNormalizedFamily(Status status) {
    constexpr std::uint32_t normalizedFamily = 0x27;
    return family(status) == normalizedFamily ||
           (number(status) >= 0x8000 && number(status) <= 0x9FFF);
}

constexpr Status normalized(Status status) {
    return Status{normalizedLibraryCode | number(status)};
}

}  // namespace

Status queriedError(OrvContext context) noexcept {
    std::uint32_t code = 0;
    std::uint32_t second = 0;
    std::uint32_t third = 0;
    const OrvResult query = OrvErrorQuery(context, &code, &second, &third);
    return query == 0 ? libraryStatus(code) : failureNumber(query);
}

Status libraryError(OrvResult result, OrvContext context) noexcept {
    if (result == 0) {
        return success;
    }
    return result == ORV_RESULT_ASK_ERROR_QUERY ? queriedError(context) : failureNumber(result);
}

Status mapStatus(Status status) noexcept {
    if (status == success || facility(status) == moduleFacility ||
        facility(status) == engineFacility) {
        return status;
    }
    if (belongsToNormalizedFamily(status)) {
        return normalized(status);
    }
    if ((codeOf(status) & libraryWarningBit) != 0) {
        return libraryFailure;
    }
    return Status{codeOf(status) | failureBits};
}

Status engineStatus(Status result) noexcept {
    constexpr std::uint32_t engineCode = failureBits | engineFacility << 16;
    return family(result) == engineFacility ? Status{engineCode | number(result)} : result;
}

Status normalizeStatus(Status status) noexcept {
    return status != success && belongsToNormalizedFamily(status) ? normalized(status) : status;
}

}  // namespace pyORV3
