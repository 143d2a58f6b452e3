#pragma once

#include "controlLoop.hpp"

#include <chrono>
#include <ostream>
#include <string>

namespace lumo::ravelctl {

/// What the user sees while the loop runs: one line that refreshes on a terminal, a plain line every few seconds
/// elsewhere, nothing when quiet.
/// Thread: a slow one.
class StatusLine
{
public:
    enum class Style
    {
        Refresh,
        Plain,
        Quiet
    };

    /// Refresh if `file_descriptor` is a terminal that can do so, else Plain.
    static Style StyleFor(bool quiet, int file_descriptor);

    /// `terminal`: the file behind `out`, to whose width a line that refreshes is fitted; below 0: as wide as need be.
    StatusLine(Style style, const LoopPlan& plan, std::ostream& out, int terminal = -1);

    /// Shows the progress if it is time to.
    void Update(const LoopProgress& progress);

    /// Prints a line that stays. Not for Quiet.
    void Note(const std::string& text);

    /// Shows the progress once more and ends the line.
    void Finish(const LoopProgress& progress);

    /// The line's text.
    static std::string Format(const LoopProgress& progress, const LoopPlan& plan);

    /// The same on a terminal of so many columns: in fewer words if need be, and cut if these are still too many. It
    /// leaves the last column free, behind which some terminals go to the next line.
    static std::string FormatFor(int columns, const LoopProgress& progress, const LoopPlan& plan);

private:
    std::string FormatForTerminal(const LoopProgress& progress) const;
    void Show(const LoopProgress& progress);

    Style m_style;
    LoopPlan m_plan;
    std::ostream& m_out;
    int m_terminal;
    std::chrono::steady_clock::time_point m_next_plain;
    std::string m_last;  // that was shown
};

}  // namespace lumo::ravelctl
