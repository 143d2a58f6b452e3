#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <vector>

namespace lumo::ravelctl {

/// Order statistics of a series of durations, microseconds.
struct Percentiles
{
    double min;
    double p50;
    double p99;
    double p999;
    double max;
    double p9999 = 0.0;  // 99.99 %
};

/// By nearest rank; none for an empty series. Thread: a slow one. Real time: no.
std::optional<Percentiles> ComputePercentiles(std::vector<float> values_us);

/// A series of durations in memory that is taken beforehand.
class Durations
{
public:
    /// Thread: a slow one. Real time: no.
    explicit Durations(std::size_t capacity)
    {
        m_values_us.resize(capacity);  // touches it: no page is still to be found in a cycle
        m_values_us.clear();
    }

    /// What is beyond the capacity is dropped. Thread: the cycle's. Real time: yes.
    void Add(std::chrono::nanoseconds duration)
    {
        if (m_values_us.size() < m_values_us.capacity()) {
            m_values_us.push_back(static_cast<float>(static_cast<double>(duration.count()) * 1.0e-3));
        }
    }

    bool IsFull() const { return m_values_us.size() == m_values_us.capacity(); }

    const std::vector<float>& GetValuesUs() const { return m_values_us; }

    /// By nearest rank; none for an empty series. Thread: a slow one, after the run. Real time: no.
    std::optional<Percentiles> ComputePercentiles() const { return ravelctl::ComputePercentiles(m_values_us); }

private:
    std::vector<float> m_values_us;
};

}  // namespace lumo::ravelctl
