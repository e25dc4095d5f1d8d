// The normal equations of a weighted least-squares problem with a few unknowns.
#ifndef PYORV3_EMBEDDED_ENGINES_NORMAL_EQUATIONS_H
#define PYORV3_EMBEDDED_ENGINES_NORMAL_EQUATIONS_H

#include <cstddef>
#include <optional>
#include <span>
#include <vector>

namespace embedded::engines {

// Collects observations, each with the derivatives of its model value by the unknowns, the residual
// (observed less model) and the weight (1 / variance); then gives the step that minimises the
// weighted sum of squares, and the variances of the unknowns.
class NormalEquations {
  public:
    explicit NormalEquations(std::size_t unknowns);

    void add(std::span<const double> derivatives, double residual, double weight);

    // The step of the unknowns, the diagonal enlarged by the factor 1 + damping as Marquardt does
    // (J. Soc. Ind. Appl. Math. 11 (1963) 431); nothing where the equations are singular.
    std::optional<std::vector<double>> step(double damping) const;

    // The variance of each unknown: the diagonal of the inverse matrix; nothing where singular.
    std::optional<std::vector<double>> variances() const;

  private:
    using Matrix = std::vector<double>;

    std::optional<Matrix> factor(double damping) const;
    std::vector<double> solve(const Matrix& lower, std::vector<double> right) const;

    std::size_t size_;
    Matrix matrix_;  // lower triangle, row by row
    std::vector<double> right_;
};

}  // namespace embedded::engines

#endif
