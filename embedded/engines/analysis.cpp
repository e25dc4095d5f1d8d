#include "embedded/engines/analysis.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <utility>

#include "embedded/engines/detection_limit.h"
#include "embedded/engines/engine.h"
#include "embedded/engines/engine_failure.h"
#include "embedded/engines/peak_search.h"
#include "embedded/pqar/parameter_codes.h"

namespace embedded::engines {

namespace {

// A processing setting: what holds where the file has none, and the range it must lie in.
struct Setting {
    std::uint32_t code;
    double missing;
    double smallest;
    double greatest;
};

constexpr Setting peakLimit = {QAR_D_PEAKLIMIT, 5.0, 1.0, 100.0};
constexpr Setting matchTolerance = {QAR_D_MATCHTOL, 1.0, 1e-6, 1e6};
constexpr Setting leastConfidence = {QAR_D_MINCONF, 0.5, 0.0, 1.0};

double readSetting(const DataSourceAccess& dataSource, const Setting& setting) {
    const double value = dataSource.readDouble(setting.code).value_or(setting.missing);
    if (!(value >= setting.smallest && value <= setting.greatest)) {
        throw EngineFailure(status::badSetting);
    }
    return value;
}

// A value without which a record means nothing.
template <typename Value>
Value required(const std::optional<Value>& value) {
    if (!value) {
        throw EngineFailure(status::recordUnreadable);
    }
    return *value;
}

}  // namespace

Analysis::Analysis(const DataSourceAccess& dataSource, std::optional<double> significanceLimit)
    : dataSource_(dataSource), contents_(dataSource.readSpectrum()) {
    if (std::ranges::none_of(contents_, [](double content) { return content > 0.0; })) {
        throw EngineFailure(status::spectrumEmpty);
    }
    readCalibration();
    restrictSearch();
    const double limit = readSetting(dataSource_, peakLimit);
    significanceLimit_ = significanceLimit.value_or(limit);
    rules_.tolerance = readSetting(dataSource_, matchTolerance);
    rules_.smallestConfidence = readSetting(dataSource_, leastConfidence);
}

void Analysis::readCalibration() {
    calibration_.energy = dataSource_.readCoefficients(QAR_D_ENERGYCAL);
    calibration_.shape = dataSource_.readCoefficients(QAR_D_SHAPECAL);
    calibration_.efficiency = dataSource_.readCoefficients(QAR_D_EFFICCAL);
    if (calibration_.energy.empty()) {
        throw EngineFailure(status::noEnergyCalibration);
    }
    if (calibration_.shape.empty()) {
        throw EngineFailure(status::noShapeCalibration);
    }
    if (!energyRises(calibration_, contents_.size())) {
        throw EngineFailure(status::calibrationUnusable);
    }
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
    std::fill(widths_.begin(), widths_.begin() + (first - 1), 0.0);
    std::fill(widths_.begin() + end, widths_.end(), 0.0);
}

void Analysis::searchPeaks() const {
    const std::vector<FittedPeak> peaks = findPeaks(spectrum(), significanceLimit_);
    dataSource_.deleteRecords(QAR_CLS_RESULT);
    dataSource_.deleteRecords(QAR_CLS_PEAK);
    writePeaks(peaks);
}

void Analysis::writePeaks(const std::vector<FittedPeak>& peaks) const {
    std::uint16_t record = 0;
    for (const FittedPeak& peak : peaks) {
        ++record;
        const double width = peak.width * energyPerChannel(calibration_, peak.channel);
        dataSource_.writeDouble(QAR_D_PEAKENERGY, record, energyAt(calibration_, peak.channel));
        dataSource_.writeDouble(QAR_D_PEAKCENTR, record, peak.channel);
        dataSource_.writeDouble(QAR_D_PEAKFWHM, record, width);
        dataSource_.writeDouble(QAR_D_PEAKAREA, record, peak.area);
        dataSource_.writeDouble(QAR_D_PEAKAREAU, record, peak.areaUncertainty);
        dataSource_.writeDouble(QAR_D_PEAKCONT, record, peak.continuum);
        dataSource_.writeDouble(QAR_D_PEAKSIGNIF, record, significance(peak));
        dataSource_.writeText(QAR_C_PEAKNUCL, record, "");
    }
}

ExpectedLine Analysis::readLine(std::uint16_t record, std::uint16_t entry) const {
    const double energy = required(dataSource_.readDouble(QAR_D_LINEENERGY, record, entry));
    const double yield = required(dataSource_.readDouble(QAR_D_LINEYIELD, record, entry));
    const double channel = channelAt(calibration_, energy, contents_.size());
    return {energy, yield * efficiencyAt(calibration_, energy),
            detectionLimitAt(spectrum(), channel, significanceLimit_),
            dataSource_.readByte(QAR_B_LINEKEY, record, entry).value_or(0) != 0};
}

std::vector<Nuclide> Analysis::readNuclides() const {
    std::vector<Nuclide> nuclides;
    const std::uint16_t records = dataSource_.recordCount(QAR_CLS_NUCLIDE);
    for (std::uint32_t number = 1; number <= records; ++number) {
        const auto record = static_cast<std::uint16_t>(number);
        if (dataSource_.readByte(QAR_B_NUCLACTIVE, record).value_or(1) == 0) {
            continue;
        }
        Nuclide nuclide{required(dataSource_.readText(QAR_C_NUCLNAME, record)), {}};
        const std::uint16_t entries = dataSource_.entryCount(QAR_CLS_NUCLIDE, record);
        for (std::uint32_t entry = 1; entry <= entries; ++entry) {
            nuclide.lines.push_back(readLine(record, static_cast<std::uint16_t>(entry)));
        }
        nuclides.push_back(std::move(nuclide));
    }
    return nuclides;
}

std::vector<MeasuredPeak> Analysis::readPeaks() const {
    std::vector<MeasuredPeak> peaks(dataSource_.recordCount(QAR_CLS_PEAK));
    for (std::size_t number = 0; number < peaks.size(); ++number) {
        const auto record = static_cast<std::uint16_t>(number + 1);
        peaks[number] = {required(dataSource_.readDouble(QAR_D_PEAKENERGY, record)),
                         required(dataSource_.readDouble(QAR_D_PEAKAREA, record))};
    }
    return peaks;
}

void Analysis::identifyNuclides(bool nuclidesRequired) const {
    if (nuclidesRequired && dataSource_.recordCount(QAR_CLS_NUCLIDE) == 0) {
        throw EngineFailure(status::noNuclides);
    }
    const std::vector<MeasuredPeak> peaks = readPeaks();
    const auto identifications = identify(peaks, readNuclides(), rules_);
    const auto names = assignPeaks(peaks.size(), identifications);

    dataSource_.deleteRecords(QAR_CLS_RESULT);
    writeIdentifications(identifications);
    for (std::size_t number = 0; number < names.size(); ++number) {
        dataSource_.writeText(QAR_C_PEAKNUCL, static_cast<std::uint16_t>(number + 1),
                              names[number]);
    }
}

void Analysis::writeIdentifications(const std::vector<Identification>& identifications) const {
    std::uint16_t record = 0;
    for (const Identification& identification : identifications) {
        ++record;
        const auto lines = static_cast<std::int32_t>(identification.peaks.size());
        dataSource_.writeText(QAR_C_RESNUCLIDE, record, identification.name);
        dataSource_.writeLong(QAR_L_RESLINES, record, lines);
        dataSource_.writeDouble(QAR_D_RESCONF, record, identification.confidence);
        dataSource_.writeDouble(QAR_D_RESENERGY, record, identification.energy);
    }
}

}  // namespace embedded::engines
