#include "embedded/engines/response_curve.h"

#include <Eigen/Cholesky>
#include <Eigen/LU>
#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <limits>

namespace embedded::engines {

namespace {

constexpr double neutralEnergy = 500.0;    // keV, at which the power has no effect
constexpr double windowAbsorption = 80.0;  // keV, of the assumed efficiency
constexpr double outlier = 3.0;            // standard deviations
constexpr double shared = 2.0;             // standard deviations beyond which a peak is shared
constexpr double thick = 1.5;              // standard deviations of an absorber
constexpr int maxIterationsOfPattern = 12;

// Prior standard deviations, and those beside the evidence of the lines: power, transparency, lead
// and iron.
const ResponseVector assumedEfficiency(0.7, 0.6, 1.5, 5.0);
const ResponseVector calibratedEfficiency(0.1, 0.1, 1.5, 5.0);
const ResponseVector ofOneNuclide(0.15, 0.2, 0.5, 2.0);
const ResponseVector shownByItsLines(0.3, 0.3, 1.5, 5.0);
constexpr std::size_t minLinesOfNuclide = 3;

ResponseMatrix diagonal(const ResponseVector& deviations) {
    return deviations.cwiseAbs2().asDiagonal();
}

// Solves normal equations whose last two unknowns, the absorbers, cannot be negative.
template <int Size>
Eigen::Matrix<double, Size, 1> solveWithAbsorbers(Eigen::Matrix<double, Size, Size> matrix,
                                                  Eigen::Matrix<double, Size, 1> right) {
    Eigen::Matrix<double, Size, 1> solution = matrix.ldlt().solve(right);
    for (int unknown = Size - 2; unknown < Size; ++unknown) {
        if (solution[unknown] < 0.0) {
            matrix.row(unknown).setZero();
            matrix.col(unknown).setZero();
            matrix(unknown, unknown) = 1.0;
            right[unknown] = 0.0;
            solution = matrix.ldlt().solve(right);
        }
    }
    return solution;
}

using PatternVector = Eigen::Matrix<double, 5, 1>;
using PatternMatrix = Eigen::Matrix<double, 5, 5>;

// Starting points: absorbers in g/cm2.
struct Absorbers {
    double lead;
    double iron;
};
constexpr std::array<Absorbers, 8> starts = {Absorbers{0, 0}, {3, 0},  {7, 0},  {14, 0},
                                             {0, 8},          {0, 20}, {0, 40}, {7, 20}};

class PatternSearch {
  public:
    PatternSearch(std::span<const LineRatio> ratios, const ResponseCurve& prior)
        : ratios_(ratios), prior_(prior), precision_(prior.covariance.inverse()) {}

    PatternVector start() const;
    double priorMisfit(const PatternVector& pattern) const;
    void refine(PatternVector& pattern, PatternMatrix& covariance) const;

  private:
    static double excess(const LineRatio& ratio, const PatternVector& pattern) {
        return (ratio.logarithm - pattern[0] - pattern.tail<4>().dot(ratio.terms)) /
               ratio.deviation;
    }
    static double cost(double deviation);
    static double weight(double deviation);
    double misfit(const PatternVector& pattern) const;
    ResponseVector priorDeviations(const PatternVector& pattern) const;
    ResponseMatrix precisionAt(const PatternVector& pattern) const;

