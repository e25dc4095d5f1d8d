#include "embedded/engines/identification.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <map>
#include <utility>

#include "embedded/engines/activities.h"
#include "embedded/engines/calibration.h"
#include "embedded/engines/energy_correction.h"
#include "embedded/engines/joint_fit.h"
#include "embedded/engines/line_matches.h"
#include "embedded/engines/nuclide.h"
#include "embedded/engines/nuclide_evidence.h"

namespace embedded::engines {

namespace {

constexpr int passesOverOrigins = 4;  // until origins and responses no longer change
constexpr int corrections = 2;        // of the energies
constexpr double beyondDoubt = 0.8;   // confidence
constexpr double mainPart = 0.5;      // of a peak

// Cost in the sum of squares of an activity that is greater by a factor of e.
constexpr double costOfActivityFactor = 0.4;

// The largest part of a peak that the X-rays of an element may have, 0 to 1.
struct XRayPart {
    std::size_t element;
    std::size_t peak;
    double part;
};

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
    double costOfActivity(std::size_t nuclide) const;
    void updateXRays();
    std::vector<double> xRayParts(std::size_t nuclide) const;
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
    double maxWeight_ = 0.0;  // of all lines of the library
    std::vector<PeakOrigin> origins_;
    std::vector<double> improbabilities_;
    std::vector<Identification> identifications_;
    std::vector<PeakSource> assigned_;
    std::vector<double> explained_;  // part of each peak
    ExcitedElements excited_;
    std::vector<XRayPart> xRays_;
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
      explained_(peaks_.size(), 0.0) {
    for (std::size_t nuclide = 0; nuclide < libraryCount_; ++nuclide) {
        for (const LineResult& match : matches_[nuclide].lines) {
            maxWeight_ = std::max(maxWeight_, match.line->weight);
        }
    }
}

// Origins depend on the nuclides, and responses on the shares of nuclides in the peaks.
void Identifier::settle() {
    for (int pass = 0; pass < passesOverOrigins; ++pass) {
        origins_ = originsOf(peaks_, assigned_, rules_.tolerance);
        updateImprobabilities();
        updateXRays();
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
    excited_ = {};
    for (std::size_t nuclide = 0; nuclide < libraryCount_; ++nuclide) {
        if (identifications_[nuclide].confidence >= mainPart) {
            excited_.addNuclide(all_[nuclide].name);
        }
    }
    improbabilities_.clear();
    for (std::size_t nuclide = 0; nuclide < all_.size(); ++nuclide) {
        improbabilities_.push_back(isElement(nuclide)
                                       ? excited_.improbabilityOf(all_[nuclide].name)
                                       : improbabilityOf(all_[nuclide]) + costOfActivity(nuclide));
    }
}

// Of nuclides that explain the same peaks, those that need less activity are more probable.
double Identifier::costOfActivity(std::size_t nuclide) const {
    double maxWeight = 0.0;
    for (const LineResult& match : matches_[nuclide].lines) {
        maxWeight = match.peak ? std::max(maxWeight, match.line->weight) : maxWeight;
    }
    return maxWeight > 0.0 ? costOfActivityFactor * std::log(maxWeight_ / maxWeight) : 0.0;
}

// The weakest line of an element, or a missing one, limits its activity. Only the intensities of
// the element count: a response fitted to its peaks would depend on the nuclides that share them.
void Identifier::updateXRays() {
    xRays_.clear();
    for (std::size_t element = libraryCount_; element < all_.size(); ++element) {
        std::map<std::size_t, double> ofPeaks;
        double activity = std::numeric_limits<double>::infinity();
        for (const LineResult& match : matches_[element].lines) {
            if (match.peak) {
                ofPeaks[*match.peak] += match.line->weight;
            } else {
                activity = std::min(activity, match.limit / match.line->weight);
            }
        }
        for (const auto& [peak, weight] : ofPeaks) {
            activity = std::min(activity, (1.0 + allowance()) * peaks_[peak].area / weight);
        }
        for (const auto& [peak, weight] : ofPeaks) {
            xRays_.push_back({element, peak, std::min(1.0, activity * weight / peaks_[peak].area)});
        }
    }
}

// Leaves out X-rays that only the nuclide itself would excite.
std::vector<double> Identifier::xRayParts(std::size_t nuclide) const {
    std::vector<double> parts(peaks_.size(), 0.0);
    for (const auto& [element, peak, part] : xRays_) {
        if (!isElement(nuclide) &&
            excited_.isExpectedWithout(all_[nuclide].name, all_[element].name)) {
            parts[peak] = std::max(parts[peak], part);
        }
    }
    return parts;
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
            const NuclideEvidence evidence = evidenceOf(
                nuclide, fit, input(), {explained_, xRayParts(nuclide)}, rules_.tolerance);
            result.activity = fit.activity(nuclide);
            result.confidence = evidence.confidence;
            result.reason = evidence.reason;
        } else if (models_.all()[nuclide].keyMissing) {
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

// Removes the annihilation line of nuclides with other lines: how many positrons annihilate near
// the source is unknown, and other sources contribute to the peak.
void removeAnnihilation(std::vector<ExpectedLine>& lines) {
    constexpr double sameLine = 0.1;  // keV
    const auto isOther = [](const ExpectedLine& line) {
        return std::abs(line.energy - electronMass) >= sameLine;
    };
    if (std::ranges::any_of(lines, isOther)) {
        std::erase_if(lines, std::not_fn(isOther));
    }
}

}  // namespace

Findings identify(std::span<const MeasuredPeak> peaks, std::span<const Nuclide> nuclides,
                  const MatchingRules& rules, std::span<const Nuclide> elements) {
    std::vector<Nuclide> all(nuclides.begin(), nuclides.end());
    all.insert(all.end(), elements.begin(), elements.end());
    for (Nuclide& nuclide : all) {
        removeAnnihilation(nuclide.lines);
    }
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

}  // namespace embedded::engines
