#pragma once

#include "commandOutline.hpp"

#include <string>

namespace lumo::ravelctl {

/// A script that completes commands, options and values in bash. It needs nothing but bash.
std::string FormatBashCompletion(const ProgramOutline& program);

}  // namespace lumo::ravelctl
