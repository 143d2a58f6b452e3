#include "terminalStyle.hpp"

#include "environment.hpp"

#include <sys/ioctl.h>
#include <unistd.h>

namespace lumo::ravelctl {

TerminalStyle DecideTerminalStyle(bool is_terminal, const std::string& term, const std::string& no_color)
{
    const bool understands = is_terminal && !term.empty() && term != "dumb";
    return {is_terminal, understands, understands && no_color.empty()};
}

TerminalStyle FindTerminalStyle(int file_descriptor)
{
    return DecideTerminalStyle(isatty(file_descriptor) == 1, Environment("TERM"), Environment("NO_COLOR"));
}

std::optional<int> FindTerminalWidth(int file_descriptor)
{
    winsize size{};
    if (ioctl(file_descriptor, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) {
        return std::nullopt;
    }
    return size.ws_col;
}

std::string Palette::Paint(const char* colour, const std::string& text) const
{
    return m_colours ? std::string("\x1b[") + colour + "m" + text + "\x1b[0m" : text;
}

}  // namespace lumo::ravelctl
