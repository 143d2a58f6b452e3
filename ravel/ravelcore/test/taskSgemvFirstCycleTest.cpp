#include "support/allocationGuard.hpp"
#include "support/lockStep.hpp"

#include <lumo/ravelcore/taskSgemv.hpp>

#include <gtest/gtest.h>

#include <cstdint>
#include <deque>

// A program of its own: what one test lets the BLAS map stays mapped for the tests after it.

namespace lumo::ravelcore {
namespace {

TEST(TaskSgemvFirstCycleTest, WorkersThatMultiplyAtOnceNeitherAllocateNorMapMemory)
{
    // The BLAS needs one work buffer for each product that is under way, of 128 MB of address space each. Were they
    // mapped when workers first meet, the cycle would pay for it: in a process with locked memory for every page.
    constexpr int WORKERS = 8;
    std::deque<TaskSgemv> tasks;
    for (int worker = 0; worker < WORKERS; ++worker) {
        tasks.emplace_back(600, 4788).Initialize();
    }
    const std::int64_t calls = test::RunInStep(WORKERS, 50, [&](int worker) {
        const test::AllocationGuard guard;
        tasks[static_cast<std::size_t>(worker)].Execute(0.0, false);
        return guard.GetCount();
    });
    EXPECT_EQ(calls, 0);
}

}  // namespace
}  // namespace lumo::ravelcore
