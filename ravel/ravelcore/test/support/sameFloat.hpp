#pragma once

#include <bit>
#include <cmath>
#include <cstdint>

namespace lumo::ravelcore::test {

/// Same bits, the sign of zero included, or both no number: sign and payload of a NaN are the compiler's and the
/// processor's choice.
inline bool IsSame(float one, float other)
{
    return (std::isnan(one) && std::isnan(other)) ||
           std::bit_cast<std::uint32_t>(one) == std::bit_cast<std::uint32_t>(other);
}

}  // namespace lumo::ravelcore::test
