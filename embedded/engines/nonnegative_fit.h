// Linear least squares with unknowns that must not be negative.
#ifndef PYORV3_EMBEDDED_ENGINES_NONNEGATIVE_FIT_H
#define PYORV3_EMBEDDED_ENGINES_NONNEGATIVE_FIT_H

#include <Eigen/Core>
#include <vector>

namespace embedded::engines {

// Minimises |design x - observed|^2 + sum of penalties x^2. Each row is already divided by the
// standard deviation of its observation.
struct NonnegativeProblem {
    Eigen::MatrixXd design;
    Eigen::VectorXd observed;
    Eigen::VectorXd penalties;
};

// Solves a problem, optionally without one of its unknowns, by the active-set method of C. L.
// Lawson and R. J. Hanson, Solving Least Squares Problems (1974), chapter 23, on the normal
// equations. Columns that depend linearly on others stay at 0.
class NonnegativeFit {
  public:
    explicit NonnegativeFit(const NonnegativeProblem& problem);

    const Eigen::VectorXd& values() const { return values_; }
    // Variances of the free unknowns; 0 for unknowns held at 0.
    const Eigen::VectorXd& variances() const { return variances_; }
    // Returns the values without one of the unknowns.
    Eigen::VectorXd valuesWithout(Eigen::Index unknown);

  private:
    friend class ActiveSetMethod;

    const Eigen::VectorXd& normalColumn(Eigen::Index unknown);

    Eigen::VectorXd scale_;   // of each column, for a length of 1
    Eigen::MatrixXd design_;  // scaled
    Eigen::VectorXd penalties_;
    Eigen::VectorXd right_;                       // of the normal equations
    std::vector<Eigen::VectorXd> normalColumns_;  // of their matrix, computed when needed
    Eigen::VectorXd scaledValues_;
    Eigen::VectorXd values_;
    Eigen::VectorXd variances_;
};

}  // namespace embedded::engines

#endif
