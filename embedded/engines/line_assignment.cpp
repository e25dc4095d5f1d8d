#include "embedded/engines/line_assignment.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <limits>
#include <numbers>

namespace embedded::engines {

namespace {

// A proposal needs two of the strongest lines of a pattern and two of the largest peaks.
constexpr std::size_t proposingLines = 6;
constexpr std::size_t proposingPeaks = 24;
constexpr std::size_t assessedProposals = 60;
// Lines of two patterns propose a relation if neither pattern is more surprising than this.
constexpr double proposingSurprise = 3.5;
constexpr std::size_t leadingLines = 2;  // of each of these patterns
constexpr std::size_t maxLines = 40;     // of a pattern, the strongest

// Standard deviation of a peak about its line beyond the uncertainty of the peak, in FWHM: a
// calibration is not exactly straight. Lines nearer to each other than the second
// distance count as one.
constexpr double crookedness = 0.12;
constexpr double resolvedDistance = 0.8;
constexpr double reachOfLine = 3.0;  // standard deviations

// Scatter of ln(area / expected counts) within a pattern, because the efficiency is unknown.
constexpr double areaScatter = 0.9;

// A line is missing if more counts than this are expected, in uncertainties of neighbouring areas.
constexpr double visible = 8.0;
constexpr double maxPenalty = 4.0;
constexpr double minPenalizedEnergy = 100.0;  // keV; absorbers hide lines below it

double square(double value) {
    return value * value;
}

}  // namespace

double medianOf(std::vector<double> values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::ranges::nth_element(values, middle);
    return *middle;
}

LineAssignment::LineAssignment(std::span<const PositionedPeak> peaks,
                               std::span<const LinePattern> patterns, const RelationLimits& limits)
    : peaks_(peaks), patterns_(patterns), limits_(limits) {
    for (const PositionedPeak& peak : peaks) {
        areas_.push_back(peak.area);
    }
    std::ranges::sort(areas_);
    if (!peaks.empty()) {
        range_ = std::max(peaks.back().position, 0.0) + 10.0 * peaks.back().width;
        large_ = largePeaks();
    }
}

// Interpolates between the widths of the peaks on both sides.
double LineAssignment::widthAt(double position) const {
    const auto after = std::ranges::lower_bound(peaks_, position, {}, &PositionedPeak::position);
    if (after == peaks_.begin()) {
        return after->width;
    }
    const auto before = after - 1;
    if (after == peaks_.end()) {
        return before->width;
    }
    const double part = (position - before->position) / (after->position - before->position);
    return before->width + part * (after->width - before->width);
}

// Returns the smallest uncertainty of the areas of the nearest peaks on both sides.
double LineAssignment::noiseAt(double position) const {
    const auto after = std::ranges::lower_bound(peaks_, position, {}, &PositionedPeak::position);
    double noise = std::numeric_limits<double>::infinity();
    for (auto near = after - std::min<std::ptrdiff_t>(2, after - peaks_.begin());
         near < peaks_.end() && near < after + 2; ++near) {
        noise = std::min(noise, near->areaUncertainty);
    }
    return noise;
}

// Returns the number of peaks of at least half the area per unit of the position.
double LineAssignment::rarity(double area) const {
    const auto smaller = std::ranges::lower_bound(areas_, 0.5 * area) - areas_.begin();
    return static_cast<double>(static_cast<std::ptrdiff_t>(areas_.size()) - smaller) / range_;
}

bool LineAssignment::isPossible(const EnergyRelation& relation) const {
    const EnergyRelation& expected = limits_.expected;
    return relation.gain > 0.0 &&
           std::abs(relation.offset - expected.offset) <= limits_.maxOffset &&
           std::abs(std::log(relation.gain / expected.gain)) <= limits_.maxGain;
}

double LineAssignment::priorOf(const EnergyRelation& relation) const {
    double sum = 0.0;
    if (limits_.offsetScatter > 0.0) {
        sum += square((relation.offset - limits_.expected.offset) / limits_.offsetScatter);
    }
    if (limits_.gainScatter > 0.0) {
        sum += square(std::log(relation.gain / limits_.expected.gain) / limits_.gainScatter);
    }
    return -0.5 * sum;
}

// Returns the lines within the range of the peaks by rising energy, unresolved lines as one.
std::vector<PatternLine> LineAssignment::resolvedLines(const LinePattern& pattern,
                                                       const EnergyRelation& relation) const {
    std::vector<PatternLine> lines = pattern.lines;
    std::ranges::sort(lines, {}, &PatternLine::energy);
    std::vector<PatternLine> resolved;
    for (const PatternLine& line : lines) {
        const double width = relation.gain * widthAt(relation.positionOf(line.energy));
        if (!resolved.empty() && line.energy - resolved.back().energy < resolvedDistance * width) {
            PatternLine& last = resolved.back();
            const double weight = last.weight + line.weight;
            last.energy = (last.energy * last.weight + line.energy * line.weight) / weight;
            last.weight = weight;
        } else {
            resolved.push_back(line);
        }
    }
    const std::size_t kept = std::min(resolved.size(), maxLines);
    std::ranges::partial_sort(resolved, resolved.begin() + static_cast<std::ptrdiff_t>(kept),
                              std::ranges::greater(), &PatternLine::weight);
    resolved.resize(kept);
    return resolved;
}

std::optional<std::size_t> LineAssignment::nearestPeak(double position,
                                                       const std::vector<bool>& used) const {
    const auto after = std::ranges::lower_bound(peaks_, position, {}, &PositionedPeak::position);
    std::optional<std::size_t> nearest;
    double minDeviation = reachOfLine;
    for (auto near = after - std::min<std::ptrdiff_t>(2, after - peaks_.begin());
         near < peaks_.end() && near < after + 2; ++near) {
        const double scatter = std::hypot(near->uncertainty, crookedness * near->width);
        const double deviation = std::abs(near->position - position) / scatter;
        const auto number = static_cast<std::size_t>(near - peaks_.begin());
        if (deviation < minDeviation && !used[number]) {
            minDeviation = deviation;
            nearest = number;
        }
    }
    return nearest;
}

LineAssignment::PatternScore LineAssignment::scoreOf(std::size_t pattern,
                                                     const EnergyRelation& relation,
                                                     const std::vector<bool>& used) const {
    struct Expected {
        PatternLine line;
        std::optional<std::size_t> peak;
    };
    std::vector<Expected> all;
    std::vector<double> ratios;
    std::vector<bool> taken = used;
    for (const PatternLine& line : resolvedLines(patterns_[pattern], relation)) {
        const auto peak = nearestPeak(relation.positionOf(line.energy), taken);
        all.push_back({line, peak});
        if (peak) {
            taken[*peak] = true;
            ratios.push_back(std::log(peaks_[*peak].area / line.weight));
        }
    }
    if (ratios.empty()) {
        return {0.0, {}};
    }
    // The strongest lines determine the expected counts.
    const auto end = ratios.begin() + std::min<std::ptrdiff_t>(std::ssize(ratios), 5);
    const double scale = medianOf({ratios.begin(), end});
    PatternScore result{0.0, {}};
    for (const auto& [line, number] : all) {
        const double position = relation.positionOf(line.energy);
        const double counts = line.weight * std::exp(scale);
        if (number) {
            const PositionedPeak& peak = peaks_[*number];
            const double scatter = std::hypot(peak.uncertainty, crookedness * peak.width);
            const double byChance = rarity(peak.area) * scatter * std::sqrt(2.0 * std::numbers::pi);
            const double areaDeviation = std::log(peak.area / counts) / areaScatter;
            const double gain = -std::log(byChance) -
                                0.5 * square((peak.position - position) / scatter) -
                                0.5 * square(areaDeviation);
            result.score += std::max(gain, -maxPenalty);
            if (gain > 0.0) {
                result.matches.push_back({pattern, line.energy, *number});
            }
        } else if (line.energy > minPenalizedEnergy && position > peaks_.front().position &&
                   position < peaks_.back().position) {
            const double excess = counts / (visible * noiseAt(position));
            result.score -= std::clamp(2.0 * std::log(excess), 0.0, maxPenalty);
        }
    }
    return result;
}

// Assigns the peaks to one pattern after the other, beginning with the pattern that explains most.
Assignment LineAssignment::assess(const EnergyRelation& relation) const {
    Assignment result{relation, priorOf(relation), {}};
    std::vector<bool> used(peaks_.size(), false);
    if (peaks_.empty()) {
        return result;
    }
    std::vector<std::pair<double, std::size_t>> order;
    for (std::size_t pattern = 0; pattern < patterns_.size(); ++pattern) {
        const double score = scoreOf(pattern, relation, used).score;
        if (score > patterns_[pattern].surprise) {
            order.emplace_back(score - patterns_[pattern].surprise, pattern);
        }
    }
    std::ranges::sort(order, std::ranges::greater());
    for (const auto& [score, pattern] : order) {
        const PatternScore patternScore = scoreOf(pattern, relation, used);
        if (patternScore.score <= patterns_[pattern].surprise) {
            continue;
        }
        result.score += patternScore.score - patterns_[pattern].surprise;
        for (const LineMatch& match : patternScore.matches) {
            used[match.peak] = true;
            result.matches.push_back(match);
        }
    }
    return result;
}

// Returns the strongest lines of a pattern by rising energy.
std::vector<PatternLine> LineAssignment::strongestLines(std::size_t pattern,
                                                        std::size_t count) const {
    std::vector<PatternLine> lines = patterns_[pattern].lines;
    std::ranges::stable_sort(lines, std::ranges::greater(), &PatternLine::weight);
    lines.resize(std::min(lines.size(), count));
    std::ranges::sort(lines, {}, &PatternLine::energy);
    return lines;
}

std::vector<PositionedPeak> LineAssignment::largePeaks() const {
    const double minArea = areas_[areas_.size() - std::min(areas_.size(), proposingPeaks)];
    std::vector<PositionedPeak> large;
    std::ranges::copy_if(peaks_, std::back_inserter(large),
                         [&](const PositionedPeak& peak) { return peak.area >= minArea; });
    return large;
}

// Calls propose with each possible relation from two energies, the lower first, and two large
// peaks.
template <typename Propose>
void LineAssignment::forEachRelation(double low, double high, const Propose& propose) const {
    for (auto first = large_.begin(); first != large_.end(); ++first) {
        for (auto second = first + 1; second != large_.end(); ++second) {
            const double distance = second->position - first->position;
            const double gain = (high - low) / distance;
            const EnergyRelation relation = {low - gain * first->position, gain};
            if (distance > second->width && isPossible(relation)) {
                propose(relation);
            }
        }
    }
}

// Adds all relations from two strong lines of a pattern, scored with this pattern alone.
void LineAssignment::propose(std::size_t pattern, std::vector<Assignment>& proposals) const {
    const std::vector<PatternLine> lines = strongestLines(pattern, proposingLines);
    const std::vector<bool> used(peaks_.size(), false);
    for (std::size_t low = 0; low < lines.size(); ++low) {
        for (std::size_t high = low + 1; high < lines.size(); ++high) {
            forEachRelation(
                lines[low].energy, lines[high].energy, [&](const EnergyRelation& relation) {
                    const double score =
                        scoreOf(pattern, relation, used).score - patterns_[pattern].surprise;
                    proposals.push_back({relation, score + priorOf(relation), {}});
                });
        }
    }
}

// Adds all relations from strong lines of two common patterns, scored with these patterns: most
// sources have one or two lines, but there are several sources or natural background.
void LineAssignment::proposeAcrossPatterns(std::vector<Assignment>& proposals) const {
    struct Leading {
        double energy;
        std::size_t pattern;
    };
    std::vector<Leading> lines;
    for (std::size_t pattern = 0; pattern < patterns_.size(); ++pattern) {
        if (patterns_[pattern].surprise <= proposingSurprise) {
            for (const PatternLine& line : strongestLines(pattern, leadingLines)) {
                lines.push_back({line.energy, pattern});
            }
        }
    }
    std::ranges::sort(lines, {}, &Leading::energy);
    const std::vector<bool> used(peaks_.size(), false);
    for (auto low = lines.begin(); low != lines.end(); ++low) {
        for (auto high = low + 1; high != lines.end(); ++high) {
            if (low->pattern == high->pattern || !(high->energy > low->energy)) {
                continue;
            }
            forEachRelation(low->energy, high->energy, [&](const EnergyRelation& relation) {
                double score = priorOf(relation);
                for (const std::size_t pattern : {low->pattern, high->pattern}) {
                    score += scoreOf(pattern, relation, used).score - patterns_[pattern].surprise;
                }
                proposals.push_back({relation, score, {}});
            });
        }
    }
}

// Least squares; the expected relation counts as two more observations.
EnergyRelation LineAssignment::fitted(const Assignment& assignment) const {
    const EnergyRelation start = assignment.relation;
    double one = 0.0;
    double linear = 0.0;
    double quadratic = 0.0;
    double right = 0.0;
    double linearRight = 0.0;
    for (const LineMatch& match : assignment.matches) {
        const PositionedPeak& peak = peaks_[match.peak];
        const double scatter = start.gain * std::hypot(peak.uncertainty, crookedness * peak.width);
        const double weight = 1.0 / square(scatter);
        one += weight;
        linear += weight * peak.position;
        quadratic += weight * square(peak.position);
        right += weight * match.energy;
        linearRight += weight * match.energy * peak.position;
    }
    if (limits_.offsetScatter > 0.0) {
        one += 1.0 / square(limits_.offsetScatter);
        right += limits_.expected.offset / square(limits_.offsetScatter);
    }
    if (limits_.gainScatter > 0.0) {
        const double scatter = limits_.gainScatter * limits_.expected.gain;
        quadratic += 1.0 / square(scatter);
        linearRight += limits_.expected.gain / square(scatter);
    }
    const double determinant = one * quadratic - square(linear);
    if (!(determinant > 1e-9 * one * quadratic)) {
        return start;
    }
    const EnergyRelation relation = {(quadratic * right - linear * linearRight) / determinant,
                                     (one * linearRight - linear * right) / determinant};
    return isPossible(relation) ? relation : start;
}

// Returns the first assignments whose energies differ somewhere by more than a part of the width.
std::vector<Assignment> LineAssignment::distinct(const std::vector<Assignment>& assignments,
                                                 double part, std::size_t count) const {
    std::vector<Assignment> results;
    for (const Assignment& assignment : assignments) {
        if (results.size() == count) {
            break;
        }
        const bool isKnown = std::ranges::any_of(results, [&](const Assignment& other) {
            const auto isClose = [&](const PositionedPeak& peak) {
                const double difference = assignment.relation.energyAt(peak.position) -
                                          other.relation.energyAt(peak.position);
                return std::abs(difference) < part * other.relation.gain * peak.width;
            };
            return isClose(peaks_.front()) && isClose(peaks_.back());
        });
        if (!isKnown) {
            results.push_back(assignment);
        }
    }
    return results;
}

std::vector<Assignment> LineAssignment::best(std::size_t count) const {
    std::vector<Assignment> proposals;
    if (peaks_.size() < 2) {
        return proposals;
    }
    for (std::size_t pattern = 0; pattern < patterns_.size(); ++pattern) {
        propose(pattern, proposals);
    }
    proposeAcrossPatterns(proposals);
    std::ranges::stable_sort(proposals, std::ranges::greater(), &Assignment::score);
    std::vector<Assignment> assessed = distinct(proposals, 0.25, assessedProposals);
    for (Assignment& proposal : assessed) {
        proposal = assess(proposal.relation);
        for (int round = 0; round < 2; ++round) {
            proposal = assess(fitted(proposal));
        }
    }
    std::ranges::stable_sort(assessed, std::ranges::greater(), &Assignment::score);
    return distinct(assessed, 1.0, count);
}

}  // namespace embedded::engines
