#include "embedded/engines/scintillator_identification.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <iterator>
#include <utility>
#include <vector>

#include "embedded/engines/scintillator_columns.h"

namespace embedded::engines {

namespace {

constexpr int trialPasses = 3;
constexpr int settlingPasses = 4;
constexpr std::size_t trials = 5;  // nuclides that are tried for one place in a model
constexpr std::size_t maxNuclides = 12;
constexpr int maxExchanges = 30;
constexpr double price = 14.0;  // of a nuclide
constexpr double minLead = -2.0;
constexpr double softness = 4.0;  // of odds, in 2 ln(likelihood)

// Calibrations may be off by more than a peak's width.
constexpr std::array<double, 3> usualGains = {0.0, -0.015, 0.015};
constexpr double sameGain = 0.02;
constexpr std::size_t usualStarts = 3;
constexpr double nearlyAsGood = 30.0;      // in cost
constexpr double nearlyAsGoodPart = 0.02;  // of the cost saved by the best first nuclide

// Errors of the templates gain more if there are more counts.
constexpr double countsWithoutErrors = 1e5;

double confidence(double gain, double lead, double limit, double counts) {
    const double errors = std::sqrt(std::max(1.0, counts / countsWithoutErrors));
    return gain / (gain + limit * limit * errors) / (1.0 + std::exp(-lead / softness));
}

ScintillatorModel withNuclide(ScintillatorModel model, const Proposal& proposal) {
    const Eigen::Index count = model.activities.size();
    model.nuclides.push_back(proposal.nuclide);
    model.activities.conservativeResize(count + 1);
    model.activities[count] = proposal.activity;
    return model;
}

ScintillatorModel withoutNuclide(ScintillatorModel model, std::size_t position) {
    const auto index = static_cast<Eigen::Index>(position);
    const Eigen::Index rest = model.activities.size() - index - 1;
    model.nuclides.erase(model.nuclides.begin() + static_cast<std::ptrdiff_t>(position));
    model.activities.segment(index, rest) = model.activities.tail(rest).eval();
    model.activities.conservativeResize(model.activities.size() - 1);
    return model;
}

class Selector {
  public:
    Selector(const ScintillatorFit& fit, std::span<const TemplateNuclide> nuclides)
        : fit_(fit), nuclides_(nuclides) {}

    ScintillatorModel best(std::span<const double> gains, std::size_t maxStarts) const;
    Selection exchanged(ScintillatorModel model, double limit) const;

  private:
    double loss(const ScintillatorModel& from, const ScintillatorModel& to) const;
    void sortByCost(std::vector<ScintillatorModel>& models, double misfit) const;
    std::vector<ScintillatorModel> withOneMore(const ScintillatorModel& model,
                                               std::size_t excluded) const;
    std::vector<ScintillatorModel> firstModels(const ScintillatorModel& empty,
                                               std::span<const double> gains) const;
    ScintillatorModel grown(ScintillatorModel model) const;

    std::size_t none() const { return nuclides_.size(); }

