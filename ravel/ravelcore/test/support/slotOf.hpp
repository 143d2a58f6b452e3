#pragma once

#include <array>
#include <bit>
#include <cstddef>

namespace lumo::ravelcore::test {

/// Where a virtual function stands in the table of its class: in this platform's ABI its pointer to member holds 1 +
/// the offset in bytes. The destructor takes two slots.
template <typename Method>
std::size_t SlotOf(Method method)
{
    return static_cast<std::size_t>(std::bit_cast<std::array<std::ptrdiff_t, 2>>(method)[0] - 1) / sizeof(void*);
}

}  // namespace lumo::ravelcore::test
