#include "parameters/dictionary.h"

#include "module/interface/orv.h"
#include "module/status/trace.h"
#include "platform/dynamic_library.h"

namespace Tarsel::Datasources::QAR {

using pyORV3::Status;
using pyORV3::success;
using pyORV3::systemError;
using pyORV3::trace;

namespace {

constexpr const char* dictionaryLibrary = "pqar.dll";

// Returns the error number of the failed step; never 0, which would mean success.
Status lastError(DWORD numberWhenUnknown) {
    const DWORD error = GetLastError();
    return systemError(error != 0 ? error : numberWhenUnknown);
}

// The entry points return an odd number for success; 0 is a failure without a code.
Status lookupStatus(std::uint32_t result) {
    if ((result & 1) != 0) {
        return success;
    }
    return result != 0 ? pyORV3::libraryStatus(result) : pyORV3::parameterUnknown;
}

}  // namespace

Status getParameterInfo(std::uint32_t code, ParameterInfo& info) {
    const platform::DynamicLibrary library(dictionaryLibrary);
    Status error = success;
    if (!library) {
        error = lastError(ERROR_MOD_NOT_FOUND);
        trace("Error loading DLL");
    } else if (const auto lookUp = library.find<OrvParameterInfoFunction>("pqar_util_getpinfo")) {
        const std::uint32_t result = lookUp(code, 1, 0, info.name.data(), info.description.data(),
                                            &info.output6, &info.output7, &info.length, &info.type,
                                            &info.size, &info.output11, &info.output12);
        info.name.back() = '\0';
        info.description.back() = '\0';
        return lookupStatus(result);
    } else {
        error = lastError(ERROR_PROC_NOT_FOUND);
        trace("Error locating pqar_util_getpinfo");
    }
    trace("Failed invoking pqar_util_getpinfo");
    return error;
}

Status parameterNameToCode(const char* name, std::uint32_t& code) {
    constexpr std::size_t areaSize = 260;
    const platform::DynamicLibrary library(dictionaryLibrary);
    if (!library) {
        const Status error = lastError(ERROR_MOD_NOT_FOUND);
        trace("Error loading DLL");
        return error;
    }
    const auto lookUp = library.find<OrvParameterNameFunction>("pqar_util_pname2code");
    if (lookUp == nullptr) {
        const Status error = lastError(ERROR_PROC_NOT_FOUND);
        trace("Error locating pqar_util_pname2code");
        return error;
    }
    std::array<std::uint8_t, areaSize> area{};
    return lookupStatus(lookUp(name, &code, area.data()));
}

}  // namespace Tarsel::Datasources::QAR
