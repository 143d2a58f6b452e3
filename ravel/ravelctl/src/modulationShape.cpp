#include "modulationShape.hpp"

#include <cmath>
#include <functional>
#include <numbers>
#include <random>

namespace lumo::ravelctl {

namespace {

/// Sine of a phase in turns. Whole turns go first: that of a small angle is exact to the last digits even after days.
double SineOfTurns(double turns)
{
    return std::sin(2.0 * std::numbers::pi * std::fmod(turns, 1.0));
}

/// White Gaussian noise of standard deviation 1 by the method of Box and Muller. The bits of mt19937_64 are fixed by
/// the C++ standard, those of std::normal_distribution are not.
class WhiteNoise
{
public:
    explicit WhiteNoise(std::uint64_t seed) : m_stream(seed) {}

    double GetNext()
    {
        if (m_has_second) {
            m_has_second = false;
            return m_second;
        }
        const double radius = std::sqrt(-2.0 * std::log(1.0 - DrawUniform()));  // the logarithm of 0 is never taken
        const double angle = 2.0 * std::numbers::pi * DrawUniform();
        m_second = radius * std::sin(angle);
        m_has_second = true;
        return radius * std::cos(angle);
    }

private:
    /// 0 or above, below 1, all 53 bits random.
    double DrawUniform() { return std::ldexp(static_cast<double>(m_stream() >> 11U), -53); }

    std::mt19937_64 m_stream;
    double m_second = 0.0;
    bool m_has_second = false;
};

/// What each value of the shape is, given its time since the shape began, for an amplitude of 1.
std::function<double(double)> MakeShape(const ModulationOptions& options, const ModulationPlan& plan)
{
    const double from_hz = plan.frequency_hz;
    switch (options.shape) {
        case ModulationShape::Sine:
            return [from_hz](double time_s) {
                return SineOfTurns(from_hz * time_s);
            };
        case ModulationShape::Chirp: {
            const double length_s = (plan.samples - plan.first_sample) / options.rate_hz;
            const double half_slope = 0.5 * (plan.to_hz - from_hz) / length_s;  // Hz per second
            return [from_hz, half_slope](double time_s) {
                return SineOfTurns((from_hz + half_slope * time_s) * time_s);
            };
        }
        case ModulationShape::Noise:
            return [noise = WhiteNoise(plan.seed)](double /*time_s*/) mutable {
                return noise.GetNext();
            };
        case ModulationShape::Step:
            break;
    }
    return [](double /*time_s*/) {
        return 1.0;
    };
}

}  // namespace

std::vector<float> MakeModulation(const ModulationOptions& options)
{
    const ModulationPlan plan = PlanModulation(options);
    const std::function<double(double)> shape = MakeShape(options, plan);
    const bool differs_by_mode = options.shape == ModulationShape::Noise;
    const auto modes = static_cast<std::size_t>(options.modes);
    std::vector<float> values(static_cast<std::size_t>(plan.samples) * modes);
    for (int sample = plan.first_sample; sample < plan.samples; ++sample) {
        const double time_s = (sample - plan.first_sample) / options.rate_hz;
        double value = 0.0;
        for (const int mode : plan.on) {
            if (differs_by_mode || mode == plan.on.front()) {
                value = options.amplitude_um * shape(time_s);
            }
            values[static_cast<std::size_t>(sample) * modes + static_cast<std::size_t>(mode)] =
                static_cast<float>(value);
        }
    }
    return values;
}

}  // namespace lumo::ravelctl
