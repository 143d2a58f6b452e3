#pragma once

#include "error.hpp"
#include "figureText.hpp"

#include <fmt/core.h>

#include <string>
#include <type_traits>

namespace lumo::ravelctl {

/// Failure: InputError for a value that is not within `low` to `high`, such as NaN. `unit`: " Hz" and the like, or "".
template <typename T>
void CheckRange(const std::string& option, T value, T low, T high, const char* unit)
{
    if (value >= low && value <= high) {  // which NaN is not
        return;
    }
    if constexpr (std::is_floating_point_v<T>) {
        const std::string least = FormatFigure(low);
        const std::string most = FormatFigure(high);
        const std::string text = FormatFigure(value);
        const bool is_like_a_limit = text == least || text == most;
        throw InputError(fmt::format("{}: expected {} to {}{} but got {}", option, least, most, unit,
                                     is_like_a_limit ? fmt::format("{}", value) : text));
    } else {
        throw InputError(fmt::format("{}: expected {} to {}{} but got {}", option, low, high, unit, value));
    }
}

/// For the parser's check(): what is read into an unsigned number would take -1 for the largest one.
inline std::string CheckNotNegative(const std::string& text)
{
    return text.find('-') == std::string::npos ? "" : "expected 0 or above but got " + text;
}

}  // namespace lumo::ravelctl
