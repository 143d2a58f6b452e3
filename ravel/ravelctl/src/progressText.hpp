#pragma once

#include "statusLine.hpp"

#include <chrono>
#include <ostream>
#include <string>

namespace lumo::ravelctl {

/// How far a command is that takes longer than two seconds: nothing before these are over, then as a StatusLine.
/// Thread: a slow one.
class ProgressText
{
public:
    using Clock = std::chrono::steady_clock;

    ProgressText(StatusLine::Style style, std::ostream& out, Clock::time_point now);

    /// Shows the text if it is time to.
    void Update(const std::string& text, Clock::time_point now);

    /// Ends the line if there is one.
    void Finish();

private:
    StatusLine::Style m_style;
    std::ostream& m_out;
    Clock::time_point m_next;
    bool m_is_open = false;  // the line on the terminal
};

}  // namespace lumo::ravelctl
