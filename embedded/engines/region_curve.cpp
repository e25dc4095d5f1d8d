#include "embedded/engines/region_curve.h"

#include <algorithm>
#include <cstddef>

#include "embedded/engines/likelihood_fit.h"

namespace embedded::engines {

namespace {

double chiSquareOfChannels(const Spectrum& spectrum, const RegionFit& fit) {
    double sum = 0.0;
    for (std::size_t number = 0; number < fit.model.size(); ++number) {
        const std::size_t index = fit.region.first + number;
        const double residual = spectrum.contents[index] - fit.model[number];
        const double variance = fit.model[number] + spectrum.excessAt(index);
        sum += residual * residual / std::max(variance, minVarianceOfChiSquare);
    }
    return sum;
}

}  // namespace

RegionCurve curveOf(const Spectrum& spectrum, const RegionFit& fit) {
    PeakModel model = modelOf(spectrum, fit.region, fit.expected, fit.shape);
    model.estimate(spectrum.contents);  // decides which peak has the step
    const std::size_t strongest = model.strongest();
    const auto value = [&fit](PeakModel::Unknown unknown) { return fit.values[unknown]; };
    return {.level = value(PeakModel::level),
            .slope = value(PeakModel::slope),
            .curvature = value(PeakModel::curvature),
            .step = {.height = value(PeakModel::step),
                     .channel = fit.values[PeakModel::channel(strongest)],
                     .width = model.width(fit.values, strongest)},
            .edge = {.height = value(PeakModel::edgeHeight),
                     .channel = value(PeakModel::edgeChannel),
                     .width = value(PeakModel::edgeWidth)},
            .left = {value(PeakModel::leftFraction), value(PeakModel::leftLength)},
            .right = {value(PeakModel::rightFraction), value(PeakModel::rightLength)},
            .drift = value(PeakModel::drift),
            .degreesOfFreedom = fit.degreesOfFreedom,
            .chiSquareOfShape = fit.chiSquare - chiSquareOfChannels(spectrum, fit),
            .unreported = {}};
}

}  // namespace embedded::engines
