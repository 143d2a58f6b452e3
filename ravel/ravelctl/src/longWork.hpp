#pragma once

#include "progressText.hpp"

#include <condition_variable>
#include <mutex>
#include <ostream>
#include <string>
#include <thread>

namespace lumo::ravelctl {

/// Says what is being done, and since when, while a thread is in the middle of work that may take longer than two
/// seconds; of shorter work it says nothing. Nobody else may write to `out` as long as it lives.
/// Thread: a slow one; it has one of its own, unless quiet.
class LongWork
{
public:
    LongWork(StatusLine::Style style, std::ostream& out, std::string what);

    ~LongWork();

    LongWork(const LongWork&) = delete;
    LongWork& operator=(const LongWork&) = delete;

    /// What is being done from now on.
    void Tell(std::string what);

    /// Prints a line that stays. Not for Quiet.
    void Note(const std::string& line);

    /// Says no more and ends the line if there is one; from here on others may write to `out`.
    void Finish();

private:
    void Refresh();

    StatusLine::Style m_style;
    std::ostream& m_out;
    ProgressText::Clock::time_point m_begin;
    std::mutex m_mutex;
    std::condition_variable m_ended;
    bool m_is_over = false;
    std::string m_what;
    ProgressText m_progress;
    std::thread m_thread;
};

}  // namespace lumo::ravelctl
