#include "embedded/engines/calibration_steps.h"

#include "embedded/engines/energy_calibration.h"
#include "embedded/engines/engine.h"
#include "embedded/engines/nuclide_library.h"
#include "embedded/engines/nuclide_patterns.h"
#include "embedded/engines/peak_search.h"
#include "embedded/engines/scintillator_bins.h"
#include "embedded/engines/scintillator_calibration.h"
#include "embedded/engines/width_estimate.h"
#include "embedded/engines/width_samples.h"
#include "embedded/pqar/parameter_codes.h"

namespace embedded::engines {

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

}  // namespace embedded::engines
