// The shape of peaks and the model of a region's contents. See docs/engine.md, "Peak shape".
#ifndef PYORV3_EMBEDDED_ENGINES_PEAK_MODEL_H
#define PYORV3_EMBEDDED_ENGINES_PEAK_MODEL_H

#include <Eigen/Core>
#include <cstddef>
#include <optional>
#include <span>
#include <vector>

namespace embedded::engines {

// A region with fewer counts than this reaches farther beyond its outer peaks or lines, because few
// counts need a wider region to determine the continuum.
inline constexpr double fewCounts = 100.0;
inline constexpr double reachAtFewCounts = 10.0;  // in widths

struct Expectation {
    double value;
    double variance;
};

// An exponential tail on one side of a Gaussian peak.
struct ExpectedTail {
    Expectation fraction = {0.0, 0.0};  // of the area; variance 0: unknown, 0 unless the data ask
    Expectation length = {1.5, 1.0};    // decay length in sigma
};

// Expected shape of the peaks of a spectrum, which a peak fit starts from.
struct PeakShape {
    Expectation widthFactor = {1.0, 0.05 * 0.05};  // of the calibrated width
    ExpectedTail left;
    ExpectedTail right;
    Expectation drift = {0.0, 0.0};  // in sigma; variance 0: unknown, 0 unless the data ask
};

// The integral of a peak of unit area: a Gaussian of which parts are folded with exponentials.
struct Tail {
    double fraction;  // of the area
    double length;    // decay length in sigma
};

struct TailDerivatives {
    double byFraction;
    double byLength;
};

// The part of a peak below a position, and its derivatives.
struct PartBelow {
    double value;
    double byPosition;
    double byDrift;
    TailDerivatives left;
    TailDerivatives right;
};

// Returns the part of a peak below a position. A null tail costs no time and has no derivatives.
// position: distance from the centroid in sigma.
PartBelow partBelow(double position, const Tail* left, const Tail* right);

// Does the same for a peak that drifts during the measurement: the mean over centroids that are
// spread evenly over the drift, in sigma, around 0.
PartBelow partBelowWithDrift(double position, double drift, const Tail* left, const Tail* right);

double normalDistribution(double position);

// A range of channels, as indexes from 0: index = channel - 1.
struct Region {
    std::size_t first;
    std::size_t count;
};

// A peak to fit; its centroid stays within half a width of the channel.
struct ExpectedPeak {
    double channel;
    double width;  // calibrated FWHM in channels
};

// The unknowns of a fit beyond areas, centroids, width factor, step and a straight continuum.
struct Shape {
    bool curved = false;
    bool leftTail = false;   // fitted; otherwise as expected
    bool rightTail = false;  // fitted; otherwise as expected
    bool drifted = false;
    std::optional<std::size_t> widePeak = {};  // index of the peak with a width of its own
    std::optional<ExpectedPeak> edge = {};     // a step in the continuum, as rounded as this peak
};

// The model of a region's contents and its unknowns: peaks with common tails and a common width
// factor on a continuum with a step. Channels get integrals over their width.
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
        edgeWidth,     // FWHM in channels of a peak with the same rounding
        widthFactor,   // of all peaks
        ownWidth,      // further factor of the wide peak
        leftFraction,  // part of each area
        leftLength,    // in sigma without the further factor
        rightFraction,
        rightLength,
        drift,  // of the centroids during the measurement, in sigma without the further factor
        firstPeak
    };
    static constexpr Eigen::Index area(std::size_t peak) {
        return firstPeak + 2 * static_cast<Eigen::Index>(peak);
    }
    static constexpr Eigen::Index channel(std::size_t peak) { return area(peak) + 1; }

    PeakModel(Region region, std::vector<ExpectedPeak> expected, const Shape& shape,
              const PeakShape& expectedShape = {});

    Eigen::Index unknowns() const { return area(expected_.size()); }
    // False if the shape does not include the unknown.
    bool isFitted(Eigen::Index unknown) const;
    const Region& region() const { return region_; }
    const Shape& shape() const { return shape_; }
    const PeakShape& expectedShape() const { return expectedShape_; }
    std::size_t strongest() const { return strongest_; }

    // Returns first values of the unknowns for the expected shape, from the contents of all
    // channels. Decides which peak is the strongest.
    Eigen::VectorXd estimate(std::span<const double> contents);

    // The range of each unknown; infinite if it has no bound.
    const Eigen::VectorXd& minValues() const { return minValues_; }
    const Eigen::VectorXd& maxValues() const { return maxValues_; }

    // Computes the contents of the region's channels and, unless null, their derivatives by the
    // unknowns, one column for each.
    void evaluate(const Eigen::VectorXd& values, Eigen::VectorXd& contents,
                  Eigen::MatrixXd* derivatives) const;

    // Returns the content of a channel without the peaks.
    double continuum(const Eigen::VectorXd& values, std::size_t index) const;

    double width(const Eigen::VectorXd& values, std::size_t peak) const;  // FWHM in channels
    // Returns the factor of the width that is the peak's own.
    double broadening(const Eigen::VectorXd& values, std::size_t peak) const;

  private:
    double offset(std::size_t index) const;
    double stepArgument(const Eigen::VectorXd& values, std::size_t index) const;
    void addContinuum(const Eigen::VectorXd& values, Eigen::VectorXd& contents,
                      Eigen::MatrixXd* derivatives) const;
    void addStep(const Eigen::VectorXd& values, Eigen::VectorXd& contents,
                 Eigen::MatrixXd* derivatives) const;
    void addEdge(const Eigen::VectorXd& values, Eigen::VectorXd& contents,
                 Eigen::MatrixXd* derivatives) const;
    // The shape of one peak, in its own sigma.
    struct Form {
        double sigma;  // channels
        double broadening;
        double drift;
        std::optional<Tail> left;
        std::optional<Tail> right;

        PartBelow below(double position) const;
    };

    // A boundary between channels, seen from a peak.
    struct Boundary {
        double position;  // in sigma from the centroid
        PartBelow below;
    };

    Form formOf(const Eigen::VectorXd& values, std::size_t peak) const;
    void addPeak(const Eigen::VectorXd& values, std::size_t peak, Eigen::VectorXd& contents,
                 Eigen::MatrixXd* derivatives) const;
    void addDerivatives(const Eigen::VectorXd& values, std::size_t peak, const Form& form,
                        const Boundary& low, const Boundary& high, Eigen::Index row,
                        Eigen::MatrixXd& matrix) const;

    Region region_;
    std::vector<ExpectedPeak> expected_;
    Shape shape_;
    PeakShape expectedShape_;
    Eigen::VectorXd minValues_;
    Eigen::VectorXd maxValues_;
    std::size_t strongest_ = 0;
};

}  // namespace embedded::engines

#endif