    const ScintillatorFit& fit_;
    std::span<const TemplateNuclide> nuclides_;
};

// Returns the additional cost of the second model.
double Selector::loss(const ScintillatorModel& from, const ScintillatorModel& to) const {
    const double misfit = std::min(from.misfit, to.misfit);
    return cost(to, nuclides_, misfit) - cost(from, nuclides_, misfit);
}

void Selector::sortByCost(std::vector<ScintillatorModel>& models, double misfit) const {
    for (const ScintillatorModel& model : models) {
        misfit = std::min(misfit, model.misfit);
    }
    std::ranges::sort(models, std::ranges::less(), [&](const ScintillatorModel& model) {
        return cost(model, nuclides_, misfit);
    });
}

// The cheapest first.
std::vector<ScintillatorModel> Selector::withOneMore(const ScintillatorModel& model,
                                                     std::size_t excluded) const {
    std::vector<ScintillatorModel> models;
    for (const Proposal& proposal : fit_.proposals(model)) {
        if (models.size() == trials) {
            break;
        }
        if (proposal.nuclide != excluded) {
            models.push_back(withNuclide(model, proposal));
            fit_.refine(models.back(), trialPasses);
        }
    }
    sortByCost(models, model.misfit);
    if (!models.empty()) {
        fit_.refine(models.front(), settlingPasses);
    }
    return models;
}

ScintillatorModel Selector::grown(ScintillatorModel model) const {
    while (model.nuclides.size() < maxNuclides) {
        auto models = withOneMore(model, none());
        if (models.empty() || !(loss(model, models.front()) < 0.0)) {
            break;
        }
        model = std::move(models.front());
    }
    return model;
}

std::vector<ScintillatorModel> Selector::firstModels(const ScintillatorModel& empty,
                                                     std::span<const double> gains) const {
    std::vector<ScintillatorModel> models;
    for (const double gain : gains) {
        ScintillatorModel start = empty;
        start.state.gain = gain;
        std::ranges::move(withOneMore(start, none()), std::back_inserter(models));
    }
    sortByCost(models, empty.misfit);
    return models;
}

// A nuclide with many lines may replace two others, so the best first nuclide may be wrong.
ScintillatorModel Selector::best(std::span<const double> gains, std::size_t maxStarts) const {
    ScintillatorModel empty;
    fit_.refine(empty, 1);
    const std::vector<ScintillatorModel> first = firstModels(empty, gains);
    ScintillatorModel best = empty;
    std::vector<const ScintillatorModel*> started;
    for (const ScintillatorModel& model : first) {
        const bool isRepeated = std::ranges::any_of(started, [&](const ScintillatorModel* other) {
            return other->nuclides.front() == model.nuclides.front() &&
                   std::abs(other->state.gain - model.state.gain) < sameGain;
        });
        const bool isFarWorse = loss(first.front(), model) >
                                nearlyAsGood + nearlyAsGoodPart * loss(first.front(), empty);
        if (started.size() == maxStarts || isFarWorse) {
            break;
        }
        if (!isRepeated) {
            started.push_back(&model);
            ScintillatorModel larger = grown(model);
            if (loss(best, larger) < 0.0) {
                best = std::move(larger);
            }
        }
    }
    return best;
}

Selection Selector::exchanged(ScintillatorModel model, double limit) const {
    std::vector<double> confidences;
    for (int turn = 0; turn < maxExchanges && confidences.size() < model.nuclides.size(); ++turn) {
        const std::size_t position = confidences.size();
        ScintillatorModel smaller = withoutNuclide(model, position);
        fit_.refine(smaller, settlingPasses);
        auto others = withOneMore(smaller, model.nuclides[position]);
        const double gain = loss(model, smaller);
        const double lead = others.empty() ? gain : loss(model, others.front());
        if (gain < 0.0 || lead < minLead) {
            model = gain < 0.0 ? std::move(smaller) : std::move(others.front());
            confidences.clear();
        } else {
            confidences.push_back(confidence(gain + price, lead, limit, fit_.counts()));
        }
    }
    confidences.resize(model.nuclides.size());
    return {std::move(model), std::move(confidences)};
}

}  // namespace

double cost(const ScintillatorModel& model, std::span<const TemplateNuclide> nuclides,
            double misfit) {
    double sum = model.objective / misfit;
    for (const std::size_t nuclide : model.nuclides) {
        sum += price + nuclides[nuclide].rarity;
    }
    return sum;
}

Selection selectNuclides(const ScintillatorFit& fit, std::span<const TemplateNuclide> nuclides,
                         double limit) {
    const Selector selector(fit, nuclides);
    return selector.exchanged(selector.best(usualGains, usualStarts), limit);
}

ScintillatorModel bestModel(const ScintillatorFit& fit, std::span<const TemplateNuclide> nuclides,
                            std::span<const double> gains, std::size_t maxStarts) {
    return Selector(fit, nuclides).best(gains, maxStarts);
}

namespace {

constexpr double offsetDeviation = 8.0;  // keV
constexpr double gainDeviation = 0.033;
constexpr double broadeningDeviation = 0.08;

// Distance of the gains at which the search starts, in the resolution.
constexpr double gainStep = 0.4;
constexpr double maxGain = 0.085;

constexpr std::size_t maxStarts = 8;
constexpr double correctionPrice = 6.0;

constexpr double strongPartOfLine = 0.2;  // of the strongest line
constexpr double minShift = 0.05;         // FWHM; the identification tolerates smaller ones

std::vector<double> startGains(const Calibration& calibration) {
    const double step = gainStep * resolution(calibration);
    std::vector<double> gains = {0.0};
    const int steps = static_cast<int>(maxGain / step);
    for (int number = 1; number <= steps; ++number) {
        gains.push_back(number * step);
        gains.push_back(-number * step);
    }
    return gains;
}

std::vector<double> strongLines(const ScintillatorModel& model,
                                std::span<const TemplateNuclide> nuclides) {
    std::vector<double> energies;
    for (const std::size_t nuclide : model.nuclides) {
        const auto& lines = nuclides[nuclide].lines;
        const double strongest = std::ranges::max(lines, {}, &TemplateLine::weight).weight;
        for (const TemplateLine& line : lines) {
            if (line.weight >= strongPartOfLine * strongest) {
                energies.push_back(line.energy);
            }
        }
    }
    return energies;
}

std::vector<TemplateNuclide> everydayNuclides(std::span<const TemplateNuclide> nuclides) {
    std::vector<TemplateNuclide> everyday;
    std::ranges::copy_if(nuclides, std::back_inserter(everyday),
                         [](const TemplateNuclide& one) { return !(one.rarity > 0.0); });
    return everyday;
}

// Returns no correction if the identification tolerates the departure.
EnergyCorrection correctionOf(const DetectorState& state, const std::vector<double>& lines,
                              const Calibration& calibration) {
    const double gain = 1.0 + state.gain;
    const EnergyRelation relation = {-state.offset / gain, 1.0 / gain};
    const bool isSmall = std::ranges::all_of(lines, [&](double energy) {
        return std::abs(relation.positionOf(energy) - energy) <
               minShift * widthAtEnergy(calibration, energy);
    });
    return isSmall ? EnergyCorrection{} : EnergyCorrection{relation, lines.size()};
}

}  // namespace

EnergyCorrection scintillatorCorrection(const Spectrum& spectrum, const Calibration& calibration,
                                        std::span<const Nuclide> nuclides) {
    const std::vector<TemplateNuclide> all = scintillatorTemplates(nuclides, calibration).nuclides;
    const std::vector<TemplateNuclide> everyday = everydayNuclides(all);
    const ScintillatorBins bins = scintillatorBins(spectrum, calibration);
    if (bins.size() == 0 || everyday.empty()) {
        return {};
    }
    const ScintillatorFit wide(bins, calibration,
                               {offsetDeviation, gainDeviation, broadeningDeviation}, everyday);
    const ScintillatorModel model = bestModel(wide, everyday, startGains(calibration), maxStarts);
    if (model.nuclides.empty()) {
        return {};
    }
    const ScintillatorFit narrow(bins, calibration, usualDeviations(), all);
    const ScintillatorModel unchanged = bestModel(narrow, all, usualGains, usualStarts);
    const double misfit = std::min(model.misfit, unchanged.misfit);
    if (cost(model, everyday, misfit) + correctionPrice >= cost(unchanged, all, misfit)) {
        return {};
    }
    return correctionOf(model.state, strongLines(model, everyday), calibration);
}

namespace {

constexpr double assignedPart = 0.2;  // of a peak's area

double shownEnergy(const DetectorState& state, double energy) {
    return energy * (1.0 + state.gain) + state.offset;
}

// Returns the counts of the nuclide in a peak of the spectrum, by its distance from the lines.
double countsAt(const TemplateNuclide& nuclide, double activity, const ScintillatorModel& model,
                const Calibration& calibration, double energy) {
    double sum = 0.0;
    for (const TemplateLine& line : nuclide.lines) {
        const double sigma = widthAtEnergy(calibration, line.energy) / fwhmPerSigma;
        const double distance = (energy - shownEnergy(model.state, line.energy)) / sigma;
        sum += activity * line.weight * std::exp(-0.5 * distance * distance);
    }
    return sum;
}

PeakOrigin originOf(const MeasuredPeak& peak, bool isAssigned, const Calibration& calibration) {
    const double distance = std::abs(peak.energy - electronMass);
    const bool isNear = distance < 0.25 * widthAtEnergy(calibration, electronMass);
    return isNear && !isAssigned ? PeakOrigin::annihilation : PeakOrigin::line;
}

Identification identification(const TemplateNuclide& nuclide, const Selection& selection,
                              std::size_t position) {
    const auto index = static_cast<Eigen::Index>(position);
    Identification result{};
    result.confidence = selection.confidences[position];
    result.activity = selection.model.activities[index];
    result.uncertainty = std::sqrt(selection.model.variances[index] * selection.model.misfit);
    result.energy = std::ranges::max(nuclide.lines, {}, &TemplateLine::weight).energy;
    return result;
}

void assignPeaks(Findings& findings, const Selection& selection,
                 const ScintillatorTemplates& library, std::span<const MeasuredPeak> peaks,
                 std::span<const Nuclide> nuclides, const Calibration& calibration,
                 double minConfidence) {
    for (std::size_t number = 0; number < peaks.size(); ++number) {
        double maxCounts = assignedPart * peaks[number].area;
        for (std::size_t position = 0; position < selection.model.nuclides.size(); ++position) {
            const std::size_t candidate = selection.model.nuclides[position];
            const double counts =
                countsAt(library.nuclides[candidate],
                         selection.model.activities[static_cast<Eigen::Index>(position)],
                         selection.model, calibration, peaks[number].energy);
            const std::size_t nuclide = library.numbers[candidate];
            if (selection.confidences[position] >= minConfidence && counts > maxCounts) {
                maxCounts = counts;
                findings.assigned[number] = nuclides[nuclide].name;
            }
        }
        for (std::size_t nuclide = 0; nuclide < nuclides.size(); ++nuclide) {
            if (findings.assigned[number] == nuclides[nuclide].name) {
                findings.nuclides[nuclide].peaks.push_back(number);
            }
        }
        findings.origins[number] =
            originOf(peaks[number], !findings.assigned[number].empty(), calibration);
    }
}

}  // namespace

Findings identifyInScintillator(const Spectrum& spectrum, const Calibration& calibration,
                                std::span<const MeasuredPeak> peaks,
                                std::span<const Nuclide> nuclides, const MatchingRules& rules,
                                double limit) {
    Findings findings;
    findings.nuclides.resize(nuclides.size());
    findings.assigned.resize(peaks.size());
    findings.origins.resize(peaks.size(), PeakOrigin::line);
    const ScintillatorTemplates library = scintillatorTemplates(nuclides, calibration);
    const ScintillatorBins bins = scintillatorBins(spectrum, calibration);
    if (bins.size() == 0 || library.nuclides.empty()) {
        return findings;
    }
    const ScintillatorFit fit(bins, calibration, usualDeviations(), library.nuclides);
    const Selection selection = selectNuclides(fit, library.nuclides, limit);
    for (std::size_t position = 0; position < selection.model.nuclides.size(); ++position) {
        const std::size_t candidate = selection.model.nuclides[position];
        findings.nuclides[library.numbers[candidate]] =
            identification(library.nuclides[candidate], selection, position);
    }
    assignPeaks(findings, selection, library, peaks, nuclides, calibration, rules.minConfidence);
    return findings;
}

}  // namespace embedded::engines
