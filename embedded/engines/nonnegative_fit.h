// Linear least squares with unknowns that must not be negative.
#ifndef PYORV3_EMBEDDED_ENGINES_NONNEGATIVE_FIT_H
#define PYORV3_EMBEDDED_ENGINES_NONNEGATIVE_FIT_H

#include <Eigen/Core>
#include <Eigen/SparseCore>
#include <vector>

namespace embedded::engines {

// The Cholesky factor of a symmetric, positive definite matrix that gains and loses rows. A change
// takes time proportional to the square of the size, a new factorisation would take its cube. The
// diagonal of the matrix should be about 1.
class UpdatedCholesky {
  public:
    Eigen::Index size() const { return size_; }

    // Appends a row and column to the matrix: its elements in the earlier columns and on the
    // diagonal. Returns false and changes nothing if the matrix would be singular.
    bool append(const Eigen::VectorXd& elements, double diagonal);

    // Removes a row and column; later ones move up.
    void remove(Eigen::Index position);

    // Returns the solution of matrix x = right.
    Eigen::VectorXd solve(const Eigen::VectorXd& right) const;

    // Returns the diagonal of the inverse matrix.
    Eigen::VectorXd inverseDiagonal() const;

  private:
    auto factor() const { return factor_.topLeftCorner(size_, size_); }

    Eigen::MatrixXd factor_;  // lower triangle; larger than the matrix
    Eigen::Index size_ = 0;
};

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
    Eigen::VectorXd variances() const;
    // Returns the values without one of the unknowns.
    Eigen::VectorXd valuesWithout(Eigen::Index unknown) const;
    // Holds an unknown at 0 from now on, much faster than a new fit without it.
    void exclude(Eigen::Index unknown);
    // Returns design values - observed.
    Eigen::VectorXd residuals(const Eigen::VectorXd& values) const;

  private:
    friend class ActiveSetMethod;

    // The free unknowns, which have the values that fit best; the others are held at 0.
    struct ActiveSet {
        Eigen::VectorXd values;  // scaled
        std::vector<Eigen::Index> free;
        UpdatedCholesky factor;  // of the matrix of the free unknowns
    };

    Eigen::VectorXd scale_;  // of each column, for a length of 1; 0 for an empty column
    Eigen::VectorXd lengths_;
    Eigen::SparseMatrix<double> design_;  // scaled
    Eigen::VectorXd observed_;
    Eigen::VectorXd penalties_;  // scaled
    Eigen::VectorXd right_;      // of the normal equations
    ActiveSet solution_;
    Eigen::VectorXd values_;
    std::vector<Eigen::Index> excluded_;
};

}  // namespace embedded::engines

#endif
