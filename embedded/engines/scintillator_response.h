// Contribution of a photon line to the spectrum of a scintillator: full-energy peak, Compton
// continuum, photons scattered back into the detector, escape of X-rays.
#ifndef PYORV3_EMBEDDED_ENGINES_SCINTILLATOR_RESPONSE_H
#define PYORV3_EMBEDDED_ENGINES_SCINTILLATOR_RESPONSE_H

#include <Eigen/Core>

#include "embedded/engines/scintillator_bins.h"

namespace embedded::engines {

// Departure of a detector from its calibration.
struct DetectorState {
    double offset = 0.0;      // keV that a line lies too high
    double gain = 0.0;        // part of its energy by which a line lies too high
    double broadening = 0.0;  // part of the FWHM by which peaks are too broad
    double power = 0.0;       // exponent of the energy by which the efficiency is off
    double absorber = 0.0;    // additional absorption exponent at 100 keV
};

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
    void addEdge(Eigen::VectorXd& contents, double energy, double counts) const;
    void addBackscatter(Eigen::VectorXd& contents, double energy, double counts) const;
    void addStep(Eigen::VectorXd& contents, double energy, double counts) const;

  private:
    double shown(double energy) const { return energy * (1.0 + state_.gain) + state_.offset; }
    double sigma(double energy) const;

    const ScintillatorBins& bins_;
    const Calibration& calibration_;
    DetectorState state_;
};

// Returns the full-energy peak efficiency of a typical scintillator in an arbitrary unit.
double scintillatorEfficiency(double energy);

}  // namespace embedded::engines

#endif
