#pragma once

#include <cstdint>
#include <random>

namespace lumo::mirrorsim {

/// What a stream of random numbers is drawn for. The values are part of what a seed means.
enum class Purpose : std::uint32_t
{
    WIND = 1,
    NOISE = 2,
    START = 3
};

/// An independent stream for each purpose, so that switching one off leaves the others' numbers as they were. The bits
/// of mt19937_64 and seed_seq are fixed by the C++ standard; those of std::normal_distribution by the C++ library.
inline std::mt19937_64 RandomStream(std::uint64_t seed, Purpose purpose)
{
    std::seed_seq sequence{static_cast<std::uint32_t>(seed), static_cast<std::uint32_t>(seed >> 32U),
                           static_cast<std::uint32_t>(purpose)};
    return std::mt19937_64(sequence);
}

}  // namespace lumo::mirrorsim
