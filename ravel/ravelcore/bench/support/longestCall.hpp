#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdint>

namespace lumo::ravelcore::bench {

/// Times `call` as a mean, and then many single calls, of which it reports the longest: a mean hides it. Reading the
/// clock is part of the single calls. NUM_TIMED: how many these are; fewer for calls that take long.
template <int NUM_TIMED = 20000, typename Call>
void MeasureWithLongest(benchmark::State& state, Call&& call)
{
    using Clock = std::chrono::steady_clock;
    for (auto _ : state) {
        call();
    }
    std::int64_t longest = 0;
    for (int i = 0; i < NUM_TIMED; ++i) {
        const Clock::time_point start = Clock::now();
        call();
        longest = std::max<std::int64_t>(longest, (Clock::now() - start) / std::chrono::nanoseconds(1));
    }
    state.counters["max_ns"] = static_cast<double>(longest);
}

}  // namespace lumo::ravelcore::bench
