#include "durations.hpp"

#include <algorithm>
#include <cmath>

namespace lumo::ravelctl {

std::optional<Percentiles> Durations::ComputePercentiles() const
{
    if (m_values_us.empty()) {
        return std::nullopt;
    }
    std::vector<float> sorted = m_values_us;
    std::sort(sorted.begin(), sorted.end());
    const auto at = [&sorted](double fraction) {
        const auto rank = static_cast<std::size_t>(std::ceil(fraction * static_cast<double>(sorted.size())));
        return static_cast<double>(sorted[std::max<std::size_t>(rank, 1) - 1]);
    };
    return Percentiles{sorted.front(), at(0.5), at(0.99), at(0.999), sorted.back()};
}

}  // namespace lumo::ravelctl
