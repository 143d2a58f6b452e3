#pragma once

#include <lumo/mirrorsim/geometry.hpp>
#include <lumo/mirrorsim/sensorMatrix.hpp>

#include <vector>

namespace lumo::mirrorsim {

/// Every mode that the edge sensors see.
inline constexpr int NUM_MODES = NUM_PACT - NUM_UNOBSERVABLE;

/// The control modes of the mirror and the three matrices that a segment-control task takes, row-major, no padding.
/// With A the sensor matrix, the modes are the eigenvectors V of A^T A (unit 2-norm over the NUM_PACT heights, so a
/// modal coordinate of 1 um is a surface of 1 / sqrt(NUM_PACT) um rms), ascending by eigenvalue, without the
/// unobservable directions. P2EDC A V is the identity.
struct ControlModes
{
    int num_modes = 0;
    std::vector<double> eigenvalues;  ///< num_modes, ascending: squared edge readings of a mode of unit norm
    std::vector<float> p2edc;         ///< num_modes x NUM_ES: Lambda^-1 V^T A^T; the columns of empty slots are 0
    std::vector<float> pact2modes;    ///< num_modes x NUM_PACT: V^T
    std::vector<float> modes2pact;    ///< NUM_PACT x num_modes: V
};

/// Computes the first `num_modes` control modes, those that the sensors see worst first.
/// The result is the same on every machine to about float rounding: the sign of each mode makes its first element of
/// largest magnitude positive, and modes of equal eigenvalue (the mirror's symmetry makes pairs) are turned to a fixed
/// orientation within their common space.
/// Thread:    any, not in the cycle; LAPACK may use further threads. The calculation is the same for any number of
///            modes: some seconds and some 300 MB.
/// Failure:   std::invalid_argument for `num_modes` outside 1..NUM_MODES; std::runtime_error when the
///            eigenvalue solver fails or does not find exactly NUM_UNOBSERVABLE unobservable directions.
ControlModes ComputeControlModes(const Geometry& geometry, int num_modes = NUM_MODES);

/// The first `num_modes` of the modes in `all`; each value is copied as it is.
/// Thread:    any, not in the cycle.
/// Failure:   std::invalid_argument for `num_modes` outside 1..all.num_modes, or when the sizes in `all` do not fit
///            its num_modes.
ControlModes SelectModes(const ControlModes& all, int num_modes);

}  // namespace lumo::mirrorsim
