// Assignment of peaks to the lines of nuclides if the energy calibration is unknown or off. The
// relation is energy = offset + gain x position. Pairs of strong lines and pairs of peaks propose
// relations; the score of a relation is the logarithm of a likelihood ratio against chance.
// See docs/engine.md, "Energy correction".
#ifndef PYORV3_EMBEDDED_ENGINES_LINE_ASSIGNMENT_H
#define PYORV3_EMBEDDED_ENGINES_LINE_ASSIGNMENT_H

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace embedded::engines {

// Returns the median; of an even number of values the upper one of the two in the middle. values:
// not empty.
double medianOf(std::vector<double> values);

struct PatternLine {
    double energy;  // keV
    double weight;  // expected counts, relative to those of the other lines of the pattern
};

// The lines of a nuclide.
struct LinePattern {
    std::string name;
    std::vector<PatternLine> lines;
    double surprise;  // -ln(probability beforehand that the spectrum shows the nuclide)
};

struct PositionedPeak {
    double position;         // channel, or energy after an inexact calibration
    double uncertainty;      // of the position, one standard deviation
    double width;            // FWHM in the unit of the position
    double area;             // counts, positive
    double areaUncertainty;  // one standard deviation, positive
};

struct EnergyRelation {
    double offset;  // keV
    double gain;    // keV per unit of the position, positive

    double energyAt(double position) const { return offset + gain * position; }
    double positionOf(double energy) const { return (energy - offset) / gain; }
};

// The possible relations and their prior probability.
struct RelationLimits {
    EnergyRelation expected;
    double offsetScatter;  // one standard deviation; 0: all offsets are equally likely
    double gainScatter;    // the same, relative
    double maxOffset;      // largest departure from the expected offset, keV
    double maxGain;        // largest departure from the expected gain, relative
};

struct LineMatch {
    std::size_t pattern;
    double energy;  // keV; the weighted mean of unresolved lines
    std::size_t peak;
};

struct Assignment {
    EnergyRelation relation;
    double score;
    std::vector<LineMatch> matches;
};

// Scores and finds relations. Keeps references to peaks and patterns, which must outlive it.
class LineAssignment {
  public:
    // peaks: by rising position.
    LineAssignment(std::span<const PositionedPeak> peaks, std::span<const LinePattern> patterns,
                   const RelationLimits& limits);

    // Returns the score of one relation without fitting it.
    Assignment assess(const EnergyRelation& relation) const;

    // Returns at most `count` relations, best first, each fitted to its matches. They differ from
    // each other by more than the uncertainty of a peak.
    std::vector<Assignment> best(std::size_t count) const;

  private:
    struct PatternScore {
        double score;
        std::vector<LineMatch> matches;
    };

    double widthAt(double position) const;
    double noiseAt(double position) const;
    double rarity(double area) const;
    bool isPossible(const EnergyRelation& relation) const;
    double priorOf(const EnergyRelation& relation) const;
    std::vector<PatternLine> resolvedLines(const LinePattern& pattern,
                                           const EnergyRelation& relation) const;
    std::optional<std::size_t> nearestPeak(double position, const std::vector<bool>& used) const;
    PatternScore scoreOf(std::size_t pattern, const EnergyRelation& relation,
                         const std::vector<bool>& used) const;
    std::vector<PatternLine> strongestLines(std::size_t pattern, std::size_t count) const;
    std::vector<PositionedPeak> largePeaks() const;
    template <typename Propose>
    void forEachRelation(double low, double high, const Propose& propose) const;
    void propose(std::size_t pattern, std::vector<Assignment>& proposals) const;
    void proposeAcrossPatterns(std::vector<Assignment>& proposals) const;
    EnergyRelation fitted(const Assignment& assignment) const;
    std::vector<Assignment> distinct(const std::vector<Assignment>& assignments, double part,
                                     std::size_t count) const;

    std::span<const PositionedPeak> peaks_;
    std::span<const LinePattern> patterns_;
    RelationLimits limits_;
    std::vector<double> areas_;  // rising
    std::vector<PositionedPeak> large_;
    double range_ = 0.0;  // of the positions
};

}  // namespace embedded::engines

#endif
