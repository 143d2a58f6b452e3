#include "modeDisturbance.hpp"

#include "reportMath.hpp"

#include <algorithm>
#include <cmath>

namespace lumo::ravelctl {

namespace {

double Variance(std::span<const double> series)
{
    double sum = 0.0;
    double squares = 0.0;
    for (const double value : series) {
        sum += value;
        squares += value * value;
    }
    const auto count = static_cast<double>(series.size());
    return std::max(0.0, squares / count - (sum / count) * (sum / count));
}

}  // namespace

std::int64_t CyclesToForget(const Plant& plant)
{
    constexpr double REST = 1.0e-7;
    const double kept = 1.0 - plant.lag_coefficient;  // of the position, in each cycle
    const double cycles = kept > REST ? std::ceil(std::log(REST) / std::log(kept)) : 1.0;
    return static_cast<std::int64_t>(cycles) + plant.delay_cycles + 1;
}

std::vector<double> DeriveDisturbance(std::span<const double> measured_um, std::span<const double> command_um,
                                      const Plant& plant)
{
    const auto forgotten = static_cast<std::size_t>(CyclesToForget(plant));
    const std::size_t count = std::min(measured_um.size(), command_um.size());
    if (count <= forgotten) {
        return {};
    }
    const auto delay = static_cast<std::size_t>(plant.delay_cycles);
    std::vector<double> disturbance;
    disturbance.reserve(count - forgotten);
    double position = command_um.front();
    for (std::size_t k = 0; k < count; ++k) {
        if (k >= forgotten) {
            disturbance.push_back(measured_um[k] - position);
        }
        if (k >= delay) {  // p[k+1] = p[k] + a (u[k - delay] - p[k])
            position += plant.lag_coefficient * (command_um[k - delay] - position);
        }
    }
    return disturbance;
}

double EstimateNoiseVariance(std::span<const double> series)
{
    constexpr int SHORTEST_SEGMENT = 32;
    constexpr int LONGEST_SEGMENT = 512;
    constexpr int MOST_SEGMENTS = 256;
    const auto count = static_cast<std::int64_t>(series.size());
    const int length = SegmentLength(count, SHORTEST_SEGMENT, LONGEST_SEGMENT);
    if (length == 0) {
        return 0.0;
    }
    Welch welch(length, 1.0);  // per cycle: white noise of variance 1 has the density 2
    const std::vector<std::int64_t> starts = SegmentStarts(count, length, MOST_SEGMENTS);
    for (const std::int64_t start : starts) {
        welch.Add(series.subspan(static_cast<std::size_t>(start), static_cast<std::size_t>(length)));
    }
    const auto first = static_cast<std::ptrdiff_t>(length / 4);
    std::vector<double> upper(welch.GetSum().begin() + first, welch.GetSum().end() - 1);
    const auto middle = upper.begin() + static_cast<std::ptrdiff_t>(upper.size() / 2);
    std::nth_element(upper.begin(), middle, upper.end());
    // The median of a sum of squares lies below its mean; half overlapping segments count for about 0.95 each.
    const double freedom = 2.0 * std::max(1.0, 0.95 * static_cast<double>(starts.size()));
    const double median_to_mean = std::pow(1.0 - 2.0 / (9.0 * freedom), 3);
    const double density = *middle / static_cast<double>(starts.size()) / median_to_mean;
    return std::min(0.5 * density, Variance(series));
}

}  // namespace lumo::ravelctl
