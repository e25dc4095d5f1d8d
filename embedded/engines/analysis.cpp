#include "embedded/engines/analysis.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <numeric>

#include "embedded/engines/activity_results.h"
#include "embedded/engines/calibration_steps.h"
#include "embedded/engines/engine.h"
#include "embedded/engines/scintillator_identification.h"
#include "embedded/engines/scintillator_response.h"
#include "embedded/engines/spectrum.h"
#include "embedded/pqar/parameter_codes.h"

namespace embedded::engines {

namespace {

// A processing setting: its default and its range.
struct Setting {
    std::uint32_t code;
    double missing;
    double min;
    double max;
};

constexpr Setting peakLimit = {QAR_D_PEAKLIMIT, 5.0, 1.0, 100.0};
constexpr Setting matchTolerance = {QAR_D_MATCHTOL, 1.0, 1e-6, 1e6};
constexpr Setting minConfidence = {QAR_D_MINCONF, 0.5, 0.0, 1.0};

constexpr double maxSmoothing = 1.0 / 16.0;  // of the spectrum

double readSetting(const DataSourceAccess& dataSource, const Setting& setting) {
    const double value = dataSource.readDouble(setting.code).value_or(setting.missing);
    if (!(value >= setting.min && value <= setting.max)) {
        throw EngineFailure(status::badSetting);
    }
    return value;
}

}  // namespace

Analysis::Analysis(const DataSourceAccess& dataSource, std::optional<double> significanceLimit)
    : dataSource_(dataSource), contents_(dataSource.readSpectrum()) {
    if (std::ranges::none_of(contents_, [](double content) { return content > 0.0; })) {
        throw EngineFailure(status::spectrumEmpty);
    }
    excess_ = excessVariance(contents_);
    readCalibration();
    restrictSearch();
    readSettings(significanceLimit);
}

void Analysis::readCalibration() {
    calibration_.energy = dataSource_.readCoefficients(QAR_D_ENERGYCAL);
    calibration_.efficiency = dataSource_.readCoefficients(QAR_D_EFFICCAL);
    if (calibration_.energy.empty()) {
        throw EngineFailure(status::noEnergyCalibration);
    }
    if (!energyRises(calibration_, contents_.size())) {
        throw EngineFailure(status::calibrationUnusable);
    }
    widthCalibration_ = widthCalibrationOf(dataSource_, calibration_, contents_, excess_);
    calibration_.shape = widthCalibration_.shape;
    widths_ = widthsInChannels(calibration_, contents_.size());
    if (std::ranges::none_of(widths_, [](double width) { return width > 0.0; })) {
        throw EngineFailure(status::calibrationUnusable);
    }
}

void Analysis::restrictSearch() {
    const auto last = static_cast<std::int32_t>(contents_.size());
    const std::int32_t first = dataSource_.readLong(QAR_L_FIRSTCHAN).value_or(1);
    const std::int32_t end = dataSource_.readLong(QAR_L_LASTCHAN).value_or(last);
    if (first < 1 || end < first || end > last) {
        throw EngineFailure(status::badSetting);
    }
    inRange_.assign(contents_.size(), 0.0);
    std::fill(inRange_.begin() + (first - 1), inRange_.begin() + end, 1.0);
    // Many calibrations give the first channels negative energies, at which there are no peaks.
    for (std::int32_t channel = first; channel <= end; ++channel) {
        const double width = widths_[static_cast<std::size_t>(channel) - 1];
        leftOutChannels_ =
            leftOutChannels_ || (width == 0.0 && energyAt(calibration_, channel) > 0.0);
    }
    std::fill(widths_.begin(), widths_.begin() + (first - 1), 0.0);
    std::fill(widths_.begin() + end, widths_.end(), 0.0);
}

void Analysis::readSettings(std::optional<double> significanceLimit) {
    const double limit = readSetting(dataSource_, peakLimit);
    search_.limit = significanceLimit.value_or(limit);
    search_.multiplets = dataSource_.readByte(QAR_B_FITMULTIPLT, 1).value_or(1) != 0;
    search_.smoothing = dataSource_.readShort(QAR_S_SMOOTHWIDTH).value_or(0);
    if (search_.smoothing < 0.0 ||
        search_.smoothing > maxSmoothing * static_cast<double>(contents_.size())) {
        throw EngineFailure(status::badSetting);
    }
    rules_.tolerance = readSetting(dataSource_, matchTolerance);
    rules_.minConfidence = readSetting(dataSource_, minConfidence);
    rules_.efficiencyIsAssumed = calibration_.efficiency.empty();
    activitySettings_ = readActivitySettings(dataSource_, calibration_);
}

void Analysis::searchPeaks() {
    const std::vector<FittedPeak> peaks = findPeaks(spectrum(), search_);
    const Spectrum searched = {contents_, inRange_, excess_};
    const EnergyCorrection correction =
        findCorrection(dataSource_, searched, calibration_, peaks, search_.limit);
    correctEnergies(correction);
    if (widthCalibration_.origin != WidthOrigin::given) {
        widthCalibration_.shape = calibration_.shape;
        widthCalibration_.kind = kindOf(calibration_.shape);
    }
    dataSource_.deleteRecords(QAR_CLS_RESULT);
    dataSource_.deleteRecords(QAR_CLS_PEAK);
    writeWidthCalibration(dataSource_, widthCalibration_);
    writeCorrection(dataSource_, correction);
    writePeaks(peaks);
}

// Only results get corrected energies: the calibration in the file belongs to its user.
void Analysis::correctEnergies(const EnergyCorrection& correction) {
    calibration_ = corrected(calibration_, correction.relation);
    isCorrected_ = true;
}

void Analysis::writePeaks(const std::vector<FittedPeak>& peaks) const {
    std::uint16_t record = 0;
    for (const FittedPeak& peak : peaks) {
        ++record;
        const double width = peak.width * energyPerChannel(calibration_, peak.channel);
        const auto left = static_cast<std::int32_t>(peak.region.first + 1);
        const auto right = static_cast<std::int32_t>(peak.region.first + peak.region.count);
        dataSource_.writeDouble(QAR_D_PEAKENERGY, record, energyAt(calibration_, peak.channel));
        dataSource_.writeDouble(QAR_D_PEAKCENTR, record, peak.channel);
        dataSource_.writeDouble(QAR_D_PEAKFWHM, record, width);
        dataSource_.writeDouble(QAR_D_PEAKAREA, record, peak.area);
        dataSource_.writeDouble(QAR_D_PEAKAREAU, record, peak.areaUncertainty);
        dataSource_.writeDouble(QAR_D_PEAKCONT, record, peak.continuum);
        dataSource_.writeDouble(QAR_D_PEAKSIGNIF, record, peak.significance);
        dataSource_.writeText(QAR_C_PEAKNUCL, record, "");
        dataSource_.writeLong(QAR_L_PEAKLEFT, record, left);
        dataSource_.writeLong(QAR_L_PEAKRIGHT, record, right);
        dataSource_.writeFloat(QAR_F_PEAKCHISQ, record, static_cast<float>(peak.reducedChiSquare));
        writeCurve(dataSource_, record, peak);
    }
}

// The uncertainty of a centroid is sigma divided by the root of the effective number of counts.
std::vector<MeasuredPeak> Analysis::readPeaks() const {
    std::vector<MeasuredPeak> peaks(dataSource_.recordCount(QAR_CLS_PEAK));
    for (std::size_t number = 0; number < peaks.size(); ++number) {
        const auto record = static_cast<std::uint16_t>(number + 1);
        MeasuredPeak& peak = peaks[number];
        peak.energy = required(dataSource_.readDouble(QAR_D_PEAKENERGY, record));
        peak.area = required(dataSource_.readDouble(QAR_D_PEAKAREA, record));
        peak.areaUncertainty = required(dataSource_.readDouble(QAR_D_PEAKAREAU, record));
        const double width = required(dataSource_.readDouble(QAR_D_PEAKFWHM, record));
        if (!(peak.area > 0.0 && peak.areaUncertainty > 0.0)) {
            throw EngineFailure(status::recordUnreadable);
        }
        peak.energyUncertainty = width / fwhmPerSigma * peak.areaUncertainty / peak.area;
        peak.width = width;
    }
    return peaks;
}

void Analysis::identifyNuclides(bool nuclidesRequired) {
    if (nuclidesRequired && dataSource_.recordCount(QAR_CLS_NUCLIDE) == 0) {
        throw EngineFailure(status::noNuclides);
    }
    if (!isCorrected_) {
        correctEnergies(readCorrection(dataSource_));
    }
    const std::vector<MeasuredPeak> peaks = readPeaks();
    const Spectrum searched = spectrum();
    const NuclideLibrary library(dataSource_, searched, calibration_, search_.limit);
    const Findings findings =
        isScintillator(calibration_)
            ? identifyInScintillator({.contents = contents_, .widths = inRange_, .excess = excess_},
                                     calibration_, peaks, library.nuclides(), rules_, search_.limit)
            : identify(peaks, library.nuclides(), rules_, library.elements());
    const std::vector<MeasuredActivity> activities = activitiesOf(library, findings);

    dataSource_.deleteRecords(QAR_CLS_RESULT);
    writeResults(library, findings, activities);
    for (std::size_t number = 0; number < peaks.size(); ++number) {
        const auto record = static_cast<std::uint16_t>(number + 1);
        dataSource_.writeText(QAR_C_PEAKNUCL, record, findings.assigned[number]);
        dataSource_.writeShort(QAR_S_PEAKORIGIN, record,
                               static_cast<std::uint16_t>(findings.origins[number]));
    }
}

// The most confident first. A nuclide that was not found has a record if one of its lines has a
// peak or if activities can be computed. One that was found in a scintillator may lack a peak.
void Analysis::writeResults(const NuclideLibrary& library, const Findings& findings,
                            const std::vector<MeasuredActivity>& activities) const {
    std::vector<std::size_t> order(findings.nuclides.size());
    std::iota(order.begin(), order.end(), 0U);
    std::ranges::stable_sort(order, std::ranges::greater(), [&findings](std::size_t nuclide) {
        return findings.nuclides[nuclide].confidence;
    });
    std::uint16_t record = 0;
    for (const std::size_t nuclide : order) {
        if (!findings.nuclides[nuclide].peaks.empty() || isIdentified(findings.nuclides[nuclide]) ||
            library.measurement().isAbsolute) {
            writeResult(library, findings, nuclide, ++record);
            writeActivity(dataSource_, activities[nuclide], record);
        }
    }
}

bool Analysis::isIdentified(const Identification& identification) const {
    return identification.activity > 0.0 && identification.confidence >= rules_.minConfidence;
}

void Analysis::writeResult(const NuclideLibrary& library, const Findings& findings,
                           std::size_t nuclide, std::uint16_t record) const {
    const Identification& result = findings.nuclides[nuclide];
    dataSource_.writeText(QAR_C_RESNUCLIDE, record, library.nuclides()[nuclide].name);
    dataSource_.writeLong(QAR_L_RESLINES, record, static_cast<std::int32_t>(result.peaks.size()));
    dataSource_.writeDouble(QAR_D_RESCONF, record, result.confidence);
    dataSource_.writeText(QAR_C_RESREASON, record, result.reason);
    if (isIdentified(result)) {
        dataSource_.writeDouble(QAR_D_RESENERGY, record, result.energy);
    }
}

std::vector<MeasuredActivity> Analysis::activitiesOf(const NuclideLibrary& library,
                                                     const Findings& findings) const {
    const Measurement& measurement = library.measurement();
    if (!measurement.isAbsolute) {
        MeasuredActivity unknown;
        unknown.reason =
            calibration_.efficiency.empty() ? "no efficiency calibration" : "no live time";
        std::vector<MeasuredActivity> results(findings.nuclides.size(), unknown);
        return results;
    }
    if (isScintillator(calibration_)) {
        return scintillatorActivities(library, findings, activitySettings_, rules_.minConfidence);
    }
    const LineMeter meter(spectrum(), calibration_, readPeaks());
    const auto blank = BlankSpectrum::read(dataSource_, search_);
    const auto subtracted =
        blank ? std::optional(blank->measurementFor(required(measurement.liveTime))) : std::nullopt;
    std::vector<bool> found;
    for (const Identification& identification : findings.nuclides) {
        found.push_back(isIdentified(identification));
    }
    return determineActivities(
        {meter, subtracted ? &*subtracted : nullptr, findings.origins, library.nuclides(), found,
         library.decayUncertainties(), activitySettings_.efficiency, rules_.tolerance},
        activitySettings_.quantity, activitySettings_.probabilities);
}

}  // namespace embedded::engines
