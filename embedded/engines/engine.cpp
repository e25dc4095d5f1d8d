#include "embedded/engines/engine.h"

#include <new>
#include <optional>

#include "embedded/engines/analysis.h"
#include "embedded/engines/calibration_steps.h"
#include "embedded/engines/data_source_access.h"

namespace embedded::engines {

namespace {

constexpr std::uint32_t optionSteps = optionSearchPeaks | optionIdentifyNuclides;
constexpr std::uint32_t minLimit = 10;  // tenths
constexpr double usualLimit = 5.0;      // for the peaks of a calibration

std::optional<double> limitOf(std::uint32_t options) {
    const std::uint32_t tenths = (options & optionLimitMask) >> optionLimitShift;
    if ((options & ~(optionSteps | optionCalibrate | optionLimitMask)) != 0 ||
        (tenths != 0 && tenths < minLimit)) {
        throw EngineFailure(status::badOption);
    }
    return tenths == 0 ? std::nullopt : std::optional(0.1 * tenths);
}

std::uint32_t run(OrvContext context, std::uint32_t options) {
    const std::optional<double> limit = limitOf(options);
    const std::uint32_t steps = (options & optionSteps) == 0 ? optionSteps : options & optionSteps;
    const DataSourceAccess dataSource(context);
    if ((options & optionCalibrate) != 0) {
        calibrateFromNuclides(dataSource, limit.value_or(usualLimit));
    }
    Analysis analysis(dataSource, limit);
    if ((steps & optionSearchPeaks) != 0) {
        analysis.searchPeaks();
    }
    if ((steps & optionIdentifyNuclides) != 0) {
        analysis.identifyNuclides(steps == optionIdentifyNuclides);
    }
    const bool isPartlySearched = (steps & optionSearchPeaks) != 0 && analysis.leftOutChannels();
    return isPartlySearched ? status::rangePartlySearched : status::success;
}

}  // namespace

}  // namespace embedded::engines

// The caller may be written in any language, so no exception may leave this function.
std::uint32_t ORV_ENGINE_CALL searchPeaks(std::int32_t dataSource, std::int32_t options,
                                          std::int32_t, std::int32_t) {
    using namespace embedded::engines;
    try {
        return run(dataSource, static_cast<std::uint32_t>(options));
    } catch (const EngineFailure& failure) {
        return failure.status();
    } catch (const std::bad_alloc&) {
        return status::outOfMemory;
    } catch (...) {
        return status::internalFailure;
    }
}
