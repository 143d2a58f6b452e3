#pragma once

#include <string>

namespace lumo::ravelctl {

/// What goes to standard error: one line, whatever names and libraries' messages hold.
inline std::string FormatErrorLine(const std::string& message)
{
    std::string line = "ravelctl: ";
    for (const char letter : message) {
        const bool is_control = static_cast<unsigned char>(letter) < 0x20 || letter == 0x7f;
        if (!is_control) {
            line += letter;
        } else if (line.back() != ' ') {
            line += ' ';
        }
    }
    return line.erase(line.find_last_not_of(' ') + 1) + '\n';
}

}  // namespace lumo::ravelctl
