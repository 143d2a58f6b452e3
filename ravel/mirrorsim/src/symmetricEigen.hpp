#pragma once

#include <Eigen/Dense>

namespace lumo::mirrorsim {

/// Eigenvalues in ascending order and, column by column, the orthonormal eigenvectors that belong to them.
struct SymmetricEigen
{
    Eigen::VectorXd values;
    Eigen::MatrixXd vectors;
};

/// Solves a symmetric eigenproblem with LAPACK's divide and conquer. Thread: any, not in the cycle.
/// Failure: std::runtime_error when the solver does not converge.
SymmetricEigen SolveSymmetricEigen(Eigen::MatrixXd matrix);

/// Makes eigenvectors the same wherever they are computed: turns those of equal eigenvalue (closer than `tolerance`)
/// to a fixed orientation within their common space, and signs each so that its first element of largest magnitude is
/// positive. Thread: any, not in the cycle.
void FixOrientation(SymmetricEigen& eigen, double tolerance);

}  // namespace lumo::mirrorsim
