#include "embedded/engines/activity_results.h"

#include <cmath>

#include "embedded/engines/calibration_steps.h"
#include "embedded/engines/engine.h"
#include "embedded/engines/width_estimate.h"
#include "embedded/engines/width_samples.h"
#include "embedded/pqar/parameter_codes.h"

namespace embedded::engines {

namespace {

// Lines at the ends of an efficiency calibration are inside it.
constexpr double rangeMargin = 0.01;

constexpr double maxQuantity = 1e30;
constexpr double maxSampling = 1e9;  // seconds

double settingOf(const DataSourceAccess& dataSource, std::uint32_t code, double missing, double min,
                 double max) {
    const double value = dataSource.readDouble(code).value_or(missing);
    if (!(value >= min && value <= max)) {
        throw EngineFailure(status::badSetting);
    }
    return value;
}

double positiveOr(const DataSourceAccess& dataSource, std::uint32_t code, double missing) {
    const double value = dataSource.readDouble(code).value_or(missing);
    return value > 0.0 && std::isfinite(value) ? value : missing;
}

EfficiencyUncertainty readEfficiency(const DataSourceAccess& dataSource,
                                     const Calibration& calibration) {
    EfficiencyUncertainty efficiency;
    efficiency.factor =
        lowerTriangle(dataSource.readDoubles(QAR_D_EFFICCOVAR), calibration.efficiency.size());
    efficiency.relative = positiveOr(dataSource, QAR_D_EFFICUNC, 0.0);
    efficiency.minEnergy =
        (1.0 - rangeMargin) * positiveOr(dataSource, QAR_D_EFFICMIN, efficiency.minEnergy);
    efficiency.maxEnergy =
        (1.0 + rangeMargin) * positiveOr(dataSource, QAR_D_EFFICMAX, efficiency.maxEnergy);
    return efficiency;
}

std::string unitOf(const DataSourceAccess& dataSource) {
    const bool isPerQuantity = positiveOr(dataSource, QAR_D_QUANTITY, 0.0) > 0.0;
    const std::string unit = dataSource.readText(QAR_C_SAMPLEUNIT, 1).value_or("");
    if (!isPerQuantity) {
        return "Bq";
    }
    return unit.empty() ? "Bq/unit" : "Bq/" + unit;
}

}  // namespace

ActivitySettings readActivitySettings(const DataSourceAccess& dataSource,
                                      const Calibration& calibration) {
    ActivitySettings settings;
    settings.efficiency = readEfficiency(dataSource, calibration);
    const double quantity = settingOf(dataSource, QAR_D_QUANTITY, 0.0, 0.0, maxQuantity);
    const double uncertainty = settingOf(dataSource, QAR_D_QUANTITYUNC, 0.0, 0.0, maxQuantity);
    settingOf(dataSource, QAR_D_SAMPLINGTIME, 0.0, 0.0, maxSampling);
    if (quantity > 0.0) {
        settings.quantity = {quantity, uncertainty / quantity};
    }
    LimitProbabilities& probabilities = settings.probabilities;
    const auto confidence = dataSource.readFloat(QAR_F_CONFIDENCE);
    const double falseNegative =
        confidence ? 1.0 - static_cast<double>(*confidence) : probabilities.falseNegative;
    probabilities.falsePositive =
        settingOf(dataSource, QAR_D_PROBALPHA, probabilities.falsePositive, 1e-4, 0.5);
    probabilities.falseNegative =
        settingOf(dataSource, QAR_D_PROBBETA, std::max(1e-4, falseNegative), 1e-4, 0.5);
    probabilities.coverage =
        settingOf(dataSource, QAR_D_COVERAGE, probabilities.coverage, 0.5, 0.9999);
    return settings;
}

std::vector<MeasuredActivity> scintillatorActivities(const NuclideLibrary& library,
                                                     const Findings& findings,
                                                     const ActivitySettings& settings,
                                                     double minConfidence) {
    std::vector<MeasuredActivity> activities(findings.nuclides.size());
    for (std::size_t nuclide = 0; nuclide < activities.size(); ++nuclide) {
        MeasuredActivity& result = activities[nuclide];
        const Identification& one = findings.nuclides[nuclide];
        if (!(one.activity > 0.0 && one.confidence >= minConfidence)) {
            result.reason = "not found in a scintillator spectrum";
            continue;
        }
        const double deviation = settings.efficiency.deviations(one.energy).norm();
        const double decay = library.decayUncertainties()[nuclide];
        const auto uncertaintiesAt = [&](double activity) {
            UncertaintyParts parts;
            parts.counts = one.uncertainty / settings.quantity.value;
            parts.efficiency = std::abs(activity) * deviation;
            parts.halfLife = std::abs(activity) * decay;
            parts.quantity = std::abs(activity) * settings.quantity.uncertainty;
            return parts;
        };
        result.isKnown = true;
        result.activity = one.activity / settings.quantity.value;
        result.uncertainties = uncertaintiesAt(result.activity);
        result.limits = decisionLimits(
            result.activity, result.uncertainties.total(),
            [&](double activity) { return uncertaintiesAt(activity).total(); },
            settings.probabilities);
    }
    return activities;
}

void writeActivity(const DataSourceAccess& dataSource, const MeasuredActivity& activity,
                   std::uint16_t record) {
    if (!activity.reason.empty()) {
        dataSource.writeText(QAR_C_RESNOVALUE, record, activity.reason);
    }
    if (!activity.isKnown) {
        return;
    }
    dataSource.writeText(QAR_C_RESUNIT, record, unitOf(dataSource));
    const UncertaintyParts& parts = activity.uncertainties;
    const DecisionLimits& limits = activity.limits;
    const struct {
        std::uint32_t code;
        double value;
    } values[] = {
        {QAR_D_ACTIVITY, activity.activity},
        {QAR_D_ACTIVITYUNC, parts.total()},
        {QAR_D_RESTHRESH, limits.threshold},
        {QAR_D_RESBEST, limits.bestEstimate},
        {QAR_D_RESBESTUNC, limits.bestEstimateUncertainty},
        {QAR_D_RESLOWER, limits.lower},
        {QAR_D_RESUPPER, limits.upper},
        {QAR_D_RESUCOUNTS, parts.counts},
        {QAR_D_RESUBLANK, parts.blank},
        {QAR_D_RESUEFFIC, parts.efficiency},
        {QAR_D_RESUSUMMING, parts.summing},
        {QAR_D_RESUYIELD, parts.yield},
        {QAR_D_RESUHALFLIFE, parts.halfLife},
        {QAR_D_RESUQUANTITY, parts.quantity},
        {QAR_D_RESBLANK, activity.blank},
    };
    for (const auto& [code, value] : values) {
        dataSource.writeDouble(code, record, value);
    }
    if (limits.detectionLimit) {
        dataSource.writeDouble(QAR_D_DETECTLIMIT, record, *limits.detectionLimit);
    }
    std::uint16_t entry = 0;
    for (const MeasuredLine& line : activity.lines) {
        ++entry;
        dataSource.writeDouble(QAR_D_RESLINE, record, line.energy, entry);
        dataSource.writeDouble(QAR_D_RESAREA, record, line.area, entry);
        dataSource.writeDouble(QAR_D_RESAREAUNC, record, line.areaUncertainty, entry);
        dataSource.writeDouble(QAR_D_RESNULLUNC, record, line.nullUncertainty, entry);
        dataSource.writeDouble(QAR_D_RESBLKAREA, record, line.blank, entry);
        dataSource.writeDouble(QAR_D_RESBLKUNC, record, line.blankUncertainty, entry);
    }
}

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
