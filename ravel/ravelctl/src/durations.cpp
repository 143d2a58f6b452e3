#include "durations.hpp"

#include <algorithm>
#include <cmath>

namespace lumo::ravelctl {

std::optional<Percentiles> ComputePercentiles(std::vector<float> values_us)
{
    if (values_us.empty()) {
        return std::nullopt;
    }
    std::sort(values_us.begin(), values_us.end());
    const auto at = [&values_us](double fraction) {
        const auto rank = static_cast<std::size_t>(std::ceil(fraction * static_cast<double>(values_us.size())));
        return static_cast<double>(values_us[std::max<std::size_t>(rank, 1) - 1]);
    };
    return Percentiles{values_us.front(), at(0.5), at(0.99), at(0.999), values_us.back(), at(0.9999)};
}

}  // namespace lumo::ravelctl
