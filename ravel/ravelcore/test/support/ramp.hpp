#pragma once

#include <cstddef>
#include <numeric>
#include <vector>

namespace lumo::ravelcore::test {

/// `size` numbers, each 1 more than the one before: data in which every element has a place of its own.
inline std::vector<float> Ramp(std::size_t size, float first = 1.0F)
{
    std::vector<float> values(size);
    std::iota(values.begin(), values.end(), first);
    return values;
}

}  // namespace lumo::ravelcore::test
