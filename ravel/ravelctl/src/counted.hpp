#pragma once

#include <cstdint>
#include <string>

namespace lumo::ravelctl {

/// "1 cycle", "2 cycles".
inline std::string Counted(std::int64_t number, const std::string& what)
{
    return std::to_string(number) + " " + what + (number == 1 ? "" : "s");
}

}  // namespace lumo::ravelctl
