#include "embedded/engines/identification.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <utility>

#include "embedded/engines/activities.h"
#include "embedded/engines/energy_correction.h"
#include "embedded/engines/joint_fit.h"
#include "embedded/engines/line_matches.h"
#include "embedded/engines/nuclide.h"

namespace embedded::engines {

namespace {

constexpr int passesOverOrigins = 4;  // until origins and responses no longer change
constexpr int corrections = 2;        // of the energies
constexpr double beyondDoubt = 0.8;   // confidence
constexpr double mainPart = 0.5;      // of a peak

// The nuclides of a library and the K X-rays of the elements, matched with the peaks of a spectrum.
class Identifier {
  public:
    Identifier(std::vector<MeasuredPeak> peaks, std::span<const Nuclide> all,
               std::size_t libraryCount, const MatchingRules& rules);

    void settle();
    const std::vector<Identification>& identifications() const { return identifications_; }
    std::vector<CertainLine> certainLines(std::span<const MeasuredPeak> measured) const;
    Findings findings() const;

  private:
    bool isElement(std::size_t nuclide) const { return nuclide >= libraryCount_; }
    double allowance() const {
        return rules_.efficiencyIsAssumed ? assumedAllowance : calibratedAllowance;
    }
    JointFitInput input() const {
        return {peaks_, origins_, all_, matches_, models_.all(), improbabilities_, allowance()};
    }
    void updateImprobabilities();
    void judge(JointFit& fit);
    std::vector<double> trust() const;
    void assignPeaks(const JointFit& fit);
    void explainPeaks(const JointFit& fit);

