#include "randomStream.hpp"

#include <lumo/mirrorsim/disturbance.hpp>
#include <lumo/mirrorsim/smoothShapes.hpp>

#include <cmath>
#include <numbers>
#include <stdexcept>
#include <string>

namespace lumo::mirrorsim {

namespace {

/// The drift is made of the lowest orders, all with the same amplitude: what gravity and temperature do slowly.
constexpr int DRIFT_MAX_ORDER = 3;

/// Coefficient of each smooth shape for a drift of one unit rms.
Eigen::VectorXd DriftCoefficients(const SmoothShapes& shapes)
{
    Eigen::VectorXd coefficients(NUM_SHAPES);
    for (Eigen::Index i = 0; i < NUM_SHAPES; ++i) {
        coefficients[i] = shapes.orders.at(static_cast<std::size_t>(i)) <= DRIFT_MAX_ORDER ? 1.0 : 0.0;
    }
    const Eigen::VectorXd heights = shapes.heights * coefficients;
    return coefficients * std::sqrt(static_cast<double>(NUM_PACT)) / heights.norm();
}

}  // namespace

Disturbance::Disturbance(const Geometry& geometry, const MirrorConfig& config, std::span<const float> modes2pact,
                         int num_modes)
    : m_config(config), m_stream(RandomStream(config.seed, Purpose::WIND)), m_heights(Eigen::VectorXd::Zero(NUM_PACT))
{
    CheckMirrorConfig(config);
    const SmoothShapes shapes = ComputeSmoothShapes(geometry);
    m_wind.reserve(NUM_SHAPES);
    for (const double weight : shapes.weights) {
        m_wind.emplace_back(config.wind_rms_um * weight, config.wind_corner_hz, config.period_s, m_stream);
    }
    m_drift = DriftCoefficients(shapes) * config.drift_um_per_s * config.period_s;
    const auto num_tones = static_cast<Eigen::Index>(config.tones.size());
    m_shapes.resize(NUM_PACT, NUM_SHAPES + num_tones);
    m_shapes.leftCols(NUM_SHAPES) = shapes.heights;
    m_coefficients.setZero(NUM_SHAPES + num_tones);
    AddTones(modes2pact, num_modes);
    Update();
}

void Disturbance::AddTones(std::span<const float> modes2pact, int num_modes)
{
    const auto expected = static_cast<std::size_t>(NUM_PACT) * static_cast<std::size_t>(num_modes < 0 ? 0 : num_modes);
    if (num_modes < 0 || modes2pact.size() != expected) {
        throw std::invalid_argument("Expected MODES2PACT of " + std::to_string(expected) + " elements for " +
                                    std::to_string(num_modes) + " modes but received one of " +
                                    std::to_string(modes2pact.size()) + ".");
    }
    Eigen::Index column = NUM_SHAPES;
    for (const Tone& tone : m_config.tones) {
        if (tone.mode >= num_modes) {
            throw std::invalid_argument("Expected a tone on one of " + std::to_string(num_modes) +
                                        " modes, whose shapes are given, but received one on mode " +
                                        std::to_string(tone.mode) + ".");
        }
        for (Eigen::Index actuator = 0; actuator < NUM_PACT; ++actuator) {
            m_shapes(actuator, column) = modes2pact[static_cast<std::size_t>(actuator * num_modes + tone.mode)];
        }
        ++column;
    }
}

void Disturbance::Step()
{
    ++m_cycle;
    for (LowPassNoise& wind : m_wind) {
        wind.Step(m_stream);
    }
    Update();
}

void Disturbance::Update()
{
    const auto cycle = static_cast<double>(m_cycle);
    for (std::size_t i = 0; i < m_wind.size(); ++i) {
        const auto shape = static_cast<Eigen::Index>(i);
        m_coefficients[shape] = m_wind[i].GetValue() + m_drift[shape] * cycle;
    }
    Eigen::Index column = NUM_SHAPES;
    for (const Tone& tone : m_config.tones) {
        // Whole turns go first: the sine of a small angle is exact to the last digits even after days.
        const double turns = std::fmod(tone.frequency_hz * m_config.period_s * cycle, 1.0);
        m_coefficients[column++] = tone.amplitude_um * std::sin(2.0 * std::numbers::pi * turns);
    }
    // Shape by shape: the sum stays in the first-level cache, and its order is the same for any number of tones.
    m_heights.setZero();
    for (Eigen::Index i = 0; i < m_shapes.cols(); ++i) {
        m_heights += m_coefficients[i] * m_shapes.col(i);
    }
}

}  // namespace lumo::mirrorsim
