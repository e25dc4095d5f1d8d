#include "embedded/engines/scintillator_continuum.h"

#include <algorithm>
#include <cmath>

namespace embedded::engines {

namespace {

constexpr double minCounts = 12.0;       // over which a content is averaged
constexpr double smoothingReach = 0.35;  // FWHM to each side
constexpr double clippingReach = 1.7;    // FWHM to each side

constexpr double coarseDistance = 1.5;       // FWHM between knots
constexpr double baselineUncertainty = 0.4;  // of the baseline
constexpr double contentUncertainty = 0.15;  // of the contents, under peaks
constexpr double fineDistance = 0.75;
constexpr double fineUncertainty = 0.02;  // of the contents
constexpr double binUncertainty = 0.015;  // of the contents, in each bin
constexpr double minVariance = 0.05;

// Returns the mean density within the reach, or a larger distance with enough counts.
Eigen::VectorXd smoothedDensity(const ScintillatorBins& bins) {
    const Eigen::Index size = bins.size();
    Eigen::VectorXd smoothed(size);
    for (Eigen::Index bin = 0; bin < size; ++bin) {
        Eigen::Index first = bin;
        Eigen::Index last = bin;
        double sum = std::max(0.0, bins.counts[bin]);
        const auto width = [&] { return bins.positions[last + 1] - bins.positions[first]; };
        while ((first > 0 || last + 1 < size) &&
               (width() < 2.0 * smoothingReach || sum < minCounts)) {
            if (first > 0) {
                sum += std::max(0.0, bins.counts[--first]);
            }
            if (last + 1 < size) {
                sum += std::max(0.0, bins.counts[++last]);
            }
        }
        smoothed[bin] = sum / width();
    }
    return smoothed;
}

// Clips peaks off, from narrow to wide (C. G. Ryan et al., Nucl. Instr. Meth. B 34 (1988) 396), on
// the double logarithm of the root, in which a steep continuum is nearly straight.
Eigen::VectorXd clipped(const ScintillatorBins& bins, const Eigen::VectorXd& smoothed) {
    const Eigen::Index size = bins.size();
    Eigen::VectorXd values = ((smoothed.array() + 1.0).sqrt() + 1.0).log().matrix();
    for (int step = 1; step <= static_cast<int>(clippingReach / binWidth); ++step) {
        Eigen::VectorXd next = values;
        for (Eigen::Index bin = step; bin + step < size; ++bin) {
            next[bin] = std::min(values[bin], 0.5 * (values[bin - step] + values[bin + step]));
        }
        values = next;
    }
    const Eigen::ArrayXd root = values.array().exp() - 1.0;
    return (root.square() - 1.0).max(0.0).matrix();
}

double cubicSpline(double distance) {
    const double far = std::abs(distance);
    if (far >= 2.0) {
        return 0.0;
    }
    return far < 1.0 ? (4.0 - 6.0 * far * far + 3.0 * far * far * far) / 6.0
                     : std::pow(2.0 - far, 3.0) / 6.0;
}

// Returns the columns of a spline whose coefficients have these deviations; scales: for each bin.
Eigen::MatrixXd splineColumns(const ScintillatorBins& bins, double knotDistance,
                              const Eigen::VectorXd& scales) {
    const auto knots = static_cast<Eigen::Index>(bins.positions[bins.size()] / knotDistance) + 4;
    Eigen::MatrixXd columns(bins.size(), knots);
    for (Eigen::Index bin = 0; bin < bins.size(); ++bin) {
        const double position =
            0.5 * (bins.positions[bin] + bins.positions[bin + 1]) / knotDistance;
        for (Eigen::Index knot = 0; knot < knots; ++knot) {
            columns(bin, knot) =
                scales[bin] * cubicSpline(position - static_cast<double>(knot) + 1.0);
        }
    }
    return columns;
}

}  // namespace

ScintillatorContinuum::ScintillatorContinuum(const ScintillatorBins& bins) {
    const Eigen::Index size = bins.size();
    const Eigen::VectorXd widths = bins.positions.tail(size) - bins.positions.head(size);
    const Eigen::VectorXd density = smoothedDensity(bins);
    smoothed_ = density.cwiseProduct(widths);
    baseline_ = clipped(bins, density).cwiseProduct(widths);

    const Eigen::VectorXd scales =
        (baselineUncertainty * baseline_.array() + contentUncertainty * smoothed_.array() +
         (density.array() + 0.25).sqrt() * widths.array())
            .matrix();
    const Eigen::MatrixXd coarse = splineColumns(bins, coarseDistance, scales);
    const Eigen::MatrixXd fine = splineColumns(bins, fineDistance, fineUncertainty * smoothed_);
    Eigen::MatrixXd covariance = coarse * coarse.transpose() + fine * fine.transpose();
    covariance.diagonal() += (smoothed_.array().max(minVariance) +
                              (binUncertainty * smoothed_.array()).square() + bins.excess.array())
                                 .matrix();
    covariance_.compute(covariance);
}

Eigen::MatrixXd forwardSubstituted(const Eigen::LLT<Eigen::MatrixXd>& factors,
                                   const Eigen::MatrixXd& columns) {
    // Eigen's solver forms a reference to the first element, which an empty matrix lacks.
    return columns.size() == 0 ? columns : Eigen::MatrixXd(factors.matrixL().solve(columns));
}

Eigen::MatrixXd ScintillatorContinuum::whitened(const Eigen::MatrixXd& columns) const {
    return forwardSubstituted(covariance_, columns);
}

}  // namespace embedded::engines
