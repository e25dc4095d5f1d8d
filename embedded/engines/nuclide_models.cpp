#include "embedded/engines/nuclide_models.h"

#include <algorithm>
#include <cmath>

namespace embedded::engines {

namespace {

constexpr double minShare = 0.2;             // smallest share in a peak that is evidence
constexpr double limitDeviation = 0.3;       // of the logarithm of a detection limit
constexpr double uncertaintyOfOthers = 0.3;  // relative, of their part of a peak

// Smallest number of found lines minus missing ones for a nuclide that can be present.
constexpr double minBalance = -2.0;
constexpr double certainlyMissing = 3.0;  // times the detection limit

}  // namespace

NuclideModels::NuclideModels(std::span<const MeasuredPeak> peaks,
                             std::span<const NuclideMatches> matches, const ResponseCurve& prior,
                             double allowance)
    : peaks_(peaks),
      matches_(matches),
      prior_(prior),
      common_(prior),
      allowance_(allowance),
      patterns_(matches.size()),
      models_(matches.size()) {
    for (std::size_t nuclide = 0; nuclide < matches.size(); ++nuclide) {
        fitModel(nuclide, nullptr);
    }
}

void NuclideModels::update(const JointFit& fit, std::span<const double> trust) {
    CommonResponse response(prior_);
    for (std::size_t nuclide = 0; nuclide < matches_.size(); ++nuclide) {
        if (trust[nuclide] > 0.0) {
            auto ratios = ratiosOf(nuclide, &fit);
            std::erase_if(ratios, [](const LineRatio& ratio) { return ratio.isLimit; });
            response.add(ratios, trust[nuclide], patterns_[nuclide]);
        }
    }
    common_ = response.fit();
    for (std::size_t nuclide = 0; nuclide < matches_.size(); ++nuclide) {
        if (models_[nuclide].activity > 0.0) {
            fitModel(nuclide, &fit);
        }
    }
}

// Subtracts the parts of other nuclides in a peak, from a fit.
std::vector<LineRatio> NuclideModels::ratiosOf(std::size_t nuclide, const JointFit* fit) const {
    const auto& lines = matches_[nuclide].lines;
    std::vector<LineRatio> ratios;
    ratios.reserve(lines.size());
    for (std::size_t line = 0; line < lines.size(); ++line) {
        const LineResult& match = lines[line];
        const double weight = match.line->weight;
        if (!match.peak) {
            if (std::isfinite(match.limit)) {
                ratios.push_back(
                    {match.terms, std::log(match.limit / weight), limitDeviation, true});
            }
            continue;
        }
        const MeasuredPeak& peak = peaks_[*match.peak];
        double others = 0.0;
        if (fit != nullptr) {
            const double own = fit->activity(nuclide) * models_[nuclide].weights[line];
            others = std::max(0.0, fit->area(*match.peak) - own);
        }
        const double area = peak.area - others;
        if (area > minShare * peak.area) {
            const double counting =
                std::hypot(peak.areaUncertainty, uncertaintyOfOthers * others) / area;
            ratios.push_back({match.terms, std::log(area / weight),
                              std::hypot(counting, allowance_, match.line->weightUncertainty),
                              false});
        }
    }
    return ratios;
}

void NuclideModels::fitModel(std::size_t nuclide, const JointFit* fit) {
    NuclideModel& model = models_[nuclide];
    const NuclideMatches& matches = matches_[nuclide];
    const std::vector<LineRatio> ratios = ratiosOf(nuclide, fit);
    const auto isPeak = [](const LineRatio& ratio) { return !ratio.isLimit; };
    if (matches.keyMissing || std::ranges::none_of(ratios, isPeak)) {
        if (fit == nullptr) {
            model = {};
        }
        return;
    }
    const PatternFit pattern = fitPattern(ratios, responseOfNuclide(common_, matches.peakCount));
    patterns_[nuclide] = pattern;
    model = {std::exp(pattern.scale), {}, {}, pattern.priorMisfit};
    double balance = 0.0;
    for (const LineResult& match : matches.lines) {
        model.weights.push_back(match.line->weight * std::exp(pattern.parameters.dot(match.terms)));
        model.uncertainties.push_back(std::hypot(pattern.uncertainty(match.terms), allowance_));
        const double low =
            model.activity * model.weights.back() * std::exp(-model.uncertainties.back());
        const double expected = model.activity * model.weights.back();
        if (match.peak) {
            balance += expected > minShare * peaks_[*match.peak].area ? 1.0 : 0.0;
        } else if (low > certainlyMissing * match.limit) {
            balance -= 1.0;
        }
    }
    if (fit == nullptr && balance < minBalance) {
        model.activity = 0.0;
    }
}

}  // namespace embedded::engines
