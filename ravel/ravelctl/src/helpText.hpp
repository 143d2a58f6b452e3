#pragma once

#include "commandOutline.hpp"

#include <cstddef>
#include <string>
#include <vector>

namespace lumo::ravelctl {

/// "SHAPE --output FILE [OPTIONS]": what follows a command's name.
std::string FormatSynopsis(const CommandOutline& command);

/// "--rate HZ", "-h, --help", "--record-last [S]"; of an argument "FILE...".
std::string FormatName(const OptionOutline& option);

/// The help of a command, for a terminal of 80 columns.
std::string FormatHelp(const CommandOutline& command);

/// The help of the program: its commands with a line for each.
std::string FormatHelp(const ProgramOutline& program);

/// A command's footer: `notes`, which may be empty, its `examples`, and what the statuses 0 and 1 mean for it; what the
/// others mean is the same for all.
std::string FormatFooter(const std::string& notes, const std::vector<std::string>& examples, const std::string& good,
                         const std::string& bad);

/// Lines that stand as they are: a name and, from column `name_width` on, what it means, below it where the name is
/// long.
std::string FormatNote(const std::string& name, const std::string& meaning, std::size_t name_width);

/// Words in lines of at most `width` letters; a longer word has a line of its own.
std::vector<std::string> WrapWords(const std::string& text, std::size_t width);

}  // namespace lumo::ravelctl
