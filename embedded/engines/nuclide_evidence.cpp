#include "embedded/engines/nuclide_evidence.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace embedded::engines {

namespace {

constexpr double halfSupport = 4.0;      // gain in the sum of squares
constexpr double neighbourhood = 150.0;  // keV on each side, for the density of peaks
constexpr double minPeaks = 0.5;         // in a neighbourhood without any
constexpr double certainExcess = 2.0;    // standard deviations
constexpr double missingLine = 4.0;      // logarithm of the odds against a line that is missing
constexpr double priorOdds = 2.5;        // logarithm of the odds against a nuclide of the library
constexpr double ofHours = 1.0;          // additionally against one that lives less than a day
constexpr double ofMinutes = 2.5;        // or less than an hour, if it has a single line
constexpr double hopeless = 0.02;        // confidence

constexpr double clearSupport = 0.8;  // not worth mentioning

// A nuclide that replaces another one: the part of its activity that it has beside it, and the
// smallest part of the counts that it takes over.
constexpr double newPart = 0.3;
constexpr double minTaken = 0.05;
constexpr double minAllTaken = 0.5;  // part that all of them take over

bool isShortLived(const Nuclide& nuclide) {
    return nuclide.halfLife > 0.0 && nuclide.halfLife < 24.0 * hour && !nuclide.parent;
}

double deviationFactor(double deviation) {
    const double beyond = std::max(0.0, std::abs(deviation) - 1.0);
    return std::exp(-0.5 * beyond * beyond);
}

std::string lineText(const char* format, double energy) {
    char text[64];
    static_cast<void>(std::snprintf(text, sizeof text, format, energy));
    return text;
}

// Adds up the evidence of the lines of a nuclide, in logarithms of odds.
class LineEvidence {
  public:
    LineEvidence(std::size_t nuclide, const Explanation& fit, const JointFitInput& input,
                 const ExplainedParts& explained, double tolerance)
        : nuclide_(nuclide),
          fit_(fit),
          input_(input),
          explained_(explained),
          tolerance_(tolerance) {
        const auto& lines = input.matches[nuclide].lines;
        for (std::size_t line = 0; line < lines.size(); ++line) {
            lines[line].peak ? addMatched(line) : addMissing(line);
        }
    }

    // Less, down to 30 %, the more of its lines are missing, each as far as it can be seen.
    double forNuclide() const {
        return visibleMatched_ > 0.0
                   ? for_ * (1.0 - 0.7 * visibleMissing_ / (visibleMatched_ + visibleMissing_))
                   : 0.0;
    }
    double against() const { return against_; }
    bool isSingle() const { return peaks_ < 1.5; }  // shared peaks count in part
    // Returns the logarithm of the odds for the nuclide.
    double odds() const;
    const std::string& reason() const { return reason_; }

  private:
    double expected(std::size_t line) const {
        return fit_.activities[nuclide_] * input_.models[nuclide_].weights[line];
    }
    void addMatched(std::size_t line);
    void addMissing(std::size_t line);
    void addAgainst(double amount, const char* format, double energy);
    double improbability(const MeasuredPeak& at) const;

