#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

namespace lumo::ravelctl {

/// Counts what is done after its deadline. Thread: one. Real time: yes.
class DeadlineCounter
{
public:
    /// Without a deadline nothing is late.
    explicit DeadlineCounter(std::optional<double> deadline_us) : m_deadline_us(deadline_us) {}

    /// `start_to_end`: from giving the start on.
    void Add(std::chrono::nanoseconds start_to_end)
    {
        if (m_deadline_us && static_cast<double>(start_to_end.count()) * 1.0e-3 > *m_deadline_us) {
            ++m_num_late;
        }
    }

    std::int64_t GetNumLate() const { return m_num_late; }

private:
    std::optional<double> m_deadline_us;
    std::int64_t m_num_late = 0;
};

}  // namespace lumo::ravelctl
