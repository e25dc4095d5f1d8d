// Joint fit of all nuclides of a library to all peaks of a spectrum, and the response that it
// assumes for each nuclide. See docs/engine.md, "How the identification works".
#ifndef PYORV3_EMBEDDED_ENGINES_JOINT_FIT_H
#define PYORV3_EMBEDDED_ENGINES_JOINT_FIT_H

#include <Eigen/Core>
#include <cstddef>
#include <optional>
#include <span>
#include <vector>

#include "embedded/engines/line_matches.h"
#include "embedded/engines/nonnegative_fit.h"
#include "embedded/engines/nuclide.h"
#include "embedded/engines/response_curve.h"

namespace embedded::engines {

// Relative uncertainty of the area of each line beside counting statistics, from coincidence
// summing and the scatter of an efficiency.
inline constexpr double calibratedAllowance = 0.15;
inline constexpr double assumedAllowance = 0.25;

// A nuclide with its response: the expected counts of its lines for an activity of 1.
struct NuclideModel {
    double activity = 0.0;              // from its own lines alone; 0 if it cannot be present
    std::vector<double> weights;        // of each line of its matches
    std::vector<double> uncertainties;  // of the logarithms of the weights
    double tension = 0.0;     // sum of squares by which its response differs from the common one
    bool keyMissing = false;  // a key line should be visible and has no peak
};

// Input of a joint fit. The spans must outlive the fit.
struct JointFitInput {
    std::span<const MeasuredPeak> peaks;
    std::span<const PeakOrigin> origins;  // of each peak
    std::span<const Nuclide> nuclides;
    std::span<const NuclideMatches> matches;  // of each nuclide
    std::span<const NuclideModel> models;     // of each nuclide
    // Cost of the presence of each nuclide in the sum of squares.
    std::span<const double> improbabilities;
    double allowance;
};

// Activities of all nuclides and the areas of the peaks that follow from them.
struct Explanation {
    std::vector<double> activities;
    std::vector<double> areasOfNuclides;
    std::vector<double> otherAreas;  // from the other origin of each peak

    double area(std::size_t peak) const { return areasOfNuclides[peak] + otherAreas[peak]; }
};

class JointFit {
  public:
    explicit JointFit(const JointFitInput& input);

    const Explanation& explanation() const { return explanation_; }
    double activity(std::size_t nuclide) const { return explanation_.activities[nuclide]; }
    double otherArea(std::size_t peak) const { return explanation_.otherAreas[peak]; }
    double area(std::size_t peak) const { return explanation_.area(peak); }

    // The explanation without one of the nuclides.
    struct Alternative {
        double gain;  // rise of the sum of squares, not negative
        Explanation explanation;
    };
    const Alternative& without(std::size_t nuclide);

  private:
    void chooseColumns();
    void addAreas();
    Eigen::VectorXd partsOfActivities() const;
    void setPenalties(const Eigen::VectorXd& parts);
    void addEquilibrium();
    void removeShortLived();
    Explanation explained(const Eigen::VectorXd& values) const;
    double misfit(const Eigen::VectorXd& values, const Explanation& explanation) const;

    JointFitInput input_;
    std::vector<std::size_t> columns_;                        // the nuclide of each column
    std::vector<std::optional<Eigen::Index>> columnOf_;       // of each nuclide
    std::vector<std::optional<Eigen::Index>> otherColumnOf_;  // of each peak with another origin
    NonnegativeProblem problem_;
    std::optional<NonnegativeFit> fit_;
    Eigen::VectorXd values_;
    double misfit_ = 0.0;
    std::vector<std::optional<Alternative>> alternatives_;  // of each nuclide, if needed
    Explanation explanation_;
};

// Response of the measurement to each nuclide, fitted to the peaks of its lines.
class NuclideModels {
  public:
    NuclideModels(std::span<const MeasuredPeak> peaks, std::span<const NuclideMatches> matches,
                  const ResponseCurve& prior, double allowance);

    const std::vector<NuclideModel>& all() const { return models_; }

    // Improves the models with the shares of the nuclides in the peaks of a fit.
    // trust: weight of each nuclide in the common response, 0 to 1.
    void update(const JointFit& fit, std::span<const double> trust);

  private:
    std::vector<LineRatio> ratiosOf(std::size_t nuclide, const JointFit* fit) const;
    void fitModel(std::size_t nuclide, const JointFit* fit);

    std::span<const MeasuredPeak> peaks_;
    std::span<const NuclideMatches> matches_;
    ResponseCurve prior_;
    ResponseCurve common_;
    double allowance_;
    std::vector<PatternFit> patterns_;
    std::vector<NuclideModel> models_;
};

}  // namespace embedded::engines

#endif
