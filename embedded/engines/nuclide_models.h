// Response of the measurement to each nuclide, fitted to the peaks of its lines.
#ifndef PYORV3_EMBEDDED_ENGINES_NUCLIDE_MODELS_H
#define PYORV3_EMBEDDED_ENGINES_NUCLIDE_MODELS_H

#include <span>
#include <vector>

#include "embedded/engines/joint_fit.h"
#include "embedded/engines/response_curve.h"

namespace embedded::engines {

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
