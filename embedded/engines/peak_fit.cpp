#include "embedded/engines/peak_fit.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <utility>

#include "embedded/engines/normal_equations.h"
#include "embedded/engines/peak_model.h"

namespace embedded::engines {

namespace {

constexpr double smallestVariance = 0.5;
constexpr double widthFactorVariance = 0.05 * 0.05;
constexpr double acceptedDeviations = 3.0;

constexpr int mostIterations = 40;
constexpr double firstDamping = 1e-3;
constexpr double smallestDamping = 1e-9;
constexpr double hopelessDamping = 1e6;
constexpr double convergedChange = 1e-4;  // of -2 ln(likelihood)

// One fit under way: the values of the unknowns and the equations at them.
class Fit {
  public:
    Fit(std::span<const double> contents, Region region, const PeakModel& model)
        : contents_(contents.subspan(region.first, region.count)),
          region_(region),
          model_(model),
          values_(model.estimate()) {}

    void converge();

    const std::vector<double>& values() const { return values_; }
    std::vector<double> modelContents(std::span<const double> values) const;
    double unlikelihood(std::span<const double> values) const;
    double chiSquare() const;
    NormalEquations equations() const;

  private:
    std::span<const double> contents_;
    Region region_;
    const PeakModel& model_;
    std::vector<double> values_;
};

std::vector<double> Fit::modelContents(std::span<const double> values) const {
    std::vector<double> derivatives(model_.unknowns());
    std::vector<double> contents(region_.count);
    for (std::size_t offset = 0; offset < region_.count; ++offset) {
        contents[offset] = model_.content(values, region_.first + offset, derivatives);
    }
    return contents;
}

// -2 ln of the likelihood of a content, but for a constant: its derivative by the model's content
// is 2 (model - content) / variance.
double unlikelihoodOf(double content, double model) {
    if (model < smallestVariance) {
        return (model - content) * (model - content) / smallestVariance;
    }
    const double difference = smallestVariance - content;
    return difference * difference / smallestVariance +
           2.0 * (model - smallestVariance - content * std::log(model / smallestVariance));
}

double widthUnlikelihood(std::span<const double> values) {
    const double deviation = values[PeakModel::widthFactor] - 1.0;
    return deviation * deviation / widthFactorVariance;
}

double Fit::unlikelihood(std::span<const double> values) const {
    double sum = widthUnlikelihood(values);
    const std::vector<double> model = modelContents(values);
    for (std::size_t offset = 0; offset < region_.count; ++offset) {
        sum += unlikelihoodOf(contents_[offset], model[offset]);
    }
    return sum;
}

double Fit::chiSquare() const {
    double sum = widthUnlikelihood(values_);
    const std::vector<double> model = modelContents(values_);
    for (std::size_t offset = 0; offset < region_.count; ++offset) {
        const double residual = contents_[offset] - model[offset];
        sum += residual * residual / modelVariance(model[offset]);
    }
    return sum;
}

NormalEquations Fit::equations() const {
    NormalEquations equations(model_.unknowns());
    std::vector<double> derivatives(model_.unknowns());
    for (std::size_t offset = 0; offset < region_.count; ++offset) {
        const double content = model_.content(values_, region_.first + offset, derivatives);
        equations.add(derivatives, contents_[offset] - content, 1.0 / modelVariance(content));
    }
    std::ranges::fill(derivatives, 0.0);
    derivatives[PeakModel::widthFactor] = 1.0;
    equations.add(derivatives, 1.0 - values_[PeakModel::widthFactor], 1.0 / widthFactorVariance);
    return equations;
}

// Ends where no step improves the likelihood. A fit that has not come to rest after the last
// iteration is far from describing its region, as chi-square tells.
void Fit::converge() {
    double damping = firstDamping;
    double reached = unlikelihood(values_);
    for (int iteration = 0; iteration < mostIterations && damping < hopelessDamping; ++iteration) {
        const auto step = equations().step(damping);
        if (!step) {
            damping *= 10.0;
            continue;
        }
        std::vector<double> trial(values_);
        std::ranges::transform(trial, *step, trial.begin(), std::plus<>());
        model_.restrain(trial);

        const double tried = unlikelihood(trial);
        const double change = reached - tried;
        if (!(change >= 0.0)) {
            damping *= 10.0;
            continue;
        }
        values_ = std::move(trial);
        reached = tried;
        damping = std::max(smallestDamping, damping / 10.0);
        if (change < convergedChange) {
            return;
        }
    }
}

double continuumBelow(const PeakModel& model, std::span<const double> values, Region region,
                      const FittedPeak& peak) {
    double sum = 0.0;
    for (std::size_t index = region.first; index < region.first + region.count; ++index) {
        const double distance = std::abs(static_cast<double>(index + 1) - peak.channel);
        if (distance <= peakReach * peak.width) {
            sum += std::max(0.0, model.continuum(values, index));
        }
    }
    return sum;
}

}  // namespace

double significance(const FittedPeak& peak) {
    return peak.area / peak.areaUncertainty;
}

double modelVariance(double content) {
    return std::max(content, smallestVariance);
}

bool describesRegion(const RegionFit& fit) {
    const double deviation = std::sqrt(2.0 * fit.degreesOfFreedom);
    return fit.chiSquare <= fit.degreesOfFreedom + acceptedDeviations * deviation;
}

std::optional<RegionFit> fitRegion(std::span<const double> contents, Region region,
                                   std::span<const ExpectedPeak> expected) {
    const PeakModel model(contents, region, expected);
    if (region.count < model.unknowns()) {
        return std::nullopt;
    }
    Fit fit(contents, region, model);
    fit.converge();

    RegionFit result;
    result.region = region;
    result.model = fit.modelContents(fit.values());
    const auto unknownVariances = fit.equations().variances();
    if (!unknownVariances) {
        return std::nullopt;
    }
    result.chiSquare = fit.chiSquare();
    // The width's observation counts as one more channel.
    result.degreesOfFreedom = static_cast<double>(region.count + 1 - model.unknowns());
    const double enlargement =
        describesRegion(result) ? 1.0 : std::sqrt(result.chiSquare / result.degreesOfFreedom);

    for (std::size_t number = 0; number < expected.size(); ++number) {
        FittedPeak peak{};
        peak.channel = fit.values()[PeakModel::channel(number)];
        peak.width = model.width(fit.values(), number);
        peak.area = fit.values()[PeakModel::area(number)];
        peak.areaUncertainty =
            enlargement * std::sqrt((*unknownVariances)[PeakModel::area(number)]);
        peak.continuum = continuumBelow(model, fit.values(), region, peak);
        result.peaks.push_back(peak);
    }
    return result;
}

}  // namespace embedded::engines
