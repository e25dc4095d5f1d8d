// The nuclides of a library as templates for the spectrum of a scintillator, and the uncertainties
// of templates as columns of a linear model. Each column is the change of the contents for one
// standard deviation.
#ifndef PYORV3_EMBEDDED_ENGINES_SCINTILLATOR_COLUMNS_H
#define PYORV3_EMBEDDED_ENGINES_SCINTILLATOR_COLUMNS_H

#include <Eigen/Core>
#include <array>
#include <cstddef>
#include <span>
#include <string>
#include <vector>

#include "embedded/engines/calibration.h"
#include "embedded/engines/nuclide.h"
#include "embedded/engines/scintillator_response.h"

namespace embedded::engines {

struct TemplateLine {
    double energy;  // keV
    double weight;  // expected net counts for an activity of 1
};

struct TemplateNuclide {
    std::vector<TemplateLine> lines;               // by rising energy
    std::vector<std::vector<TemplateLine>> xRays;  // of each element that the decay excites
    double rarity;                                 // as `rarity` in nuclide.h
};

inline constexpr Eigen::Index stateSize = 5;

// Standard deviations of an energy and width calibration. The detector state may depart by three.
struct CalibrationDeviations {
    double offset;      // keV
    double gain;        // relative
    double broadening;  // of the width, relative
};

// Returns the deviations of a calibration that is known to be about right.
CalibrationDeviations usualDeviations();

class ScintillatorColumns {
  public:
    // Keeps references to bins and calibration.
    ScintillatorColumns(const ScintillatorBins& bins, const Calibration& calibration,
                        const CalibrationDeviations& deviations);

    // Returns the peaks and escape peaks for an activity of 1.
    Eigen::VectorXd nuclideTemplate(const TemplateNuclide& nuclide,
                                    const DetectorState& state) const;

    // Annihilation, X-rays of surrounding materials, pile-up, the detector's own radioactivity.
    const Eigen::MatrixXd& common() const { return common_; }

    // Returns the uncertainties due to a nuclide with this activity: intensity, position and width
    // of each line; tails, Compton continuum and edge, backscatter, sums and escape of all lines
    // together.
    std::vector<Eigen::VectorXd> ofNuclide(const TemplateNuclide& nuclide, double activity,
                                           const DetectorState& state) const;

    // Conversion of the state to standard deviations and back. limitedState limits the values to a
    // plausible range.
    static constexpr std::array<double DetectorState::*, stateSize> stateMembers = {
        &DetectorState::offset, &DetectorState::gain, &DetectorState::broadening,
        &DetectorState::power, &DetectorState::absorber};
    Eigen::VectorXd inDeviations(const DetectorState& state) const;
    DetectorState limitedState(const Eigen::VectorXd& inDeviations) const;
    double deviation(Eigen::Index member) const {
        return deviations_[static_cast<std::size_t>(member)];
    }

  private:
    struct Shapes;
    void addLine(Shapes& shapes, const ScintillatorResponse& response, double energy,
                 double counts) const;
    std::vector<Eigen::VectorXd> sums(const ScintillatorResponse& response,
                                      const TemplateNuclide& nuclide,
                                      std::span<const double> counts) const;
    Eigen::MatrixXd commonColumns() const;

    const ScintillatorBins& bins_;
    const Calibration& calibration_;
    std::array<double, stateSize> deviations_;
    Eigen::MatrixXd common_;
};

// The nuclides of a library as templates for the spectrum of a scintillator.
struct ScintillatorTemplates {
    std::vector<TemplateNuclide> nuclides;
    std::vector<std::size_t> numbers;  // of these nuclides in the library
};

// Leaves out nuclides without usable lines and those of the detector's own radioactivity.
ScintillatorTemplates scintillatorTemplates(std::span<const Nuclide> nuclides,
                                            const Calibration& calibration);

}  // namespace embedded::engines

#endif
