#include "embedded/engines/scintillator_fit.h"

#include <Eigen/Cholesky>
#include <algorithm>
#include <array>
#include <cmath>
#include <iterator>
#include <limits>
#include <utility>

#include "embedded/engines/nonnegative_fit.h"

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
constexpr double sumUncertainty = 0.005;  // of one sum for each photon

// Radioactivity of lanthanum and cerium bromide whose peaks depend on the crystal: X-rays of
// barium, and alpha particles of the actinium-227 chain shown as energies of gamma rays.
struct OwnRadioactivity {
    double from;  // keV
    double to;
    double partOfContents;  // standard deviation in a bin
    double partOfAll;       // the same, of all counts in each FWHM, if it is smaller
};
constexpr std::array ownRadioactivities = {OwnRadioactivity{25.0, 48.0, 0.3, 0.15},
                                           OwnRadioactivity{1550.0, 2800.0, 0.5, 0.008}};

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

// Returns the standard deviation of the crystal's own radioactivity in each bin.
Eigen::VectorXd ownContents(const ScintillatorBins& bins, const Eigen::VectorXd& smoothed) {
    Eigen::VectorXd contents = Eigen::VectorXd::Zero(bins.size());
    const double total = bins.counts.sum();
    for (const OwnRadioactivity& own : ownRadioactivities) {
        for (Eigen::Index bin = 0; bin < bins.size(); ++bin) {
            if (bins.centre(bin) > own.from && bins.centre(bin) < own.to) {
                const double width = bins.positions[bin + 1] - bins.positions[bin];
                contents[bin] =
                    std::min(own.partOfContents * smoothed[bin], own.partOfAll * total * width);
            }
        }
    }
    return contents;
}

// Returns the number of diagonals below the main one that are not zero. Splines are local, so the
// covariance of a continuum has few.
Eigen::Index bandwidthOf(const Eigen::MatrixXd& lower) {
    Eigen::Index bandwidth = 0;
    for (Eigen::Index row = 0; row < lower.rows(); ++row) {
        Eigen::Index column = 0;
        while (column < row && lower(row, column) == 0.0) {
            ++column;
        }
        bandwidth = std::max(bandwidth, row - column);
    }
    return bandwidth;
}

}  // namespace

ScintillatorContinuum::ScintillatorContinuum(const ScintillatorBins& bins, bool hasLanthanum) {
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
    Eigen::VectorXd fineScales =
        fineUncertainty * smoothed_ + sumUncertainty * pileUpTemplate(bins);
    if (hasLanthanum) {
        fineScales += ownContents(bins, smoothed_);
    }
    const Eigen::MatrixXd fine = splineColumns(bins, fineDistance, fineScales);
    Eigen::MatrixXd covariance = coarse * coarse.transpose() + fine * fine.transpose();
    covariance.diagonal() += (smoothed_.array().max(minVariance) +
                              (binUncertainty * smoothed_.array()).square() + bins.excess.array())
                                 .matrix();
    factor_ = covariance.llt().matrixL();
    bandwidth_ = bandwidthOf(factor_);
}

Eigen::MatrixXd forwardSubstituted(const Eigen::LLT<Eigen::MatrixXd>& factors,
                                   const Eigen::MatrixXd& columns) {
    // Eigen's solver forms a reference to the first element, which an empty matrix lacks.
    return columns.size() == 0 ? columns : Eigen::MatrixXd(factors.matrixL().solve(columns));
}

Eigen::MatrixXd ScintillatorContinuum::whitened(const Eigen::MatrixXd& columns) const {
    using RowMajor = Eigen::Matrix<double, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor>;
    RowMajor rows = columns;
    for (Eigen::Index row = 0; row < rows.rows(); ++row) {
        for (Eigen::Index other = std::max<Eigen::Index>(0, row - bandwidth_); other < row;
             ++other) {
            rows.row(row) -= factor_(row, other) * rows.row(other);
        }
        rows.row(row) /= factor_(row, row);
    }
    return rows;
}

