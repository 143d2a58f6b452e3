#pragma once

#include <array>
#include <charconv>
#include <string>

namespace lumo::mirrorsim {

/// A number as messages show it: with as few digits as say which one it is, however small or large. Thread: any, not in
/// the cycle.
inline std::string ToText(double value)
{
    std::array<char, 32> digits{};  // the longest take 24
    const std::to_chars_result result = std::to_chars(digits.data(), digits.data() + digits.size(), value);
    return {digits.data(), result.ptr};
}

}  // namespace lumo::mirrorsim
