#include "progressText.hpp"

namespace lumo::ravelctl {

namespace {

constexpr std::chrono::seconds INTERVAL{2};

}  // namespace

ProgressText::ProgressText(StatusLine::Style style, std::ostream& out, Clock::time_point now)
    : m_style(style), m_out(out), m_next(now + INTERVAL)
{
}

void ProgressText::Update(const std::string& text, Clock::time_point now)
{
    if (m_style == StatusLine::Style::Quiet || now < m_next) {
        return;
    }
    if (m_style == StatusLine::Style::Refresh) {
        m_is_open = true;
        m_out << '\r' << text << "\x1b[K" << std::flush;
    } else {
        m_next += INTERVAL;
        m_out << text << '\n' << std::flush;
    }
}

void ProgressText::Finish()
{
    if (m_is_open) {
        m_is_open = false;
        m_out << '\n' << std::flush;
    }
}

}  // namespace lumo::ravelctl
