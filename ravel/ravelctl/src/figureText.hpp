#pragma once

#include <string>

namespace lumo::ravelctl {

/// A figure for a message, in six significant digits: what is computed, such as 0.9 x 0.1, has more of them that mean
/// nothing. Without an exponent where the shortest text of the number has none.
std::string FormatFigure(double value);

}  // namespace lumo::ravelctl
