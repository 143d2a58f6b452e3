#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace lumo::ravelctl {

/// A command of the shell in lines of at most `width` letters, which can be copied as they stand: a line that the shell
/// would take for whole ends in a backslash. What is quoted stays in one line, however long. A comment at the end keeps
/// its mark in each of its lines.
std::vector<std::string> WrapCommand(const std::string& command, std::size_t width);

}  // namespace lumo::ravelctl
