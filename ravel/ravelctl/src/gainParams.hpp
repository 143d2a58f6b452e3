#pragma once

#include <lumo/ravelcore/pidFilter.hpp>

#include <array>

namespace lumo::ravelctl {

enum class Sign
{
    Any,
    NotNegative,
    Positive,
};

/// A parameter of a control channel as the user names it.
struct GainParam
{
    const char* name;
    const char* unit;
    Sign sign;
};

/// In the packed order. n = 0 gives NaN coefficients in a channel without a derivative, freq = 0 in every one.
inline constexpr std::array<GainParam, ravelcore::NUM_PID_FILTER_PARAMS> GAIN_PARAMS = {{
    {"kp", "", Sign::Any},
    {"ki", "", Sign::Any},
    {"kd", "seconds", Sign::NotNegative},
    {"karw", "", Sign::Any},
    {"bp", "", Sign::Any},
    {"tt", "seconds", Sign::NotNegative},
    {"n", "", Sign::Positive},
    {"ulow", "um", Sign::Any},
    {"uhigh", "um", Sign::Any},
    {"freq", "Hz", Sign::Positive},
}};

}  // namespace lumo::ravelctl