namespace {

constexpr double derivativeStep = 0.1;    // deviations of the detector state
constexpr double usedPart = 0.9;          // of the residuals, without the greatest
constexpr double meanOfUsedPart = 0.623;  // of chi-square with one degree of freedom
constexpr double maxDeviations = 3.0;     // beyond which a detector state is not plausible
constexpr double implausibleWeight = 10.0;
constexpr double ridge = 1e-6;  // for templates that do not differ from uncertainties or others
constexpr double minCurvature = 1e-30;
constexpr double minPartOfAssumed = 0.02;  // of the activity that uncertainties are computed for
constexpr double sameObjective = 2.0;
constexpr double freeActivity = 3.0;          // deviation of an activity that may have any value
constexpr double strongPartOfTemplate = 0.3;  // of a template's greatest content

// A few bins may have contents that no template describes. They must not make all others less
// certain.
double meanSquare(const Eigen::VectorXd& residuals) {
    Eigen::VectorXd squares = residuals.cwiseAbs2();
    std::ranges::sort(squares);
    const auto used = static_cast<Eigen::Index>(usedPart * static_cast<double>(squares.size()));
    return squares.head(used).mean() / meanOfUsedPart;
}

double implausibility(const Eigen::VectorXd& stateValues) {
    const Eigen::ArrayXd beyond = (stateValues.array().abs() - maxDeviations).max(0.0);
    return implausibleWeight * beyond.square().sum();
}

Eigen::MatrixXd joined(const std::vector<Eigen::VectorXd>& columns, Eigen::Index rows) {
    Eigen::MatrixXd matrix(rows, static_cast<Eigen::Index>(columns.size()));
    for (std::size_t number = 0; number < columns.size(); ++number) {
        matrix.col(static_cast<Eigen::Index>(number)) = columns[number];
    }
    return matrix;
}

}  // namespace

// Templates and uncertainties, both divided by the root of the continuum's covariance. The
// uncertainties are eliminated: with columns U of deviation 1, the inverse covariance becomes I - U
// (I + U'U)^-1 U'.
struct ScintillatorFit::System {
    System(Eigen::MatrixXd templates, Eigen::MatrixXd uncertainties, Eigen::VectorXd contents)
        : design(std::move(templates)),
          uncertain(std::move(uncertainties)),
          observed(std::move(contents)) {
        Eigen::MatrixXd information = Eigen::MatrixXd::Identity(uncertain.cols(), uncertain.cols());
        information.selfadjointView<Eigen::Lower>().rankUpdate(uncertain.transpose());
        factors.compute(information);
        shadow = forwardSubstituted(factors, uncertain.transpose() * design);
        right = design.transpose() * observed -
                shadow.transpose() * factors.matrixL().solve(uncertain.transpose() * observed);
    }

    double logDeterminant() const {
        return 2.0 * factors.matrixLLT().diagonal().array().log().sum();
    }

    Eigen::MatrixXd design;
    Eigen::MatrixXd uncertain;
    Eigen::VectorXd observed;
    Eigen::LLT<Eigen::MatrixXd> factors;
    Eigen::MatrixXd shadow;
    Eigen::VectorXd right;  // of the normal equations
};

ScintillatorFit::ScintillatorFit(const ScintillatorBins& bins, const Calibration& calibration,
                                 const CalibrationDeviations& deviations,
                                 std::span<const TemplateNuclide> nuclides)
    : bins_(bins),
      nuclides_(nuclides),
      continuum_(bins, mayContainLanthanum(calibration)),
      columns_(bins, calibration, deviations),
      observed_(bins.counts - continuum_.baseline()) {}

Eigen::MatrixXd ScintillatorFit::templates(std::span<const std::size_t> nuclides,
                                           const DetectorState& state) const {
    Eigen::MatrixXd matrix(bins_.size(), static_cast<Eigen::Index>(nuclides.size()));
    for (std::size_t number = 0; number < nuclides.size(); ++number) {
        matrix.col(static_cast<Eigen::Index>(number)) =
            columns_.nuclideTemplate(nuclides_[nuclides[number]], state);
    }
    return matrix;
}

// The detector state's columns first: the change of all peaks for one standard deviation.
Eigen::MatrixXd ScintillatorFit::uncertainties(const ScintillatorModel& model) const {
    std::vector<Eigen::VectorXd> columns;
    for (Eigen::Index member = 0; member < stateSize; ++member) {
        const auto pointer = ScintillatorColumns::stateMembers[static_cast<std::size_t>(member)];
        DetectorState up = model.state;
        DetectorState down = model.state;
        up.*pointer += derivativeStep * columns_.deviation(member);
        down.*pointer -= derivativeStep * columns_.deviation(member);
        columns.emplace_back((templates(model.nuclides, up) - templates(model.nuclides, down)) *
                             model.activities / (2.0 * derivativeStep));
    }
    for (std::size_t number = 0; number < model.nuclides.size(); ++number) {
        const double activity = model.activities[static_cast<Eigen::Index>(number)];
        std::ranges::move(
            columns_.ofNuclide(nuclides_[model.nuclides[number]], activity, model.state),
            std::back_inserter(columns));
    }
    Eigen::MatrixXd matrix(bins_.size(),
                           columns_.common().cols() + static_cast<Eigen::Index>(columns.size()));
    matrix << joined(columns, bins_.size()), columns_.common();
    return matrix;
}

