#include "support/allocationGuard.hpp"
#include "support/lockStep.hpp"

#include <lumo/ravelcore/names.hpp>
#include <lumo/ravelcore/taskEdc.hpp>

#include <gtest/gtest.h>

#include <cstdint>
#include <deque>
#include <vector>

// A program of its own: what one test lets the BLAS map stays mapped for the tests after it.

namespace lumo::ravelcore {
namespace {

TEST(TaskEdcFirstCycleTest, SlicesThatRunAtOnceNeitherAllocateNorMapMemory)
{
    constexpr int WORKERS = 8;
    log4cplus::Logger::getInstance(LOGGER_RAVELCORE).setLogLevel(log4cplus::INFO_LOG_LEVEL);
    const std::vector<float> es(4788, 1.0F);
    std::deque<Recorder> recorders(2 * WORKERS);
    std::deque<TaskEdc> tasks;
    for (std::size_t worker = 0; worker < WORKERS; ++worker) {
        TaskEdc& task = tasks.emplace_back(static_cast<int>(worker), 2394, 4788, 300, recorders[2 * worker],
                                           recorders[2 * worker + 1], 20);
        task.Initialize();
        task.m_es_meas = es.data();
        recorders[2 * worker].Start(true, 0);
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
