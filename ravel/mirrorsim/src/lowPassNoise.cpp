#include "numberText.hpp"

#include <lumo/mirrorsim/lowPassNoise.hpp>

#include <cmath>
#include <complex>
#include <numbers>
#include <stdexcept>
#include <string>

namespace lumo::mirrorsim {

LowPassNoise::LowPassNoise(double rms, double corner_hz, double period_s, std::mt19937_64& stream)
    : m_period_s(period_s)
{
    if (!(corner_hz > 0.0 && corner_hz * period_s < 0.5)) {
        throw std::invalid_argument("Expected a corner between 0 and half the cycle rate of " + ToText(0.5 / period_s) +
                                    " Hz but received " + ToText(corner_hz) + " Hz.");
    }
    const double angle = std::numbers::sqrt2 * std::numbers::pi * corner_hz * period_s;
    const std::complex<double> pole = std::exp(std::complex<double>(-angle, angle));
    m_a1 = 2.0 * pole.real();
    m_a2 = -std::norm(pole);
    // The stationary process of second order: its correlation over one period is r1 = a1 / (1 - a2), and its variance
    // follows from rms^2 (1 - a2^2) (1 - r1^2) = b^2. 1 - r1 is written so that no digits cancel at low corners.
    const double one_minus_r1 = std::norm(1.0 - pole) / (1.0 - m_a2);
    const double r1 = 1.0 - one_minus_r1;
    const double spread = std::sqrt(one_minus_r1 * (1.0 + r1));
    m_b = rms * std::sqrt(1.0 - m_a2 * m_a2) * spread;
    m_previous = rms * m_normal(stream);
    m_value = r1 * m_previous + rms * spread * m_normal(stream);
}

double LowPassNoise::Step(std::mt19937_64& stream)
{
    const double next = m_a1 * m_value + m_a2 * m_previous + m_b * m_normal(stream);
    m_previous = m_value;
    m_value = next;
    return m_value;
}

double LowPassNoise::PowerDensity(double frequency_hz) const
{
    const std::complex<double> delay =
        std::exp(std::complex<double>(0.0, -2.0 * std::numbers::pi * frequency_hz * m_period_s));
    return 2.0 * m_period_s * m_b * m_b / std::norm(1.0 - m_a1 * delay - m_a2 * delay * delay);
}

}  // namespace lumo::mirrorsim
