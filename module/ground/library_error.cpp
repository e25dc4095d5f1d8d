#include "module/ground/library_error.h"

namespace pyORV3 {

Status queriedError(OrvContext context) noexcept {
    std::uint32_t code = 0;
    std::uint32_t second = 0;
    std::uint32_t third = 0;
    const OrvResult query = OrvErrorQuery(context, &code, &second, &third);
    return query == 0 ? code : failureNumber(query);
}

Status libraryError(OrvResult result, OrvContext context) noexcept {
    if (result == 0) {
        return success;
    }
    return result == ORV_RESULT_ASK_ERROR_QUERY ? queriedError(context) : failureNumber(result);
}

}  // namespace pyORV3
