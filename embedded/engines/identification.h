// Identification of nuclides by the lines that were found as peaks.
#ifndef PYORV3_EMBEDDED_ENGINES_IDENTIFICATION_H
#define PYORV3_EMBEDDED_ENGINES_IDENTIFICATION_H

#include <cstddef>
#include <span>
#include <string>
#include <vector>

namespace embedded::engines {

struct MeasuredPeak {
    double energy;  // keV
    double area;    // net counts
};

struct ExpectedLine {
    double energy;          // keV
    double weight;          // photons per decay x efficiency: expected share of the counts
    double detectionLimit;  // net counts below which the line may be missed; may be infinite
    bool key;               // the nuclide is not identified without this line
};

struct Nuclide {
    std::string name;
    std::vector<ExpectedLine> lines;
};

struct MatchingRules {
    double tolerance;           // keV
    double smallestConfidence;  // 0 to 1
};

struct Identification {
    std::string name;
    double confidence;               // above 0, at most 1
    double energy;                   // keV, of the line found with the greatest weight
    std::vector<std::size_t> peaks;  // of each line found, the number of its peak from 0
};

// The nuclides that the peaks show, the most confident first (the order of `nuclides` among
// equals).
//
// A line is found when a peak lies within the tolerance; the nearest one counts. The found line
// with the smallest area per weight gives the activity that the nuclide can have at most; a line
// that is not found but would have more counts than its detection limit at this activity speaks
// against the nuclide. Lines with no positive, finite weight do not count.
//
//     confidence = found weight / (found weight + weight that speaks against)
std::vector<Identification> identify(std::span<const MeasuredPeak> peaks,
                                     std::span<const Nuclide> nuclides, const MatchingRules& rules);

// For each peak the name of the most confident nuclide that has it among its lines, or "".
// identifications: as identify gives them for the peaks.
std::vector<std::string> assignPeaks(std::size_t peakCount,
                                     std::span<const Identification> identifications);

}  // namespace embedded::engines

#endif
