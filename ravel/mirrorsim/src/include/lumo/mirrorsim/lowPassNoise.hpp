#pragma once

#include <random>

namespace lumo::mirrorsim {

/// Gaussian noise with a spectrum that is flat up to a corner and falls with the fourth power of the frequency above
/// it: white noise through a second-order filter whose poles are those of a Butterworth low-pass,
///
///     x[k] = a1 x[k-1] + a2 x[k-2] + b w[k],   poles exp(2 pi corner period (-1 +- i) / sqrt(2)).
///
/// It begins in its stationary state: every sample, also the first, has the given standard deviation.
/// Thread:    one.
/// Real time: yes; one value of a std::normal_distribution per step, no allocation.
class LowPassNoise
{
public:
    /// Draws the first sample from `stream`.
    /// Failure: std::invalid_argument unless 0 < corner_hz < half the cycle rate.
    LowPassNoise(double rms, double corner_hz, double period_s, std::mt19937_64& stream);

    /// Moves on by one period and returns the new sample.
    double Step(std::mt19937_64& stream);

    /// The present sample.
    double GetValue() const { return m_value; }

    /// One-sided power density at `frequency_hz`, in squared units per hertz; its integral from 0 to half the cycle
    /// rate is the variance.
    double PowerDensity(double frequency_hz) const;

private:
    double m_period_s;
    double m_a1;
    double m_a2;
    double m_b = 0.0;
    double m_value = 0.0;
    double m_previous = 0.0;
    std::normal_distribution<double> m_normal;
};

}  // namespace lumo::mirrorsim
