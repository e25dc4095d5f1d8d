// Cholesky factor of a matrix that gains and loses rows.
#ifndef PYORV3_EMBEDDED_ENGINES_UPDATED_CHOLESKY_H
#define PYORV3_EMBEDDED_ENGINES_UPDATED_CHOLESKY_H

#include <Eigen/Core>

namespace embedded::engines {

// The factor of a symmetric, positive definite matrix. A change takes time proportional to the
// square of the size, a new factorisation would take its cube. The diagonal of the matrix should be
// about 1.
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

}  // namespace embedded::engines

#endif
