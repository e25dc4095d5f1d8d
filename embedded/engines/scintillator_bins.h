// The spectrum of a scintillator, in bins that are a fixed part of the FWHM.
#ifndef PYORV3_EMBEDDED_ENGINES_SCINTILLATOR_BINS_H
#define PYORV3_EMBEDDED_ENGINES_SCINTILLATOR_BINS_H

#include <Eigen/Core>
#include <cstddef>

#include "embedded/engines/calibration.h"
#include "embedded/engines/spectrum.h"

namespace embedded::engines {

// About the width of a bin, FWHM.
inline constexpr double binWidth = 0.35;

// Returns the FWHM at an energy from the shape calibration, keV; 0 if it is not a positive number.
double widthAtEnergy(const Calibration& calibration, double energy);

// Returns the FWHM at 662 keV as a part of the energy.
double resolution(const Calibration& calibration);

// True if the calibrated width is that of a scintillator: more than 1.5 % at 662 keV.
bool isScintillator(const Calibration& calibration);

// Whole channels grouped into bins of about a third of the FWHM. Positions count FWHM from the
// first edge, so that all peaks are equally wide.
struct ScintillatorBins {
    Eigen::VectorXd counts;
    Eigen::VectorXd excess;     // variance beyond that of counting
    Eigen::VectorXd edges;      // keV, one more than bins
    Eigen::VectorXd positions;  // of the edges

    Eigen::Index size() const { return counts.size(); }
    // Returns the bin of an energy; the number of bins above the last edge, 0 below the end of the
    // first bin.
    Eigen::Index binAt(double energy) const;
    double centre(Eigen::Index bin) const { return 0.5 * (edges[bin] + edges[bin + 1]); }
};

// Returns the bins from the detector's threshold to the last channel but one. Channels with the
// width 0 are left out. Empty if too few bins remain for a fit.
ScintillatorBins scintillatorBins(const Spectrum& spectrum, const Calibration& calibration);

}  // namespace embedded::engines

#endif
