#include "longWork.hpp"

#include <fmt/core.h>

#include <utility>

namespace lumo::ravelctl {

LongWork::LongWork(StatusLine::Style style, std::ostream& out, std::string what)
    : m_style(style),
      m_out(out),
      m_begin(ProgressText::Clock::now()),
      m_what(std::move(what)),
      m_progress(style, out, m_begin)
{
    if (m_style != StatusLine::Style::Quiet) {
        m_thread = std::thread([this] { Refresh(); });
    }
}

LongWork::~LongWork()
{
    Finish();
}

void LongWork::Finish()
{
    {
        const std::lock_guard lock(m_mutex);
        m_is_over = true;
    }
    m_ended.notify_all();
    if (m_thread.joinable()) {
        m_thread.join();
    }
    m_progress.Finish();
}

void LongWork::Tell(std::string what)
{
    const std::lock_guard lock(m_mutex);
    m_what = std::move(what);
}

void LongWork::Note(const std::string& line)
{
    const std::lock_guard lock(m_mutex);
    m_progress.Finish();
    m_out << line << '\n' << std::flush;
}

void LongWork::Refresh()
{
    constexpr std::chrono::milliseconds INTERVAL{100};
    std::unique_lock lock(m_mutex);
    while (!m_ended.wait_for(lock, INTERVAL, [this] { return m_is_over; })) {
        const auto now = ProgressText::Clock::now();
        m_progress.Update(fmt::format("{} ({:.0f} s)", m_what, std::chrono::duration<double>(now - m_begin).count()),
                          now);
    }
}

}  // namespace lumo::ravelctl
