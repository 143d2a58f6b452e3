#pragma once

#include <lumo/mirrorsim/geometry.hpp>

#include <Eigen/Dense>

#include <vector>

namespace lumo::mirrorsim {

inline constexpr int SHAPE_MIN_ORDER = 2;
inline constexpr int SHAPE_MAX_ORDER = 6;
/// Zernike polynomials of radial orders 2 to 6, without focus: at the actuator points that one is unobservable
/// altogether.
inline constexpr int NUM_SHAPES = 24;

/// Smooth shapes of the whole mirror, and how much of each its disturbances hold.
struct SmoothShapes
{
    Eigen::MatrixXd heights;      ///< NUM_PACT x NUM_SHAPES at the actuator points; each column has an rms of 1
    std::vector<int> orders;      ///< radial order n of each shape
    std::vector<double> weights;  ///< relative amplitudes, as n^-2; their squares add up to 1
};

/// The shapes are Zernike polynomials on the circle that holds all actuators, less their unobservable part (which
/// RemoveUnobservable takes out): what is left is all there for the edge sensors to see, and an rms of 1 means that.
/// With independent coefficients of standard deviation rms x weight the mean square over all points and time is rms^2.
/// Thread: any, not in the cycle.
SmoothShapes ComputeSmoothShapes(const Geometry& geometry);

}  // namespace lumo::mirrorsim
