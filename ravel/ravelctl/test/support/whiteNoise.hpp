#pragma once

#include <cstddef>
#include <random>
#include <vector>

namespace lumo::ravelctl::test {

/// `count` independent values of a normal distribution; equal seeds give equal values.
inline std::vector<double> WhiteNoise(std::size_t count, double rms, unsigned seed)
{
    std::mt19937 generator(seed);
    std::normal_distribution<double> normal(0.0, rms);
    std::vector<double> noise(count);
    for (double& value : noise) {
        value = normal(generator);
    }
    return noise;
}

}  // namespace lumo::ravelctl::test
