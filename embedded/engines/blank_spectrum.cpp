#include "embedded/engines/blank_spectrum.h"

#include <cmath>

#include "embedded/engines/calibration_steps.h"
#include "embedded/engines/width_estimate.h"
#include "embedded/engines/width_samples.h"
#include "embedded/pqar/parameter_codes.h"

namespace embedded::engines {

namespace {

MeasuredPeak measured(const FittedPeak& peak, const Calibration& calibration) {
    const double width = peak.width * energyPerChannel(calibration, peak.channel);
    return {energyAt(calibration, peak.channel),
            width / fwhmPerSigma * peak.areaUncertainty / peak.area, peak.area,
            peak.areaUncertainty, width};
}

}  // namespace

std::unique_ptr<BlankSpectrum> BlankSpectrum::read(const DataSourceAccess& dataSource,
                                                   const SearchSettings& search) {
    const auto liveTime = dataSource.readDouble(QAR_D_BLANKLIVE);
    if (!liveTime) {
        return nullptr;
    }
    if (!(*liveTime > 0.0 && std::isfinite(*liveTime))) {
        throw EngineFailure(status::badSetting);
    }
    return std::unique_ptr<BlankSpectrum>(new BlankSpectrum(dataSource, *liveTime, search));
}

BlankSpectrum::BlankSpectrum(const DataSourceAccess& dataSource, double liveTime,
                             const SearchSettings& search)
    : liveTime_(liveTime), contents_(dataSource.readLongs(QAR_L_BLANKCOUNTS)) {
    if (contents_.empty()) {
        throw EngineFailure(status::spectrumUnreadable);
    }
    excess_ = excessVariance(contents_);
    Calibration calibration{dataSource.readCoefficients(QAR_D_BLANKENERGY),
                            dataSource.readCoefficients(QAR_D_BLANKSHAPE),
                            {}};
    if (!energyRises(calibration, contents_.size())) {
        throw EngineFailure(status::calibrationUnusable);
    }
    if (calibration.shape.empty()) {
        calibration.shape =
            estimateWidths(measureWidths(contents_, excess_), calibration, contents_.size()).shape;
    }
    widths_ = widthsInChannels(calibration, contents_.size());
    const Spectrum spectrum{contents_, widths_, excess_};
    const std::vector<FittedPeak> fitted = findPeaks(spectrum, search);
    calibration =
        corrected(calibration,
                  findCorrection(dataSource, spectrum, calibration, fitted, search.limit).relation);
    std::vector<MeasuredPeak> peaks;
    peaks.reserve(fitted.size());
    for (const FittedPeak& peak : fitted) {
        peaks.push_back(measured(peak, calibration));
    }
    meter_ = std::make_unique<LineMeter>(spectrum, calibration, std::move(peaks));
}

}  // namespace embedded::engines