// Returns the largest activities. Above them a nuclide would give more than twice the observed
// counts in every bin in which its template is strong.
Eigen::VectorXd ScintillatorFit::maxActivities(const Eigen::MatrixXd& templates) const {
    Eigen::VectorXd result = Eigen::VectorXd::Zero(templates.cols());
    for (Eigen::Index column = 0; column < templates.cols(); ++column) {
        const double strong = strongPartOfTemplate * templates.col(column).maxCoeff();
        for (Eigen::Index bin = 0; bin < templates.rows(); ++bin) {
            const double content = templates(bin, column);
            if (content > 0.0 && content >= strong) {
                result[column] =
                    std::max(result[column], 2.0 * (continuum_.smoothed()[bin] + 2.0) / content);
            }
        }
    }
    return result;
}

// Computes activities and likelihood for the model's detector state; returns a better state in
// deviations.
Eigen::VectorXd ScintillatorFit::pass(ScintillatorModel& model) const {
    const Eigen::VectorXd assumed = model.activities;
    const Eigen::MatrixXd uncertain = uncertainties(model);
    const Eigen::MatrixXd shapes = templates(model.nuclides, model.state);
    // The state's deviations are relative to the calibration, the templates belong to the state.
    const Eigen::VectorXd shifted =
        observed_ + uncertain.leftCols(stateSize) * columns_.inDeviations(model.state);
    const System system(continuum_.whitened(shapes), continuum_.whitened(uncertain),
                        continuum_.whitened(shifted));
    Eigen::MatrixXd normal =
        system.design.transpose() * system.design - system.shadow.transpose() * system.shadow;
    normal.diagonal() =
        normal.diagonal() * (1.0 + ridge) + Eigen::VectorXd::Constant(normal.cols(), minCurvature);
    const Eigen::LLT<Eigen::MatrixXd> factors(normal);
    const NonnegativeFit fit({factors.matrixU(), forwardSubstituted(factors, system.right),
                              Eigen::VectorXd::Zero(system.right.size())});
    model.activities = fit.values().cwiseMin(maxActivities(shapes));
    model.variances = fit.variances();

    const Eigen::VectorXd left = system.observed - system.design * model.activities;
    const Eigen::VectorXd half =
        system.factors.matrixL().solve(system.uncertain.transpose() * left);
    const Eigen::VectorXd values = system.factors.matrixU().solve(half);
    model.misfit = std::max(1.0, meanSquare(left - system.uncertain * values));
    const double objective = left.squaredNorm() - half.squaredNorm() + system.logDeterminant() +
                             implausibility(values.head(stateSize));
    // The uncertainties of a nuclide must not replace its template.
    const bool areUncertaintiesTooLarge =
        (model.activities.array() < minPartOfAssumed * assumed.array()).any();
    model.objective = std::isfinite(objective) && !areUncertaintiesTooLarge
                          ? objective
                          : std::numeric_limits<double>::max();
    return values.head(stateSize);
}

void ScintillatorFit::refine(ScintillatorModel& model, int passes) const {
    ScintillatorModel best;
    Eigen::VectorXd next;  // state after the best one, deviations
    for (int number = 0; number < passes; ++number) {
        const Eigen::VectorXd state = pass(model);
        if (number == 0 || model.objective <= best.objective + sameObjective) {
            best = model;
            next = state;
        } else {
            // The step was too long for the linear approximation.
            next = 0.5 * (columns_.inDeviations(best.state) + next);
            model.activities = best.activities;
        }
        model.state = columns_.limitedState(next);
    }
    model = std::move(best);
}

// Adds one template at a time to a model whose activities may change.
std::vector<Proposal> ScintillatorFit::proposals(const ScintillatorModel& model) const {
    std::vector<std::size_t> others;
    for (std::size_t nuclide = 0; nuclide < nuclides_.size(); ++nuclide) {
        if (std::ranges::find(model.nuclides, nuclide) == model.nuclides.end()) {
            others.push_back(nuclide);
        }
    }
    const Eigen::MatrixXd present = templates(model.nuclides, model.state);
    const Eigen::MatrixXd known = uncertainties(model);
    Eigen::MatrixXd uncertain(bins_.size(), known.cols() + present.cols());
    uncertain << known, present * (freeActivity * model.activities).asDiagonal();
    const System system(continuum_.whitened(templates(others, model.state)),
                        continuum_.whitened(uncertain),
                        continuum_.whitened(observed_ - present * model.activities));
    std::vector<Proposal> result;
    for (std::size_t number = 0; number < others.size(); ++number) {
        const auto column = static_cast<Eigen::Index>(number);
        const double slope = system.right[column];
        const double curvature =
            system.design.col(column).squaredNorm() - system.shadow.col(column).squaredNorm();
        if (slope > 0.0 && curvature > 0.0) {
            result.push_back({others[number], slope * slope / curvature, slope / curvature});
        }
    }
    std::ranges::sort(result, std::ranges::greater(), [this](const Proposal& proposal) {
        return proposal.gain - nuclides_[proposal.nuclide].rarity;
    });
    return result;
}

}  // namespace embedded::engines
