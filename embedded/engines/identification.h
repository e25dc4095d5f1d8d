// Identification of nuclides by the lines that were found as peaks.
//
// All nuclides are fitted together to the peaks, their activities not negative (nonnegative_fit.h).
// Each peak gives two observations: its area, which is the sum over the nuclides of activity x
// weight of the line, and its centroid, which is their mean energy weighted with those counts; so a
// peak that several nuclides share is divided among them, and of two that would do the one with the
// nearer line has it. A line without a peak is an observation of no counts, with half the detection
// limit as standard deviation. An annihilation, escape or sum peak (peak_origin.h) may have any
// area beyond what the nuclides give. Where four lines and more are identified beyond doubt, they
// tell how the energy calibration is off, as a straight line, and by how much energies scatter
// about it; that is corrected, and the fit is done again. Until then the calibration may be off by
// half the tolerance. Without an efficiency calibration the lines of each nuclide tell in the same
// way by which power of the energy the assumed efficiency is off. Where the file names a parent
// that lives longer, the activities of the two differ by no more than about 30 % of the greater
// one, as in equilibrium.
//
// The confidence is the product of three numbers, each from 0 to 1:
//   support    G / (9 + G), where G is what the sum of squares would rise without the nuclide: one
//              half for three standard deviations;
//   agreement  how well the areas and energies of its lines come out: the mean of
//              f = exp(-(|deviation| - 1)^2 / 2) for deviations beyond one standard deviation,
//              weighted with expected counts / (expected counts + detection limit), a line that was
//              not found counting with the part 1 - f of its weight, so that those that could not
//              be seen say nothing;
//   chance     1 - p^n, where n counts the peaks that it gives rise to, those shared in part, and p
//              is the probability that one of the peaks in the neighbourhood lies within the
//              tolerance of a line by chance, or within three standard deviations of the energy.
//
// The activities are those of a second fit, of the nuclides that are confident enough alone and
// with no other uncertainties than those of areas and single weights. Where a nuclide's lines
// disagree by more, its uncertainty is enlarged by the root of chi-square per degree of freedom.
#ifndef PYORV3_EMBEDDED_ENGINES_IDENTIFICATION_H
#define PYORV3_EMBEDDED_ENGINES_IDENTIFICATION_H

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "embedded/engines/peak_origin.h"

namespace embedded::engines {

struct ExpectedLine {
    double energy;             // keV
    double energyUncertainty;  // keV
    double weight;             // expected net counts for an activity of 1
    double weightUncertainty;  // relative, of this line alone, such as that of its yield
    double detectionLimit;     // net counts below which the line may be missed; may be infinite
    bool key;                  // the nuclide is not identified without this line
};

struct Nuclide {
    std::string name;
    std::vector<ExpectedLine> lines;
    std::optional<std::size_t> parent;  // its place in the list, where the parent lives longer
    double halfLife = 0.0;              // seconds; 0 if it is unknown or stable
};

struct MatchingRules {
    double tolerance;                 // keV
    double weightAllowance;           // relative: how far weights may be wrong, each by itself
    bool efficiencyIsAssumed;         // whether the weights come from no calibration
    double smallestConfidence = 0.0;  // of what assigns a peak and makes sums, 0 to 1
};

struct Identification {
    double confidence;   // 0 to 1
    double activity;     // in the unit of the lines' weights; 0 where nothing speaks for it
    double uncertainty;  // of the areas and of the weights of single lines
    double energy;       // keV, of the line found that has the greatest weight
    std::vector<std::size_t> peaks;  // of each line found, the number of its peak from 0
};

struct Findings {
    std::vector<Identification> nuclides;  // one for each of those asked for
    std::vector<std::string> assigned;     // of each peak the nuclide that gives most of it, or ""
    std::vector<PeakOrigin> origins;
};

// A line is found when a peak lies within the tolerance; the nearest one counts. Lines with no
// positive, finite weight do not count.
Findings identify(std::span<const MeasuredPeak> peaks, std::span<const Nuclide> nuclides,
                  const MatchingRules& rules);

}  // namespace embedded::engines

#endif
