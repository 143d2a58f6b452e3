#pragma once

#include "commandOutline.hpp"

#include <string>

namespace lumo::ravelctl {

/// The manual page ravelctl(1), for man and groff. `version` as in VERSION.
std::string FormatManPage(const ProgramOutline& program, const std::string& version);

}  // namespace lumo::ravelctl
