#pragma once

#include <optional>
#include <string>

namespace lumo::ravelctl {

/// What an output can show beside plain text.
struct TerminalStyle
{
    bool is_terminal = false;
    bool refreshes = false;  // a line in place: return to its begin, clear to its end
    bool colours = false;
};

/// `term` and `no_color`: the variables TERM and NO_COLOR, empty where they are not set. A terminal of unknown kind, or
/// a "dumb" one, understands no escape sequence; NO_COLOR with anything in it takes colours away, and only these.
TerminalStyle DecideTerminalStyle(bool is_terminal, const std::string& term, const std::string& no_color);

/// The style of an open file, in the environment as it is.
TerminalStyle FindTerminalStyle(int file_descriptor);

/// How many columns a terminal has now; none where the file is no terminal, or one that does not say. It may change at
/// any time.
std::optional<int> FindTerminalWidth(int file_descriptor);

/// Colours verdicts, or leaves them plain. The words say the same without colour.
class Palette
{
public:
    Palette() = default;
    explicit Palette(const TerminalStyle& style) : m_colours(style.colours) {}

    std::string Good(const std::string& text) const { return Paint("32", text); }
    std::string Doubtful(const std::string& text) const { return Paint("33", text); }
    std::string Bad(const std::string& text) const { return Paint("31", text); }

private:
    std::string Paint(const char* colour, const std::string& text) const;

    bool m_colours = false;
};

}  // namespace lumo::ravelctl
