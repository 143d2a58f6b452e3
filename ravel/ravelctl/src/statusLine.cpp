#include "statusLine.hpp"

#include "terminalStyle.hpp"

#include <fmt/core.h>

#include <optional>

namespace lumo::ravelctl {

namespace {

constexpr std::chrono::seconds PLAIN_INTERVAL{2};

}  // namespace

StatusLine::Style StatusLine::StyleFor(bool quiet, int file_descriptor)
{
    if (quiet) {
        return Style::Quiet;
    }
    return FindTerminalStyle(file_descriptor).refreshes ? Style::Refresh : Style::Plain;
}

StatusLine::StatusLine(Style style, const LoopPlan& plan, std::ostream& out, int terminal)
    : m_style(style),
      m_plan(plan),
      m_out(out),
      m_terminal(terminal),
      m_next_plain(std::chrono::steady_clock::now() + PLAIN_INTERVAL)
{
}

std::string StatusLine::Format(const LoopProgress& progress, const LoopPlan& plan)
{
    return fmt::format("{:6.1f} of {:.1f} s  loop {:6}  cycle {:6.0f} us (max {:.0f})  missed {}  residual {:8.1f} nm",
                       plan.TimeOf(progress.cycles_done.load()), plan.TimeOf(plan.cycles),
                       progress.closed.load() ? "closed" : "open", progress.cycle_time_us.load(),
                       progress.max_cycle_time_us.load(), progress.missed.load(), progress.residual_nm.load());
}

std::string StatusLine::FormatFor(int columns, const LoopProgress& progress, const LoopPlan& plan)
{
    const auto room = static_cast<std::size_t>(columns - 1);
    std::string full = Format(progress, plan);
    if (full.size() <= room) {
        return full;
    }
    const std::string brief =
        fmt::format("{:.1f}/{:.1f} s  {}  cycle {:.0f}/{:.0f} us  missed {}  residual {:.1f} nm",
                    plan.TimeOf(progress.cycles_done.load()), plan.TimeOf(plan.cycles),
                    progress.closed.load() ? "closed" : "open", progress.cycle_time_us.load(),
                    progress.max_cycle_time_us.load(), progress.missed.load(), progress.residual_nm.load());
    return brief.substr(0, room);
}

std::string StatusLine::FormatForTerminal(const LoopProgress& progress) const
{
    const std::optional<int> columns = FindTerminalWidth(m_terminal);  // each time: windows change their size
    return columns ? FormatFor(*columns, progress, m_plan) : Format(progress, m_plan);
}

void StatusLine::Update(const LoopProgress& progress)
{
    const auto now = std::chrono::steady_clock::now();
    if (m_style == Style::Refresh) {
        Show(progress);
    } else if (m_style == Style::Plain && now >= m_next_plain) {
        m_next_plain += PLAIN_INTERVAL;
        Show(progress);
    }
}

void StatusLine::Note(const std::string& text)
{
    m_out << (m_style == Style::Refresh ? "\r" : "") << text << (m_style == Style::Refresh ? "\x1b[K\n" : "\n")
          << std::flush;
}

void StatusLine::Finish(const LoopProgress& progress)
{
    if (m_style == Style::Quiet) {
        return;
    }
    Show(progress);
    if (m_style == Style::Refresh) {
        m_out << '\n' << std::flush;
    }
}

void StatusLine::Show(const LoopProgress& progress)
{
    const std::string text = m_style == Style::Refresh ? FormatForTerminal(progress) : Format(progress, m_plan);
    if (m_style == Style::Refresh) {
        m_out << '\r' << text << "\x1b[K" << std::flush;  // clears what a longer line left
    } else if (text != m_last) {                          // a run may end just when a line was due
        m_out << text << '\n' << std::flush;
    }
    m_last = text;
}

}  // namespace lumo::ravelctl
