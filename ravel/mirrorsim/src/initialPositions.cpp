#include "initialPositions.hpp"

#include "randomStream.hpp"

#include <lumo/mirrorsim/sensorMatrix.hpp>
#include <lumo/mirrorsim/smoothShapes.hpp>

#include <cmath>
#include <random>

namespace lumo::mirrorsim {

namespace {

// Rms relative to the smooth shape.
constexpr double RIPPLE = 0.05;    // errors a few segments wide: the least smooth that some hundred modes still reach
constexpr double SCATTER = 0.001;  // errors of single actuators: what only all modes reach
constexpr double RIPPLE_WIDTH_M = 2.0 * PITCH_M;

Eigen::VectorXd RandomHeights(std::mt19937_64& stream)
{
    std::normal_distribution<double> normal;
    Eigen::VectorXd heights(NUM_PACT);
    for (double& height : heights) {
        height = normal(stream);
    }
    return heights;
}

/// Errors that are alike over a few segments, as gravity and heat leave them, 1 rms: a random bump of Gaussian shape on
/// each segment, added up over the actuators.
Eigen::VectorXd Ripple(const Geometry& geometry, std::mt19937_64& stream)
{
    std::normal_distribution<double> normal;
    Eigen::VectorXd heights = Eigen::VectorXd::Zero(NUM_PACT);
    for (const Segment& segment : geometry.GetSegments()) {
        const double bump = normal(stream);
        Eigen::Index i = 0;
        for (const Point& at : geometry.GetActuators()) {
            const double distance = std::hypot(at.x_m - segment.x_m, at.y_m - segment.y_m) / RIPPLE_WIDTH_M;
            heights[i++] += bump * std::exp(-0.5 * distance * distance);
        }
    }
    return heights * (std::sqrt(static_cast<double>(NUM_PACT)) / heights.norm());
}

}  // namespace

std::vector<double> InitialPositions(const Geometry& geometry, const MirrorConfig& config)
{
    std::mt19937_64 stream = RandomStream(config.seed, Purpose::START);
    std::normal_distribution<double> normal;
    const SmoothShapes shapes = ComputeSmoothShapes(geometry);
    Eigen::VectorXd heights = Eigen::VectorXd::Zero(NUM_PACT);
    for (Eigen::Index i = 0; i < NUM_SHAPES; ++i) {
        heights += shapes.weights.at(static_cast<std::size_t>(i)) * normal(stream) * shapes.heights.col(i);
    }
    heights += RIPPLE * Ripple(geometry, stream);
    heights += SCATTER * RandomHeights(stream);
    RemoveUnobservable(UnobservableDirections(geometry), heights);
    heights *= config.initial_rms_um * std::sqrt(static_cast<double>(NUM_PACT)) / heights.norm();

    std::vector<double> positions;
    positions.reserve(NUM_PACT);
    for (const double height : heights) {
        positions.push_back(static_cast<double>(static_cast<float>(height)));
    }
    return positions;
}

}  // namespace lumo::mirrorsim
