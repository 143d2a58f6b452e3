#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <vector>

namespace lumo::ravelcore::bench {

/// The durations of the cycles of one benchmark: Google Benchmark itself keeps their mean only, and a control loop
/// fails by its longest cycle. The benchmark runs with UseManualTime().
class CycleTimes
{
public:
    explicit CycleTimes(benchmark::State& state) : m_state(state)
    {
        m_us.reserve(static_cast<std::size_t>(state.max_iterations));
    }

    template <typename Cycle>
    void Measure(Cycle&& cycle)
    {
        const auto start = std::chrono::steady_clock::now();
        cycle();
        const std::chrono::duration<double> duration = std::chrono::steady_clock::now() - start;
        m_state.SetIterationTime(duration.count());
        m_us.push_back(duration.count() * 1e6);
    }

    /// Adds the counters "median_us" and "max_us", and the rate at which `bytes` a cycle are read.
    void Report(double bytes)
    {
        std::sort(m_us.begin(), m_us.end());
        m_state.counters["median_us"] = m_us.at(m_us.size() / 2);
        m_state.counters["max_us"] = m_us.back();
        m_state.counters["bytes"] =
            benchmark::Counter(bytes, benchmark::Counter::kIsIterationInvariantRate, benchmark::Counter::kIs1024);
    }

private:
    benchmark::State& m_state;
    std::vector<double> m_us;
};

}  // namespace lumo::ravelcore::bench
