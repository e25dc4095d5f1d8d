#include "embedded/engines/width_calibration.h"

#include <algorithm>

#include "embedded/engines/width_samples.h"
#include "embedded/pqar/parameter_codes.h"

namespace embedded::engines {

namespace {

WidthCalibration estimated(const WidthEstimate& estimate, WidthOrigin fromPeaks) {
    return {estimate.shape, estimate.peaks > 0 ? fromPeaks : WidthOrigin::typical, estimate.kind};
}

}  // namespace

WidthCalibration widthCalibrationOf(const DataSourceAccess& dataSource,
                                    const Calibration& calibration,
                                    std::span<const double> contents,
                                    std::span<const double> excess) {
    const std::vector<double> stored = dataSource.readCoefficients(QAR_D_SHAPECAL);
    const bool isGiven = !stored.empty() && stored != dataSource.readCoefficients(QAR_D_SHAPEEST);
    const std::vector<WidthSample> samples = measureWidths(contents, excess);
    const WidthEstimate estimate = estimateWidths(samples, calibration, contents.size());
    if (!isGiven) {
        const bool wasContradicted = dataSource.readShort(QAR_S_SHAPEORIGIN) ==
                                     static_cast<std::int16_t>(WidthOrigin::contradiction);
        return estimated(estimate,
                         wasContradicted ? WidthOrigin::contradiction : WidthOrigin::peaks);
    }
    const Calibration given = {calibration.energy, stored, {}};
    const auto widths = widthsInChannels(given, contents.size());
    const bool isUsable = std::ranges::any_of(widths, [](double width) { return width > 0.0; });
    if (!isUsable || contradictsPeaks(given, estimate, samples)) {
        return estimated(estimate, WidthOrigin::contradiction);
    }
    return {stored, WidthOrigin::given, DetectorKind::unknown};
}

void writeWidthCalibration(const DataSourceAccess& dataSource, const WidthCalibration& widths) {
    const bool isGiven = widths.origin == WidthOrigin::given;
    if (isGiven && !dataSource.readShort(QAR_S_SHAPEORIGIN)) {
        return;
    }
    if (!isGiven) {
        dataSource.writeCoefficients(QAR_D_SHAPECAL, widths.shape);
        dataSource.writeCoefficients(QAR_D_SHAPEEST, widths.shape);
    }
    dataSource.writeShort(QAR_S_SHAPEORIGIN, 1, static_cast<std::uint16_t>(widths.origin));
    dataSource.writeShort(QAR_S_DETECTORKIND, 1, static_cast<std::uint16_t>(widths.kind));
}

}  // namespace embedded::engines
