#pragma once

#include <barrier>
#include <cstddef>
#include <cstdint>
#include <thread>
#include <vector>

namespace lumo::ravelcore::test {

/// Calls `cycle(worker)` in `workers` threads, `cycles` times each, all beginning each cycle together; returns the sum
/// of what the calls returned.
template <typename Cycle>
std::int64_t RunInStep(int workers, int cycles, Cycle cycle)
{
    std::barrier step(workers);
    std::vector<std::int64_t> sums(static_cast<std::size_t>(workers), 0);
    std::vector<std::thread> threads;
    for (int worker = 0; worker < workers; ++worker) {
        threads.emplace_back([&, worker] {
            for (int count = 0; count < cycles; ++count) {
                step.arrive_and_wait();
                sums[static_cast<std::size_t>(worker)] += cycle(worker);
            }
        });
    }
    std::int64_t total = 0;
    for (int worker = 0; worker < workers; ++worker) {
        threads[static_cast<std::size_t>(worker)].join();
        total += sums[static_cast<std::size_t>(worker)];
    }
    return total;
}

}  // namespace lumo::ravelcore::test