    std::span<const LineRatio> ratios_;
    const ResponseCurve& prior_;
    ResponseMatrix precision_;
};

// A peak may have more counts than its line, because it may be shared. Fewer counts are a
// contradiction.
double PatternSearch::cost(double deviation) {
    return deviation > 0.0 ? shared * shared * -std::expm1(-std::pow(deviation / shared, 2))
                           : outlier * outlier * std::log1p(std::pow(deviation / outlier, 2));
}

// The derivative of the cost by the square of the deviation.
double PatternSearch::weight(double deviation) {
    return deviation > 0.0 ? std::exp(-std::pow(deviation / shared, 2))
                           : 1.0 / (1.0 + std::pow(deviation / outlier, 2));
}

// Thick absorbers are less improbable than in a normal distribution.
ResponseVector PatternSearch::priorDeviations(const PatternVector& pattern) const {
    return (pattern.tail<4>() - prior_.mean)
        .cwiseQuotient(prior_.covariance.diagonal().cwiseSqrt());
}

ResponseMatrix PatternSearch::precisionAt(const PatternVector& pattern) const {
    const ResponseVector deviations = priorDeviations(pattern);
    ResponseVector factors = ResponseVector::Ones();
    for (const Eigen::Index absorber : {2, 3}) {
        factors[absorber] = 1.0 / std::hypot(1.0, deviations[absorber] / thick);
    }
    return factors.asDiagonal() * precision_ * factors.asDiagonal();
}

double PatternSearch::priorMisfit(const PatternVector& pattern) const {
    const ResponseVector deviations = priorDeviations(pattern);
    double sum = deviations.head<2>().squaredNorm();
    for (const Eigen::Index absorber : {2, 3}) {
        sum += thick * thick * std::log1p(std::pow(deviations[absorber] / thick, 2));
    }
    return sum;
}

double PatternSearch::misfit(const PatternVector& pattern) const {
    double sum = priorMisfit(pattern);
    for (const LineRatio& ratio : ratios_) {
        const double deviation = excess(ratio, pattern);
        if (!ratio.isLimit || deviation < 0.0) {
            sum += cost(deviation);
        }
    }
    return sum;
}

// Tries which line and which absorbers fit best.
PatternVector PatternSearch::start() const {
    PatternVector best;
    double minSum = std::numeric_limits<double>::infinity();
    for (const Absorbers& absorbers : starts) {
        PatternVector pattern;
        pattern.tail<4>() = prior_.mean;
        pattern[3] = std::max(pattern[3], absorbers.lead);
        pattern[4] = std::max(pattern[4], absorbers.iron);
        for (const LineRatio& ratio : ratios_) {
            if (ratio.isLimit) {
                continue;
            }
            pattern[0] = ratio.logarithm - pattern.tail<4>().dot(ratio.terms);
            const double sum = misfit(pattern);
            if (sum < minSum) {
                minSum = sum;
                best = pattern;
            }
        }
    }
    return best;
}

// Iterated least squares.
void PatternSearch::refine(PatternVector& pattern, PatternMatrix& covariance) const {
    PatternMatrix matrix;
    for (int iteration = 0; iteration < maxIterationsOfPattern; ++iteration) {
        const ResponseMatrix precision = precisionAt(pattern);
        matrix.setZero();
        matrix.bottomRightCorner<4, 4>() = precision;
        PatternVector right = PatternVector::Zero();
        right.tail<4>() = precision * prior_.mean;
        for (const LineRatio& ratio : ratios_) {
            const double deviation = excess(ratio, pattern);
            if (ratio.isLimit && deviation >= 0.0) {
                continue;
            }
            const double certainty = weight(deviation) / std::pow(ratio.deviation, 2);
            PatternVector terms;
            terms << 1.0, ratio.terms;
            matrix += certainty * terms * terms.transpose();
            right += certainty * ratio.logarithm * terms;
        }
        const PatternVector next = solveWithAbsorbers<5>(matrix, right);
        const double change = (next - pattern).cwiseAbs().maxCoeff();
        pattern = next;
        if (change < 1e-4) {
            break;
        }
    }
    covariance = matrix.inverse();
}

}  // namespace

ResponseVector responseTerms(double energy) {
    const double window = energy / windowAbsorption;
    const Attenuation attenuation = attenuationAt(energy);
    return {std::log(energy / neutralEnergy), -std::log(-std::expm1(-window * window)),
            -attenuation.lead, -attenuation.iron};
}

ResponseCurve priorResponse(bool efficiencyIsAssumed) {
    return {ResponseVector::Zero(),
            diagonal(efficiencyIsAssumed ? assumedEfficiency : calibratedEfficiency)};
}

ResponseCurve responseOfNuclide(const ResponseCurve& common, std::size_t lines) {
    return {common.mean, common.covariance +
                             diagonal(lines < minLinesOfNuclide ? ofOneNuclide : shownByItsLines)};
}

double PatternFit::uncertainty(const ResponseVector& terms) const {
    PatternVector all;
    all << 1.0, terms;
    return std::sqrt(std::max(0.0, all.dot(covariance * all)));
}

PatternFit fitPattern(std::span<const LineRatio> ratios, const ResponseCurve& prior) {
    const PatternSearch search(ratios, prior);
    PatternVector pattern = search.start();
    PatternMatrix covariance;
    search.refine(pattern, covariance);
    return {pattern[0], pattern.tail<4>(), covariance, search.priorMisfit(pattern)};
}

CommonResponse::CommonResponse(const ResponseCurve& prior)
    : matrix_(prior.covariance.inverse()), right_(matrix_ * prior.mean) {}

// The scale drops out of the differences from the nuclide's mean.
void CommonResponse::add(std::span<const LineRatio> ratios, double trust,
                         const PatternFit& expected) {
    double weights = 0.0;
    double mean = 0.0;
    ResponseVector meanTerms = ResponseVector::Zero();
    ResponseMatrix products = ResponseMatrix::Zero();
    ResponseVector mixed = ResponseVector::Zero();
    for (const LineRatio& ratio : ratios) {
        const double deviation =
            (ratio.logarithm - expected.logarithm(ratio.terms)) / ratio.deviation;
        const double weight =
            trust / (1.0 + std::pow(deviation / outlier, 2)) / std::pow(ratio.deviation, 2);
        weights += weight;
        mean += weight * ratio.logarithm;
        meanTerms += weight * ratio.terms;
        products += weight * ratio.terms * ratio.terms.transpose();
        mixed += weight * ratio.logarithm * ratio.terms;
    }
    if (weights > 0.0) {
        matrix_ += products - meanTerms * meanTerms.transpose() / weights;
        right_ += mixed - mean * meanTerms / weights;
    }
}

ResponseCurve CommonResponse::fit() const {
    return {solveWithAbsorbers<4>(matrix_, right_), matrix_.inverse()};
}

namespace {

struct AttenuationRow {
    double energy;  // keV
    Attenuation coefficients;
};

// clang-format off
constexpr std::array attenuationRows = {
    // Generated by scripts/generate.
    AttenuationRow{10, {131, 171}},
    AttenuationRow{15, {112, 57.1}},
    AttenuationRow{20, {86.4, 25.7}},
    AttenuationRow{30, {30.3, 8.18}},
    AttenuationRow{40, {14.4, 3.63}},
    AttenuationRow{50, {8.04, 1.96}},
    AttenuationRow{60, {5.02, 1.205}},
    AttenuationRow{80, {2.42, 0.595}},
    AttenuationRow{88, {1.91, 0.488}},
    AttenuationRow{88.01, {7.68, 0.488}},
    AttenuationRow{100, {5.55, 0.372}},
    AttenuationRow{150, {2.01, 0.196}},
    AttenuationRow{200, {0.999, 0.146}},
    AttenuationRow{300, {0.403, 0.11}},
    AttenuationRow{400, {0.232, 0.094}},
    AttenuationRow{500, {0.161, 0.0841}},
    AttenuationRow{600, {0.125, 0.077}},
    AttenuationRow{800, {0.0887, 0.067}},
    AttenuationRow{1000, {0.071, 0.06}},
    AttenuationRow{1250, {0.0588, 0.0535}},
    AttenuationRow{1500, {0.0522, 0.0488}},
    AttenuationRow{2000, {0.0461, 0.0426}},
    AttenuationRow{3000, {0.0423, 0.0362}},
    // End of the generated lines.
};
// clang-format on

}  // namespace

// Interpolates the logarithms of energy and coefficients.
Attenuation attenuationAt(double energy) {
    const auto* const above =
        std::ranges::upper_bound(attenuationRows, energy, {}, &AttenuationRow::energy);
    if (above == attenuationRows.begin()) {
        return attenuationRows.front().coefficients;
    }
    if (above == attenuationRows.end()) {
        return attenuationRows.back().coefficients;
    }
    const auto& [lowEnergy, low] = *(above - 1);
    const auto& [highEnergy, high] = *above;
    const double part = std::log(energy / lowEnergy) / std::log(highEnergy / lowEnergy);
    return {low.lead * std::pow(high.lead / low.lead, part),
            low.iron * std::pow(high.iron / low.iron, part)};
}

}  // namespace embedded::engines
