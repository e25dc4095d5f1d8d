// All nuclides of a library fitted to all peaks of a spectrum; identification.h says how.
#ifndef PYORV3_EMBEDDED_ENGINES_JOINT_FIT_H
#define PYORV3_EMBEDDED_ENGINES_JOINT_FIT_H

#include <Eigen/Core>
#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "embedded/engines/identification.h"
#include "embedded/engines/nonnegative_fit.h"

namespace embedded::engines {

// A line with the peak that it was found as.
struct Match {
    std::size_t nuclide;
    const ExpectedLine* line;
    double weight;  // the line's, corrected
    std::optional<std::size_t> peak;
};

// Keeps the nuclides, which must outlive it.
class JointFit {
  public:
    // efficiencyPower: of the energy, by which the weights of the lines are corrected.
    JointFit(std::vector<MeasuredPeak> peaks, std::span<const Nuclide> nuclides,
             const MatchingRules& rules, double efficiencyPower);

    // Fits with these origins of the peaks.
    void fit(const std::vector<PeakOrigin>& origins);

    const std::vector<MeasuredPeak>& peaks() const { return peaks_; }
    const std::vector<Match>& matches() const { return matches_; }
    // The area that the fit gives a peak.
    double area(std::size_t peak) const { return areas_[static_cast<Eigen::Index>(peak)]; }

    Identification identification(std::size_t nuclide) const;

    // Of each peak the nuclide that gives most of it, or "".
    std::vector<std::string> assigned(const std::vector<Identification>& found) const;

    // The second fit, for the activities of what was found.
    void measure(std::vector<Identification>& found) const;

    // The origins but for those of escape and sum peaks that the nuclides explain.
    std::vector<PeakOrigin> confirmed(std::vector<PeakOrigin> origins) const;

  private:
    struct Equations {
        Eigen::MatrixXd design;
        Eigen::VectorXd observed;
    };

    void matchLines(double efficiencyPower);
    Equations equations(const std::vector<PeakOrigin>& origins) const;
    void addEquilibrium(Equations& equations, const Eigen::VectorXd& activities) const;
    Eigen::VectorXd model(const Eigen::VectorXd& activities) const;
    double misfit(const Eigen::VectorXd& activities) const;
    double support(std::size_t nuclide) const;
    double agreement(std::size_t nuclide) const;
    double chance(std::size_t nuclide) const;
    double energyDeviation(const Match& match) const;

    std::vector<MeasuredPeak> peaks_;
    std::span<const Nuclide> nuclides_;
    MatchingRules rules_;
    std::vector<Match> matches_;
    std::vector<bool> possible_;
    Equations equations_;
    std::vector<PeakOrigin> origins_;
    NonnegativeFit fitted_;
    Eigen::VectorXd areas_;  // that the fit gives the peaks
};

}  // namespace embedded::engines

#endif
