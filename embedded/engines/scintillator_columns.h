// What is uncertain about templates in a scintillator's spectrum, as columns of a linear model:
// each is the change of the contents for one standard deviation.
#ifndef PYORV3_EMBEDDED_ENGINES_SCINTILLATOR_COLUMNS_H
#define PYORV3_EMBEDDED_ENGINES_SCINTILLATOR_COLUMNS_H

#include <Eigen/Core>
#include <array>
#include <cstddef>
#include <span>
#include <string>
#include <vector>

#include "embedded/engines/scintillator_bins.h"
#include "embedded/engines/scintillator_response.h"

namespace embedded::engines {

struct TemplateLine {
    double energy;  // keV
    double weight;  // expected net counts for an activity of 1
};

struct TemplateNuclide {
    std::vector<TemplateLine> lines;  // by rising energy
    double rarity;                    // nuclide_rarity.h
};

inline constexpr Eigen::Index stateSize = 5;

class ScintillatorColumns {
  public:
    // Keeps references to the arguments.
    ScintillatorColumns(const ScintillatorBins& bins, const Calibration& calibration);

    // Peaks and escape peaks for an activity of 1.
    Eigen::VectorXd nuclideTemplate(const TemplateNuclide& nuclide,
                                    const DetectorState& state) const;

    // Annihilation, X-rays of surrounding materials, pile-up, the detector's own radioactivity.
    const Eigen::MatrixXd& common() const { return common_; }

    // What a nuclide with this activity makes uncertain: for each of its lines intensity, position
    // and width; for all together tails, Compton continuum and its edge, backscatter, sums, escape.
    std::vector<Eigen::VectorXd> ofNuclide(const TemplateNuclide& nuclide, double activity,
                                           const DetectorState& state) const;

    // The state's numbers in their standard deviations, and back; the numbers are limited to what
    // is plausible.
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
    Eigen::VectorXd sums(const ScintillatorResponse& response, const TemplateNuclide& nuclide,
                         std::span<const double> counts) const;
    Eigen::MatrixXd commonColumns() const;

    const ScintillatorBins& bins_;
    const Calibration& calibration_;
    std::array<double, stateSize> deviations_;
    Eigen::MatrixXd common_;
};

}  // namespace embedded::engines

#endif
