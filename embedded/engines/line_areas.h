// Net areas at given energies, of peaks that need not be visible. See docs/activity.md, "Areas at
// the lines".
#ifndef PYORV3_EMBEDDED_ENGINES_LINE_AREAS_H
#define PYORV3_EMBEDDED_ENGINES_LINE_AREAS_H

#include <Eigen/Core>
#include <cstddef>
#include <optional>
#include <span>
#include <vector>

#include "embedded/engines/calibration.h"
#include "embedded/engines/line_matches.h"
#include "embedded/engines/spectrum.h"

namespace embedded::engines {

// A part of a template: net counts at an energy for an amplitude of 1.
struct TemplatePart {
    double energy;  // keV
    double counts;
};

// An estimate of the amplitude of a template. It is linear in the contents of the channels.
struct LineArea {
    std::size_t first = 0;  // index of the first channel
    Eigen::VectorXd coefficients;
    double amplitude = 0.0;      // may be negative
    double nullVariance = 0.0;   // of the amplitude if the template is absent
    double countVariance = 0.0;  // rise of the variance with the amplitude

    double variance() const { return nullVariance + countVariance * std::max(0.0, amplitude); }
};

// Measures templates in one spectrum.
class LineMeter {
  public:
    // The spans of the spectrum must outlive the meter. peaks: found in the spectrum, by rising
    // energy, with their widths; each of them is a free unknown in the region of a template.
    LineMeter(const Spectrum& spectrum, Calibration calibration, std::vector<MeasuredPeak> peaks);

    const std::vector<MeasuredPeak>& peaks() const { return peaks_; }
    // Returns the index of the nearest peak within the tolerance in keV.
    std::optional<std::size_t> peakAt(double energy, double tolerance) const;
    double widthAt(double energy) const;  // FWHM in keV

    // Returns the amplitude of a template, or nullopt if its channels cannot be used.
    // parts: at least one; ownPeaks: peaks that belong to the template.
    std::optional<LineArea> measure(std::span<const TemplatePart> parts,
                                    std::span<const std::size_t> ownPeaks) const;

    // Returns the amplitude that a line with an area of 1 adds to a measurement.
    double response(const LineArea& area, double energy) const;
    // The same for the rise of the variance.
    double varianceResponse(const LineArea& area, double energy) const;

  private:
    struct Range {
        std::size_t first;
        std::size_t count;
    };

    std::optional<Range> rangeOf(std::span<const TemplatePart> parts, double reach) const;
    Eigen::VectorXd shapeOf(double energy, double width, const Range& range) const;
    std::optional<Range> usableRange(std::span<const TemplatePart> parts) const;
    Eigen::MatrixXd designOf(std::span<const TemplatePart> parts,
                             std::span<const std::size_t> ownPeaks, const Range& range) const;

    Spectrum spectrum_;
    Calibration calibration_;
    std::vector<MeasuredPeak> peaks_;
};

}  // namespace embedded::engines

#endif