    std::vector<MeasuredPeak> peaks_;
    std::span<const Nuclide> all_;
    std::size_t libraryCount_;
    MatchingRules rules_;
    std::vector<NuclideMatches> matches_;
    NuclideModels models_;
    std::vector<PeakOrigin> origins_;
    std::vector<double> improbabilities_;
    std::vector<Identification> identifications_;
    std::vector<PeakSource> assigned_;
    ExplainedParts explained_;
};

Identifier::Identifier(std::vector<MeasuredPeak> peaks, std::span<const Nuclide> all,
                       std::size_t libraryCount, const MatchingRules& rules)
    : peaks_(std::move(peaks)),
      all_(all),
      libraryCount_(libraryCount),
      rules_(rules),
      matches_(matchLines(peaks_, all, rules.tolerance)),
      models_(peaks_, matches_, priorResponse(rules.efficiencyIsAssumed), allowance()),
      identifications_(all.size()),
      assigned_(peaks_.size()),
      explained_(peaks_.size(), 0.0) {}

// Origins depend on the nuclides, and responses on the shares of nuclides in the peaks.
void Identifier::settle() {
    for (int pass = 0; pass < passesOverOrigins; ++pass) {
        origins_ = originsOf(peaks_, assigned_, rules_.tolerance);
        updateImprobabilities();
        JointFit fit(input());
        judge(fit);
        explainPeaks(fit);
        judge(fit);
        assignPeaks(fit);
        if (pass + 1 < passesOverOrigins) {
            models_.update(fit, trust());
        }
    }
}

void Identifier::updateImprobabilities() {
    ExcitedElements excited;
    for (std::size_t nuclide = 0; nuclide < libraryCount_; ++nuclide) {
        if (identifications_[nuclide].confidence >= mainPart) {
            excited.addNuclide(all_[nuclide].name);
        }
    }
    improbabilities_.clear();
    for (std::size_t nuclide = 0; nuclide < all_.size(); ++nuclide) {
        improbabilities_.push_back(isElement(nuclide) ? excited.improbabilityOf(all_[nuclide].name)
                                                      : improbabilityOf(all_[nuclide]));
    }
}

void Identifier::judge(JointFit& fit) {
    for (std::size_t nuclide = 0; nuclide < all_.size(); ++nuclide) {
        Identification& result = identifications_[nuclide];
        result = {};
        double maxWeight = 0.0;
        for (const LineResult& match : matches_[nuclide].lines) {
            if (match.peak) {
                result.peaks.push_back(*match.peak);
                if (match.line->weight > maxWeight) {
                    maxWeight = match.line->weight;
                    result.energy = match.line->energy;
                }
            }
        }
        if (fit.activity(nuclide) > 0.0) {
            const NuclideEvidence evidence =
                evidenceOf(nuclide, fit, input(), explained_, rules_.tolerance);
            result.activity = fit.activity(nuclide);
            result.confidence = evidence.confidence;
            result.reason = evidence.reason;
        } else if (matches_[nuclide].keyMissing) {
            result.reason = "key line missing";
        } else if (result.peaks.empty()) {
            result.reason = "no line found";
        } else {
            result.reason = "other nuclides explain its peaks";
        }
    }
}

std::vector<double> Identifier::trust() const {
    std::vector<double> trust(identifications_.size(), 0.0);
    for (std::size_t nuclide = 0; nuclide < libraryCount_; ++nuclide) {
        const bool isShown =
            models_.all()[nuclide].activity > 0.0 && matches_[nuclide].peakCount > 1;
        trust[nuclide] = isShown ? identifications_[nuclide].confidence : 0.0;
    }
    return trust;
}

// Returns the part of each peak that other origins and nuclides certainly present explain.
void Identifier::explainPeaks(const JointFit& fit) {
    for (std::size_t peak = 0; peak < peaks_.size(); ++peak) {
        explained_[peak] = fit.otherArea(peak);
    }
    for (std::size_t nuclide = 0; nuclide < all_.size(); ++nuclide) {
        if (identifications_[nuclide].confidence < beyondDoubt || matches_[nuclide].peakCount < 2) {
            continue;
        }
        const auto& lines = matches_[nuclide].lines;
        for (std::size_t line = 0; line < lines.size(); ++line) {
            if (lines[line].peak) {
                explained_[*lines[line].peak] +=
                    fit.activity(nuclide) * models_.all()[nuclide].weights[line];
            }
        }
    }
    for (std::size_t peak = 0; peak < peaks_.size(); ++peak) {
        explained_[peak] = std::min(1.0, explained_[peak] / peaks_[peak].area);
    }
}

void Identifier::assignPeaks(const JointFit& fit) {
    assigned_.assign(peaks_.size(), {});
    std::vector<double> maxAreas(peaks_.size(), 0.0);
    for (std::size_t nuclide = 0; nuclide < all_.size(); ++nuclide) {
        const auto& lines = matches_[nuclide].lines;
        if (fit.activity(nuclide) <= 0.0 || identifications_[nuclide].confidence <
                                                (isElement(nuclide) ? 0.0 : rules_.minConfidence)) {
            continue;
        }
        for (std::size_t line = 0; line < lines.size(); ++line) {
            const auto peak = lines[line].peak;
            const double area = fit.activity(nuclide) * models_.all()[nuclide].weights[line];
            if (peak && area > maxAreas[*peak]) {
                maxAreas[*peak] = area;
                assigned_[*peak] = {all_[nuclide].name, isElement(nuclide)};
            }
        }
    }
    for (std::size_t peak = 0; peak < peaks_.size(); ++peak) {
        // A peak that the nuclides explain is not an escape or sum peak.
        const PeakOrigin origin = origins_[peak];
        if (origin != PeakOrigin::line && origin != PeakOrigin::annihilation &&
            fit.otherArea(peak) < mainPart * peaks_[peak].area) {
            origins_[peak] = PeakOrigin::line;
        }
    }
}

std::vector<CertainLine> Identifier::certainLines(std::span<const MeasuredPeak> measured) const {
    std::vector<CertainLine> certain;
    for (std::size_t nuclide = 0; nuclide < libraryCount_; ++nuclide) {
        if (identifications_[nuclide].confidence < beyondDoubt || matches_[nuclide].peakCount < 2) {
            continue;
        }
        for (const LineResult& match : matches_[nuclide].lines) {
            if (match.peak && assigned_[*match.peak].name == all_[nuclide].name &&
                origins_[*match.peak] == PeakOrigin::line) {
                const MeasuredPeak& peak = measured[*match.peak];
                certain.push_back(
                    {peak.energy, match.line->energy,
                     std::hypot(peak.energyUncertainty, match.line->energyUncertainty)});
            }
        }
    }
    return certain;
}

Findings Identifier::findings() const {
    Findings findings{{identifications_.begin(),
                       identifications_.begin() + static_cast<std::ptrdiff_t>(libraryCount_)},
                      {},
                      origins_};
    for (std::size_t peak = 0; peak < peaks_.size(); ++peak) {
        const PeakSource& source = assigned_[peak];
        findings.assigned.push_back(source.isXRay ? "" : source.name);
        if (source.isXRay) {
            findings.origins[peak] = PeakOrigin::xRay;
        }
    }
    std::vector<NuclideModel> models = models_.all();
    if (!rules_.efficiencyIsAssumed) {
        for (std::size_t nuclide = 0; nuclide < libraryCount_; ++nuclide) {
            const auto& lines = matches_[nuclide].lines;
            for (std::size_t line = 0; line < models[nuclide].weights.size(); ++line) {
                models[nuclide].weights[line] = lines[line].line->weight;
            }
        }
    }
    measureActivities(
        findings.nuclides,
        {peaks_, findings.origins, all_, matches_, models, improbabilities_, allowance()},
        rules_.minConfidence);
    return findings;
}

}  // namespace

Findings identify(std::span<const MeasuredPeak> peaks, std::span<const Nuclide> nuclides,
                  const MatchingRules& rules, std::span<const Nuclide> elements) {
    std::vector<Nuclide> all(nuclides.begin(), nuclides.end());
    all.insert(all.end(), elements.begin(), elements.end());
    std::vector<MeasuredPeak> corrected = withUncertainCalibration(peaks, rules.tolerance);
    for (int correction = 0;; ++correction) {
        Identifier identifier(corrected, all, nuclides.size(), rules);
        identifier.settle();
        const auto certain = identifier.certainLines(peaks);
        if (correction == corrections || certain.empty()) {
            return identifier.findings();
        }
        corrected = withCorrectedEnergies(peaks, certain, rules.tolerance);
    }
}

namespace {

constexpr double halfSupport = 4.0;      // gain in the sum of squares
constexpr double neighbourhood = 150.0;  // keV on each side, for the density of peaks
constexpr double minPeaks = 0.5;         // in a neighbourhood without any
constexpr double missingLine = 4.0;      // logarithm of the odds against a line that is missing
constexpr double priorOdds = 2.5;        // logarithm of the odds against a nuclide of the library
constexpr double ofHours = 1.0;          // additionally against one that lives less than a day
constexpr double ofMinutes = 2.5;        // or less than an hour, if it has a single line
constexpr double hopeless = 0.02;        // confidence

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
