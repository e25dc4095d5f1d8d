#include "embedded/engines/nuclide_evidence.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace embedded::engines {

namespace {

constexpr double halfSupport = 4.0;      // gain in the sum of squares
constexpr double neighbourhood = 150.0;  // keV on each side, for the density of peaks
constexpr double minPeaks = 0.5;         // in a neighbourhood without any
constexpr double missingLine = 4.0;      // logarithm of the odds against a line that is missing
constexpr double priorOdds = 2.5;        // logarithm of the odds against a nuclide of the library
constexpr double ofHours = 1.0;          // additionally against one that lives less than a day
constexpr double ofMinutes = 2.5;        // or less than an hour, if it has a single line
constexpr double hopeless = 0.02;        // confidence
constexpr double hour = 3600.0;          // seconds

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
    LineEvidence(std::size_t nuclide, const JointFit& fit, const JointFitInput& input,
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
    double peaks() const { return peaks_; }  // shared peaks count in part
    const std::string& reason() const { return reason_; }

  private:
    double expected(std::size_t line) const {
        return fit_.activity(nuclide_) * input_.models[nuclide_].weights[line];
    }
    void addMatched(std::size_t line);
    void addMissing(std::size_t line);
    void addAgainst(double amount, const char* format, double energy);
    double improbability(const MeasuredPeak& at) const;

    std::size_t nuclide_;
    const JointFit& fit_;
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
            near += 1.0 - explained_[number];
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
    const double deviation =
        (peak.area - area) / std::hypot(peak.areaUncertainty, allowed, ofYield);
    const double factor =
        deviationFactor(deviation) * deviationFactor(energyDeviation(peak, *match.line));
    const double share = counts / area;
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

double logistic(double logarithmOfOdds) {
    return 1.0 / (1.0 + std::exp(-logarithmOfOdds));
}

}  // namespace

NuclideEvidence evidenceOf(std::size_t nuclide, JointFit& fit, const JointFitInput& input,
                           const ExplainedParts& explained, double tolerance) {
    const LineEvidence lines(nuclide, fit, input, explained, tolerance);
    double odds =
        lines.forNuclide() - lines.against() - 0.5 * input.models[nuclide].tension - priorOdds;
    const Nuclide& known = input.nuclides[nuclide];
    const bool isShortLived = known.halfLife > 0.0 && known.halfLife < 24.0 * hour &&
                              !known.parent && lines.peaks() < 1.5;
    if (isShortLived) {
        odds -= known.halfLife < hour ? ofMinutes : ofHours;
    }
    const double chance = logistic(odds);
    // The support takes much longer to compute than everything else.
    const double gain = chance < hopeless ? 0.0 : fit.gain(nuclide);
    const double support = gain * gain / (gain * gain + halfSupport * halfSupport);
    NuclideEvidence evidence{chance < hopeless ? chance : support * chance, lines.reason()};
    if (chance >= hopeless && support < 0.5) {
        evidence.reason = "other nuclides explain its peaks";
    } else if (lines.against() < 0.5 && odds < 1.0) {
        evidence.reason = isShortLived ? "single line of a short-lived nuclide" : "too few lines";
    }
    return evidence;
}

}  // namespace embedded::engines
