#include "embedded/engines/line_observations.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <map>
#include <utility>

#include "embedded/engines/energy_correction.h"

namespace embedded::engines {

Eigen::VectorXd EfficiencyUncertainty::deviations(double energy) const {
    if (factor.size() == 0) {
        return Eigen::VectorXd::Constant(1, relative);
    }
    Eigen::VectorXd powers(factor.rows());
    double power = 1.0;
    for (double& value : powers) {
        value = power;
        power *= std::log(energy);
    }
    return factor.transpose() * powers;
}

Eigen::MatrixXd lowerTriangle(const std::vector<double>& elements, std::size_t size) {
    const auto count = static_cast<Eigen::Index>(size);
    Eigen::MatrixXd matrix = Eigen::MatrixXd::Zero(count, count);
    std::size_t next = 0;
    for (Eigen::Index row = 0; row < count; ++row) {
        for (Eigen::Index column = 0; column <= row && next < elements.size(); ++column) {
            matrix(row, column) = elements[next++];
        }
    }
    return matrix.isZero(0.0) || !matrix.allFinite() ? Eigen::MatrixXd() : matrix;
}

namespace {

constexpr double clusterGap = 3.0;      // widths between lines that are measured together
constexpr double overlapReach = 3.0;    // widths within which a line adds to a template
constexpr double minSensitivity = 0.1;  // of the most sensitive line of the nuclide
constexpr double minVarianceRatio =
    0.5;  // of a variance that the peak fit gives, to the expected one
constexpr std::size_t maxClusters = 24;

double sensitivityOf(const ExpectedLine& line) {
    return line.weight / line.detectionLimit;
}

double maxSensitivity(std::span<const ExpectedLine* const> lines) {
    double result = 0.0;
    for (const ExpectedLine* line : lines) {
        result = std::max(result, sensitivityOf(*line));
    }
    return result;
}

std::string at(const char* problem, const ExpectedLine& line) {
    char text[48];
    static_cast<void>(std::snprintf(text, sizeof text, "%s at %.1f keV", problem, line.energy));
    return text;
}

std::vector<TemplatePart> partsOf(std::span<const ExpectedLine* const> lines) {
    std::vector<TemplatePart> parts;
    for (const ExpectedLine* line : lines) {
        parts.push_back({line->energy, line->weight});
    }
    return parts;
}

double countsOf(std::span<const TemplatePart> parts) {
    double counts = 0.0;
    for (const TemplatePart& part : parts) {
        counts += part.counts;
    }
    return counts;
}

}  // namespace

LineObservations::LineObservations(const ActivityInput& input)
    : input_(input),
      matches_(matchLines(withUncertainCalibration(input.meter.peaks(), input.tolerance),
                          input.nuclides, input.tolerance)),
      ofPeaks_(input.meter.peaks().size()),
      ofNuclides_(input.nuclides.size()),
      reasons_(input.nuclides.size()) {
    for (std::size_t nuclide = 0; nuclide < input.nuclides.size(); ++nuclide) {
        observe(nuclide);
    }
}

void LineObservations::observe(std::size_t nuclide) {
    std::map<std::size_t, Lines> ofPeaks;
    Lines missing;
    const ExpectedLine* strongest = nullptr;
    double best = 0.0;
    for (const LineResult& match : matches_[nuclide].lines) {
        if (strongest == nullptr || match.line->weight > strongest->weight) {
            strongest = match.line;
        }
        if (input_.efficiency.covers(match.line->energy)) {
            (match.peak ? ofPeaks[*match.peak] : missing).push_back(match.line);
            best = std::max(best, sensitivityOf(*match.line));
        }
    }
    if (ofPeaks.empty() && missing.empty()) {
        reasons_[nuclide] =
            strongest == nullptr ? "no line with an efficiency" : at("no efficiency", *strongest);
        return;
    }
    const auto isLine = [this](std::size_t peak) {
        return input_.origins[peak] == PeakOrigin::line;
    };
    for (const auto& [peak, lines] : ofPeaks) {
        if (isLine(peak)) {
            observePeak(nuclide, peak, lines);
        }
    }
    for (const Lines& lines : clustersOf(missing, minSensitivity * best)) {
        observeTemplate(nuclide, lines);
    }
    // Annihilation, escape and sum peaks are upper limits, and used only if there is nothing else.
    for (const auto& [peak, lines] : ofPeaks) {
        if (!isLine(peak) && ofNuclides_[nuclide].empty()) {
            observePeak(nuclide, peak, lines);
        }
    }
    if (ofNuclides_[nuclide].empty()) {
        reasons_[nuclide] = at("no usable channels", *strongest);
    }
}

// Groups lines that share channels, the most sensitive groups first.
std::vector<LineObservations::Lines> LineObservations::clustersOf(const Lines& lines,
                                                                  double sensitivityLimit) const {
    Lines sorted = lines;
    std::ranges::sort(sorted, {}, &ExpectedLine::energy);
    std::vector<Lines> clusters;
    for (const ExpectedLine* line : sorted) {
        const double gap = clusterGap * input_.meter.widthAt(line->energy);
        if (clusters.empty() || line->energy - clusters.back().back()->energy > gap) {
            clusters.emplace_back();
        }
        clusters.back().push_back(line);
    }
    const auto isFaint = [sensitivityLimit](const Lines& cluster) {
        return maxSensitivity(cluster) < sensitivityLimit;
    };
    std::erase_if(clusters, isFaint);
    std::ranges::stable_sort(clusters, std::ranges::greater(),
                             [](const Lines& cluster) { return maxSensitivity(cluster); });
    clusters.resize(std::min(clusters.size(), maxClusters));
    return clusters;
}

bool LineObservations::observePeak(std::size_t nuclide, std::size_t peak, const Lines& lines) {
    if (!ofPeaks_[peak]) {
        const MeasuredPeak& measured = input_.meter.peaks()[peak];
        const auto blank = blankAtPeak(measured.energy);
        if (!blank) {
            return false;
        }
        const double variance = measured.areaUncertainty * measured.areaUncertainty;
        Observation observation{measured.energy, measured.area,   variance, 1.0,
                                blank->counts,   blank->variance, {}};
        const TemplatePart unit{measured.energy, 1.0};
        if (const auto area = input_.meter.measure(std::span(&unit, 1), std::span(&peak, 1))) {
            const double expected =
                area->nullVariance + area->countVariance * std::max(0.0, measured.area);
            const double scatter = std::max(minVarianceRatio, variance / expected);
            observation.nullVariance = scatter * area->nullVariance;
            observation.countVariance = scatter * area->countVariance;
        }
        ofPeaks_[peak] = observations_.size();
        observations_.push_back(std::move(observation));
    }
    for (const ExpectedLine* line : lines) {
        observations_[*ofPeaks_[peak]].terms.push_back({nuclide, line, line->weight});
    }
    ofNuclides_[nuclide].push_back(*ofPeaks_[peak]);
    return true;
}

bool LineObservations::observeTemplate(std::size_t nuclide, const Lines& lines) {
    const std::vector<TemplatePart> parts = partsOf(lines);
    const auto area = input_.meter.measure(parts, {});
    const auto blank = area ? blankAtLines(lines, *area) : std::nullopt;
    if (!blank) {
        return false;
    }
    const double counts = countsOf(parts);
    const ExpectedLine& strongest = **std::ranges::max_element(lines, {}, &ExpectedLine::weight);
    Observation observation{strongest.energy,
                            area->amplitude * counts,
                            area->nullVariance * counts * counts,
                            area->countVariance * counts,
                            blank->counts * counts,
                            blank->variance * counts * counts,
                            {}};
    for (const ExpectedLine* line : lines) {
        observation.terms.push_back({nuclide, line, line->weight});
    }
    addFoundLines(nuclide, *area, counts, observation);
    ofNuclides_[nuclide].push_back(observations_.size());
    observations_.push_back(std::move(observation));
    return true;
}

// Lines of found nuclides without a peak of their own add to the areas near them.
void LineObservations::addFoundLines(std::size_t nuclide, const LineArea& area, double counts,
                                     Observation& observation) const {
    const double reach = overlapReach * input_.meter.widthAt(observation.energy);
    for (std::size_t other = 0; other < input_.nuclides.size(); ++other) {
        if (!input_.found[other] || other == nuclide) {
            continue;
        }
        for (const LineResult& match : matches_[other].lines) {
            const double energy = match.line->energy;
            if (!match.peak && std::abs(energy - observation.energy) < reach) {
                const double added = match.line->weight * input_.meter.response(area, energy);
                observation.terms.push_back({other, match.line, added * counts});
            }
        }
    }
}

std::optional<LineObservations::Amount> LineObservations::blankAtPeak(double energy) const {
    if (input_.blank == nullptr) {
        return Amount{0.0, 0.0};
    }
    const auto& [meter, scale] = *input_.blank;
    if (const auto peak = meter.peakAt(energy, input_.tolerance)) {
        const MeasuredPeak& found = meter.peaks()[*peak];
        return Amount{scale * found.area, std::pow(scale * found.areaUncertainty, 2)};
    }
    const TemplatePart unit{energy, 1.0};
    const auto area = meter.measure(std::span(&unit, 1), {});
    return area ? std::optional(Amount{scale * area->amplitude, scale * scale * area->variance()})
                : std::nullopt;
}

// Returns the amplitude that the blank adds to a template of the sample.
std::optional<LineObservations::Amount> LineObservations::blankAtLines(const Lines& lines,
                                                                       const LineArea& area) const {
    Amount amount{0.0, 0.0};
    if (input_.blank == nullptr) {
        return amount;
    }
    const auto& [meter, scale] = *input_.blank;
    std::vector<std::size_t> peaks;
    Lines missing;
    for (const ExpectedLine* line : lines) {
        const auto peak = meter.peakAt(line->energy, input_.tolerance);
        if (!peak) {
            missing.push_back(line);
        } else if (std::ranges::find(peaks, *peak) == peaks.end()) {
            peaks.push_back(*peak);
        }
    }
    for (const std::size_t peak : peaks) {
        const MeasuredPeak& found = meter.peaks()[peak];
        const double response = scale * input_.meter.response(area, found.energy);
        amount.counts += response * found.area;
        amount.variance += std::pow(response * found.areaUncertainty, 2);
    }
    if (!missing.empty()) {
        const auto measured = meter.measure(partsOf(missing), {});
        if (!measured) {
            return std::nullopt;
        }
        double response = 0.0;
        for (const ExpectedLine* line : missing) {
            response += scale * line->weight * input_.meter.response(area, line->energy);
        }
        amount.counts += response * measured->amplitude;
        amount.variance += response * response * measured->variance();
    }
    return amount;
}

}  // namespace embedded::engines
