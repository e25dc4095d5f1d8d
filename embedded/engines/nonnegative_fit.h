// Linear least squares whose unknowns must not be negative.
#ifndef PYORV3_EMBEDDED_ENGINES_NONNEGATIVE_FIT_H
#define PYORV3_EMBEDDED_ENGINES_NONNEGATIVE_FIT_H

#include <Eigen/Core>

namespace embedded::engines {

struct NonnegativeFit {
    Eigen::VectorXd values;
    Eigen::VectorXd variances;  // of the unknowns that are not held at 0; 0 for the others
};

// The values x, none negative, that make |design x - observed| least; each row is already divided
// by the standard deviation of its observation. Method: the active sets of C. L. Lawson and R. J.
// Hanson, Solving Least Squares Problems (1974), chapter 23, on the normal equations (R. Bro and S.
// de Jong, J. Chemometrics 11 (1997) 393). Columns that cannot be told from others stay at 0.
NonnegativeFit fitNonnegative(const Eigen::MatrixXd& design, const Eigen::VectorXd& observed);

}  // namespace embedded::engines

#endif
