// The response of a measurement to each nuclide, from the peaks that its lines have.
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

    // Improves the models by the shares that a fit gives the nuclides in the peaks.
    // trust: of each nuclide, 0 to 1, for the response that all have in common.
    void update(const JointFit& fit, std::span<const double> trust);

  private:
    std::vector<LineRatio> ratiosOf(std::size_t nuclide, const JointFit* fit) const;
    void fitModel(std::size_t nuclide, const JointFit* fit);

    std::span<const MeasuredPeak> peaks_;
    std::span<const NuclideMatches> matches_;
    ResponseCurve prior_;
    ResponseCurve common_;
    double allowance_;
    std::vector<LinePattern> patterns_;
    std::vector<NuclideModel> models_;
};

}  // namespace embedded::engines

#endif
