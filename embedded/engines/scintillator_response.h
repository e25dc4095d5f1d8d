// The spectrum of a scintillator in bins, and the contribution of a photon line to it.
#ifndef PYORV3_EMBEDDED_ENGINES_SCINTILLATOR_RESPONSE_H
#define PYORV3_EMBEDDED_ENGINES_SCINTILLATOR_RESPONSE_H

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

// True if the resolution is that of lanthanum or cerium bromide, which contain lanthanum-138 and
// alpha emitters of the actinium-227 chain.
bool mayContainLanthanum(const Calibration& calibration);

// The spectrum of a scintillator: whole channels grouped into bins of about a third of the FWHM.
// Positions count FWHM from the first edge, so that all peaks are equally wide.
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

// Returns the counts of pairs of photons that arrive together, if each photon has one partner.
Eigen::VectorXd pileUpTemplate(const ScintillatorBins& bins);

// Departure of a detector from its calibration.
struct DetectorState {
    double offset = 0.0;      // keV that a line lies too high
    double gain = 0.0;        // part of its energy by which a line lies too high
    double broadening = 0.0;  // part of the FWHM by which peaks are too broad
    double power = 0.0;       // exponent of the energy by which the efficiency is off
    double absorber = 0.0;    // additional absorption exponent at 100 keV
};

struct CosineRange {
    double from;
    double to;
};

// Contribution of a photon line to the spectrum of a scintillator: full-energy peak, Compton
// continuum, photons scattered back into the detector, escape of X-rays.
class ScintillatorResponse {
  public:
    // Keeps references to bins and calibration, which must outlive it.
    ScintillatorResponse(const ScintillatorBins& bins, const Calibration& calibration,
                         const DetectorState& state)
        : bins_(bins), calibration_(calibration), state_(state) {}

    // Returns the ratio of the expected full-energy counts of a line to those of the calibrations.
    double efficiencyFactor(double energy) const;

    // Each function adds to the contents of all bins. counts: in the full-energy peak.
    void addPeak(Eigen::Ref<Eigen::VectorXd> contents, double energy, double counts) const;
    void addCompton(Eigen::VectorXd& contents, double energy, double counts) const;
    // distance: from the Compton edge, in FWHM.
    void addEdge(Eigen::VectorXd& contents, double energy, double distance, double counts) const;
    // Photons scattered several times in the detector: between edge and full energy.
    void addMultiple(Eigen::VectorXd& contents, double energy, double counts) const;
    // Photons scattered in the surroundings by angles whose cosine is in a range.
    void addBackscatter(Eigen::VectorXd& contents, double energy, const CosineRange& cosines,
                        double counts) const;
    void addStep(Eigen::VectorXd& contents, double energy, double counts) const;

  private:
    double shown(double energy) const { return energy * (1.0 + state_.gain) + state_.offset; }
    double sigma(double energy) const;
    void addBox(Eigen::VectorXd& contents, double lowest, double highest, double counts) const;

    const ScintillatorBins& bins_;
    const Calibration& calibration_;
    DetectorState state_;
};

// Returns the full-energy peak efficiency of a typical scintillator in an arbitrary unit.
double scintillatorEfficiency(double energy);

}  // namespace embedded::engines

#endif
