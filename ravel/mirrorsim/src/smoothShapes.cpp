#include <lumo/mirrorsim/sensorMatrix.hpp>
#include <lumo/mirrorsim/smoothShapes.hpp>

#include <algorithm>
#include <cmath>

namespace lumo::mirrorsim {

namespace {

double Factorial(int n)
{
    return std::tgamma(n + 1.0);
}

/// The radial polynomial of Zernike, n >= m >= 0, n - m even.
double ZernikeRadial(int n, int m, double radius)
{
    double sum = 0.0;
    for (int k = 0; k <= (n - m) / 2; ++k) {
        const double coefficient =
            Factorial(n - k) / (Factorial(k) * Factorial((n + m) / 2 - k) * Factorial((n - m) / 2 - k));
        sum += (k % 2 == 0 ? coefficient : -coefficient) * std::pow(radius, n - 2 * k);
    }
    return sum;
}

/// m < 0 is the sine.
double Zernike(int n, int m, double radius, double angle)
{
    const double azimuthal = m < 0 ? std::sin(-m * angle) : std::cos(m * angle);
    return ZernikeRadial(n, std::abs(m), radius) * azimuthal;
}

Eigen::VectorXd ZernikeHeights(const Geometry& geometry, int n, int m)
{
    double outer_radius = 0.0;
    for (const Point& at : geometry.GetActuators()) {
        outer_radius = std::max(outer_radius, std::hypot(at.x_m, at.y_m));
    }
    Eigen::VectorXd heights(NUM_PACT);
    Eigen::Index i = 0;
    for (const Point& at : geometry.GetActuators()) {
        heights[i++] = Zernike(n, m, std::hypot(at.x_m, at.y_m) / outer_radius, std::atan2(at.y_m, at.x_m));
    }
    return heights;
}

}  // namespace

SmoothShapes ComputeSmoothShapes(const Geometry& geometry)
{
    SmoothShapes shapes;
    shapes.heights.resize(NUM_PACT, NUM_SHAPES);
    double sum_of_squares = 0.0;
    Eigen::Index column = 0;
    for (int n = SHAPE_MIN_ORDER; n <= SHAPE_MAX_ORDER; ++n) {
        for (int m = -n; m <= n; m += 2) {
            if (n == 2 && m == 0) {
                continue;  // focus: all the actuators of the mirror stand at one distance from their segment's centre
            }
            shapes.heights.col(column++) = ZernikeHeights(geometry, n, m);
            shapes.orders.push_back(n);
            shapes.weights.push_back(std::pow(n, -2.0));
            sum_of_squares += shapes.weights.back() * shapes.weights.back();
        }
    }
    RemoveUnobservable(UnobservableDirections(geometry), shapes.heights);
    for (auto shape : shapes.heights.colwise()) {
        shape *= std::sqrt(static_cast<double>(NUM_PACT)) / shape.norm();
    }
    for (double& weight : shapes.weights) {
        weight /= std::sqrt(sum_of_squares);
    }
    return shapes;
}

}  // namespace lumo::mirrorsim
