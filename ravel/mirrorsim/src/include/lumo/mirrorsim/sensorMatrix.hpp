#pragma once

#include <lumo/mirrorsim/geometry.hpp>

#include <Eigen/Dense>
#include <Eigen/SparseCore>

namespace lumo::mirrorsim {

/// Directions of the actuators that no edge sensor sees: piston, tip, tilt and one that looks like focus.
inline constexpr int NUM_UNOBSERVABLE = 4;

/// What the edge sensors read of the actuators: readings = A heights, both in the same unit.
/// Thread:    any, not in the cycle.
/// Data:      NUM_ES x NUM_PACT; six elements in the row of each sensor, none in the row of an empty slot.
Eigen::SparseMatrix<double, Eigen::RowMajor> SensorMatrix(const Geometry& geometry);

/// The null space of the sensor matrix.
/// Thread:    any, not in the cycle.
/// Data:      NUM_PACT x NUM_UNOBSERVABLE, orthonormal columns N with A N = 0 to rounding.
Eigen::MatrixXd UnobservableDirections(const Geometry& geometry);

/// Takes the unobservable part out of each column of `shapes` (NUM_PACT rows): shapes - N N^T shapes.
/// Thread:    any, not in the cycle.
/// Data:      `directions` as UnobservableDirections gives them.
void RemoveUnobservable(const Eigen::MatrixXd& directions, Eigen::Ref<Eigen::MatrixXd> shapes);

}  // namespace lumo::mirrorsim
