#pragma once

#include <string>
#include <vector>

namespace lumo::ravelctl {

/// The modes that a text names, such as "5" or "0,3,10-19": counted from 0, ascending, each once.
/// Failure: InputError for anything else and for modes beyond the `num_modes` that there are; it says what was expected
/// and what came, and the caller puts the option's name before it. `what` a mode is called there.
std::vector<int> ParseModeList(const std::string& text, int num_modes, const char* what = "mode");

/// The shortest text that names `modes`, which are ascending, each once: "0,3,10-19".
std::string FormatModeList(const std::vector<int>& modes);

}  // namespace lumo::ravelctl
