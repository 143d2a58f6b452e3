#pragma once

#include <Eigen/Dense>

namespace lumo::mirrorsim {

/// Checks that the sensors leave as many directions unseen as they should, and no more. `eigenvalues`: of the normal
/// matrix of the sensors, ascending, more than NUM_UNOBSERVABLE. Thread: any, not in the cycle.
/// Failure: std::runtime_error that names the two eigenvalues between which the gap must be.
void CheckUnobservable(const Eigen::VectorXd& eigenvalues);

}  // namespace lumo::mirrorsim
