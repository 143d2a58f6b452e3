#include "figureText.hpp"

#include <fmt/core.h>

#include <cmath>
#include <cstdlib>

namespace lumo::ravelctl {

std::string FormatFigure(double value)
{
    const double rounded = std::strtod(fmt::format("{:.6g}", value).c_str(), nullptr);
    return fmt::format("{}", std::isfinite(value) ? rounded : value);
}

}  // namespace lumo::ravelctl
