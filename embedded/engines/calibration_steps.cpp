#include "embedded/engines/calibration_steps.h"

#include <algorithm>

#include "embedded/engines/calibration.h"
#include "embedded/engines/engine.h"
#include "embedded/engines/nuclide_library.h"
#include "embedded/engines/peak_fit.h"
#include "embedded/engines/peak_search.h"
#include "embedded/engines/scintillator_identification.h"
#include "embedded/engines/scintillator_response.h"
#include "embedded/engines/width_estimate.h"
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

namespace {

// The width estimate needs energies to distinguish kinds of detectors; most spectra end near here.
constexpr double usualEnd = 3000.0;

}  // namespace

void calibrateFromNuclides(const DataSourceAccess& dataSource, double significanceLimit) {
    const std::vector<LinePattern> nuclides = readPatterns(dataSource, {});
    if (nuclides.empty()) {
        throw EngineFailure(status::noNuclides);
    }
    const std::vector<double> contents = dataSource.readSpectrum();
    const std::vector<double> excess = excessVariance(contents);
    Calibration assumed = {{0.0, usualEnd / static_cast<double>(contents.size())}, {}, {}};
    assumed.shape = estimateWidths(measureWidths(contents, excess), assumed, contents.size()).shape;
    const std::vector<double> widths = widthsInChannels(assumed, contents.size());
    const auto peaks = findPeaks({contents, widths, excess}, {significanceLimit});
    const Calibration channels = {{0.0, 1.0}, {}, {}};
    const auto energy =
        calibrateEnergy(positionedPeaks(peaks, channels), nuclides, contents.size());
    if (!energy) {
        throw EngineFailure(status::noAssignment);
    }
    dataSource.writeCoefficients(QAR_D_ENERGYCAL, *energy);
}

EnergyCorrection findCorrection(const DataSourceAccess& dataSource, const Spectrum& searched,
                                const Calibration& calibration, std::span<const FittedPeak> peaks,
                                double significanceLimit) {
    if (isScintillator(calibration)) {
        const NuclideLibrary library(dataSource, searched, calibration, significanceLimit);
        return scintillatorCorrection(searched, calibration, library.nuclides());
    }
    return energyCorrectionOf(positionedPeaks(peaks, calibration),
                              readPatterns(dataSource, calibration));
}

EnergyCorrection readCorrection(const DataSourceAccess& dataSource) {
    const std::vector<double> stored = dataSource.readCoefficients(QAR_D_ENERGYCORR);
    const std::int32_t lines = dataSource.readLong(QAR_L_CORRLINES).value_or(0);
    if (stored.size() != 2 || lines <= 0 || !(stored[1] > 0.0)) {
        return {};
    }
    return {{stored[0], stored[1]}, static_cast<std::size_t>(lines)};
}

void writeCorrection(const DataSourceAccess& dataSource, const EnergyCorrection& correction) {
    if (correction.lines == 0 && !dataSource.readLong(QAR_L_CORRLINES)) {
        return;
    }
    dataSource.writeCoefficients(QAR_D_ENERGYCORR,
                                 {correction.relation.offset, correction.relation.gain});
    dataSource.writeLong(QAR_L_CORRLINES, 1, static_cast<std::int32_t>(correction.lines));
}

namespace {

// A value of the curve, which is not written if it equals that of a plain Gaussian on a straight
// line.
struct CurveValue {
    std::uint32_t code;
    double value;
    double plain = 0.0;
};

double lengthOf(const Tail& tail) {
    return tail.fraction > 0.0 ? tail.length : 0.0;
}

void writeMinorPeak(const DataSourceAccess& dataSource, std::uint16_t record, std::uint16_t entry,
                    const FittedPeak& peak) {
    dataSource.writeDouble(QAR_D_MINORCENTR, record, peak.channel, entry);
    dataSource.writeDouble(QAR_D_MINORWIDTH, record, peak.width, entry);
    dataSource.writeDouble(QAR_D_MINORAREA, record, peak.area, entry);
}

}  // namespace

void writeCurve(const DataSourceAccess& dataSource, std::uint16_t record, const FittedPeak& peak) {
    const RegionCurve& curve = *peak.curve;
    const Fall step = curve.step.height != 0.0 ? curve.step : Fall{};
    const Fall edge = curve.edge.height != 0.0 ? curve.edge : Fall{};
    for (const auto& [code, value, plain] : {
             CurveValue{QAR_D_PEAKWIDTH, peak.width},
             CurveValue{QAR_D_PEAKBROAD, peak.broadening, 1.0},
             CurveValue{QAR_D_LEFTTAIL, curve.left.fraction},
             CurveValue{QAR_D_LEFTLENGTH, lengthOf(curve.left)},
             CurveValue{QAR_D_RIGHTTAIL, curve.right.fraction},
             CurveValue{QAR_D_RIGHTLENGTH, lengthOf(curve.right)},
             CurveValue{QAR_D_PEAKDRIFT, curve.drift},
             CurveValue{QAR_D_CONTLEVEL, curve.level},
             CurveValue{QAR_D_CONTSLOPE, curve.slope},
             CurveValue{QAR_D_CONTCURVE, curve.curvature},
             CurveValue{QAR_D_STEPHEIGHT, step.height},
             CurveValue{QAR_D_STEPCENTR, step.channel},
             CurveValue{QAR_D_STEPWIDTH, step.width},
             CurveValue{QAR_D_EDGEHEIGHT, edge.height},
             CurveValue{QAR_D_EDGECENTR, edge.channel},
             CurveValue{QAR_D_EDGEWIDTH, edge.width},
             CurveValue{QAR_D_SHAPECHISQ, curve.chiSquareOfShape},
         }) {
        if (value != plain) {
            dataSource.writeDouble(code, record, value);
        }
    }
    dataSource.writeLong(QAR_L_PEAKFREEDOM, record,
                         static_cast<std::int32_t>(curve.degreesOfFreedom));
    std::uint16_t entry = 0;
    for (const FittedPeak& minor : curve.unreported) {
        writeMinorPeak(dataSource, record, ++entry, minor);
    }
}

}  // namespace embedded::engines