    std::size_t nuclide_;
    const Explanation& fit_;
    const JointFitInput& input_;
    const ExplainedParts& explained_;
    double tolerance_;
    double for_ = 0.0;
    double against_ = 0.0;
    double peaks_ = 0.0;
    double visibleMatched_ = 0.0;
    double visibleMissing_ = 0.0;
    double worst_ = 0.0;
    std::string reason_;
};

void LineEvidence::addAgainst(double amount, const char* format, double energy) {
    against_ += amount;
    if (amount > worst_) {
        worst_ = amount;
        reason_ = lineText(format, energy);
    }
}

// Returns the logarithm of the improbability of an otherwise unexplained peak there by chance.
double LineEvidence::improbability(const MeasuredPeak& at) const {
    double near = minPeaks;
    for (std::size_t number = 0; number < input_.peaks.size(); ++number) {
        if (std::abs(input_.peaks[number].energy - at.energy) <= neighbourhood) {
            near += 1.0 - explained_.beyondDoubt[number];
        }
    }
    const double window = std::min(tolerance_, 3.0 * at.energyUncertainty);
    return -std::log(-std::expm1(-window * near / neighbourhood));
}

void LineEvidence::addMatched(std::size_t line) {
    const LineResult& match = input_.matches[nuclide_].lines[line];
    const MeasuredPeak& peak = input_.peaks[*match.peak];
    const double area = fit_.area(*match.peak);
    const double counts = expected(line);
    if (area <= 0.0 || counts <= 0.0) {
        return;
    }
    // The allowance is symmetric in the logarithm of the factor.
    const double allowed = input_.allowance * std::sqrt(area * peak.area);
    const double ofYield = counts * match.line->weightUncertainty;
    const double uncertainty = std::hypot(peak.areaUncertainty, allowed, ofYield);
    const double deviation = (peak.area - area) / uncertainty;
    const double factor =
        deviationFactor(deviation) * deviationFactor(energyDeviation(peak, *match.line));
    // Counts that certainly exceed those of all nuclides have another source.
    const double whole = std::max(area, peak.area - certainExcess * uncertainty);
    const double share = counts / whole * (1.0 - explained_.xRays[*match.peak]);
    for_ += share * factor * improbability(peak);
    peaks_ += share;
    visibleMatched_ += share * counts / (counts + match.line->detectionLimit);
    addAgainst(share * (1.0 - factor) * missingLine, "area or energy at %.1f keV does not fit",
               match.line->energy);
}

void LineEvidence::addMissing(std::size_t line) {
    const LineResult& match = input_.matches[nuclide_].lines[line];
    const double counts = expected(line);
    const double low = counts * std::exp(-input_.models[nuclide_].uncertainties[line]);
    const double factor = deviationFactor(2.0 * low / match.limit);
    const double visible = counts / (counts + match.limit);
    visibleMissing_ += low / (low + match.limit);
    addAgainst(visible * (1.0 - factor) * missingLine, "no peak at %.1f keV", match.line->energy);
}

double LineEvidence::odds() const {
    const Nuclide& nuclide = input_.nuclides[nuclide_];
    double odds = forNuclide() - against() - 0.5 * input_.models[nuclide_].tension - priorOdds;
    if (isSingle() && isShortLived(nuclide)) {
        odds -= nuclide.halfLife < hour ? ofMinutes : ofHours;
    }
    return odds;
}

double logistic(double logarithmOfOdds) {
    return 1.0 / (1.0 + std::exp(-logarithmOfOdds));
}

// Returns the counts of a nuclide in the peaks of another one.
double countsIn(const NuclideMatches& other, const Explanation& fit, const JointFitInput& input,
                std::size_t nuclide) {
    double counts = 0.0;
    const auto& lines = input.matches[nuclide].lines;
    for (std::size_t line = 0; line < lines.size(); ++line) {
        const auto samePeak = [&](const LineResult& match) {
            return match.peak && match.peak == lines[line].peak;
        };
        if (lines[line].peak && std::ranges::any_of(other.lines, samePeak)) {
            counts += fit.activities[nuclide] * input.models[nuclide].weights[line];
        }
    }
    return counts;
}

// Returns the probability that the nuclide, not those that would replace it, explains its peaks.
double supportOf(std::size_t nuclide, double chance, JointFit& fit, const JointFitInput& input,
                 const ExplainedParts& explained, double tolerance) {
    const auto& [gain, other] = fit.without(nuclide);
    const NuclideMatches& own = input.matches[nuclide];
    const double counts = countsIn(own, fit.explanation(), input, nuclide);
    double taken = 0.0;
    double rivals = 0.0;
    for (std::size_t rival = 0; rival < input.nuclides.size(); ++rival) {
        if (other.activities[rival] <= 0.0 || rival == nuclide ||
            fit.activity(rival) > newPart * other.activities[rival]) {
            continue;
        }
        const double part = countsIn(own, other, input, rival) / counts;
        if (part > minTaken) {
            const LineEvidence lines(rival, other, input, explained, tolerance);
            taken += part;
            rivals += part * logistic(lines.odds());
        }
    }
    const double needed = gain * gain / (gain * gain + halfSupport * halfSupport);
    return taken < minAllTaken
               ? needed
               : std::max(needed, chance / (chance + rivals / taken * std::exp(-0.5 * gain)));
}

}  // namespace

NuclideEvidence evidenceOf(std::size_t nuclide, JointFit& fit, const JointFitInput& input,
                           const ExplainedParts& explained, double tolerance) {
    const LineEvidence lines(nuclide, fit.explanation(), input, explained, tolerance);
    const double odds = lines.odds();
    const double chance = logistic(odds);
    // The support takes much longer to compute than everything else.
    const double support =
        chance < hopeless ? 1.0 : supportOf(nuclide, chance, fit, input, explained, tolerance);
    NuclideEvidence evidence{support * chance, lines.reason()};
    if (support < std::min(chance, clearSupport)) {
        evidence.reason = "other nuclides explain its peaks";
    } else if (lines.against() < 0.5 && odds < 1.0) {
        evidence.reason = lines.isSingle() && isShortLived(input.nuclides[nuclide])
                              ? "single line of a short-lived nuclide"
                              : "too few lines";
    }
    return evidence;
}

}  // namespace embedded::engines
