// The model of a region's contents and its unknowns.
//
// A peak is area x ((1 - T) Gaussian + T (Gaussian folded with an exponential that falls to lower
// channels)): incomplete collection of charge gives peaks of germanium detectors this tail on the
// low side (L. C. Longoria et al., Nucl. Instr. Meth. A 299 (1990) 308). All peaks of a region
// share T, the tail's decay length in units of their sigma, and one factor to their calibrated
// widths; one of them may have a further factor of its own, as the annihilation peak needs for the
// motion of the electrons, which leaves the detector's tail as long as it is. Under the peaks lie a
// parabola, which is a straight line where its curvature is held at 0, and a step
// (1/2) height erfc((x - centroid) / (sqrt(2) sigma)) under the strongest peak, as small-angle
// scattering makes it (G. W. Phillips and K. W. Marlow, Nucl. Instr. Meth. 137 (1976) 525).
// Channels get the integrals over their width.
#ifndef PYORV3_EMBEDDED_ENGINES_PEAK_MODEL_H
#define PYORV3_EMBEDDED_ENGINES_PEAK_MODEL_H

#include <Eigen/Core>
#include <cstddef>
#include <optional>
#include <span>
#include <vector>

namespace embedded::engines {

// A range of channels, as indexes from 0: index = channel - 1.
struct Region {
    std::size_t first;
    std::size_t count;
};

// Where a peak is looked for; its centroid stays within half a width of here.
struct ExpectedPeak {
    double channel;
    double width;  // calibrated FWHM in channels
};

// What the data may ask for beyond Gaussians of the calibrated width on a straight continuum.
struct Shape {
    bool curved = false;
    bool tailed = false;
    std::optional<std::size_t> widePeak;  // the number of the one with a width of its own
    std::optional<ExpectedPeak> edge;     // a step in the continuum, about as rounded as this peak
};

// In sigma: where a fit of a tail begins.
inline constexpr double usualTailLength = 1.5;

class PeakModel {
  public:
    // Positions of the unknowns in their vector; of peak number k (from 0): area(k), channel(k).
    enum Unknown : Eigen::Index {
        level,       // continuum in the middle of the region, counts
        slope,       // rise of the continuum from the middle to the end
        curvature,   // of the continuum: counts at the ends beyond the straight line
        step,        // height of the step, counts
        edgeHeight,  // counts
        edgeChannel,
        edgeWidth,     // of the peak that would be as rounded: FWHM in channels
        widthFactor,   // of all peaks
        ownWidth,      // further factor of the wide peak
        tailFraction,  // T
        tailLength,    // in sigma without the further factor
        firstPeak
    };
    static constexpr Eigen::Index area(std::size_t peak) {
        return firstPeak + 2 * static_cast<Eigen::Index>(peak);
    }
    static constexpr Eigen::Index channel(std::size_t peak) { return area(peak) + 1; }

    // shape: whether there is a tail, and which peak ownWidth belongs to.
    PeakModel(Region region, std::vector<ExpectedPeak> expected, const Shape& shape);

    Eigen::Index unknowns() const { return area(expected_.size()); }
    const Region& region() const { return region_; }
    std::size_t strongest() const { return strongest_; }

    // A first guess, without tail, from the contents of all channels. Decides which peak is the
    // strongest.
    Eigen::VectorXd estimate(std::span<const double> contents);

    // The range of each unknown; infinite where it has none.
    const Eigen::VectorXd& lowest() const { return lowest_; }
    const Eigen::VectorXd& highest() const { return highest_; }

    // The contents of the region's channels, and, where wanted, their derivatives by the unknowns,
    // one column for each.
    void evaluate(const Eigen::VectorXd& values, Eigen::VectorXd& contents,
                  Eigen::MatrixXd* derivatives) const;

    // The part of the content of the channel with the index that is no peak.
    double continuum(const Eigen::VectorXd& values, std::size_t index) const;

    double width(const Eigen::VectorXd& values, std::size_t peak) const;  // FWHM in channels

  private:
    double offset(std::size_t index) const;
    double broadening(const Eigen::VectorXd& values, std::size_t peak) const;
    double stepArgument(const Eigen::VectorXd& values, std::size_t index) const;
    void addContinuum(const Eigen::VectorXd& values, Eigen::VectorXd& contents,
                      Eigen::MatrixXd* derivatives) const;
    void addStep(const Eigen::VectorXd& values, Eigen::VectorXd& contents,
                 Eigen::MatrixXd* derivatives) const;
    void addEdge(const Eigen::VectorXd& values, Eigen::VectorXd& contents,
                 Eigen::MatrixXd* derivatives) const;
    void addPeak(const Eigen::VectorXd& values, std::size_t peak, Eigen::VectorXd& contents,
                 Eigen::MatrixXd* derivatives) const;

    Region region_;
    std::vector<ExpectedPeak> expected_;
    Shape shape_;
    Eigen::VectorXd lowest_;
    Eigen::VectorXd highest_;
    std::size_t strongest_ = 0;
};

}  // namespace embedded::engines

#endif
