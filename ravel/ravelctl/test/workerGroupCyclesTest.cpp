#include "support/countingTask.hpp"
#include "support/quietLog.hpp"
#include "support/sanitizer.hpp"
#include "workerGroup.hpp"

#include <gtest/gtest.h>

// On its own, because it takes so long: a million rounds of a handshake between threads.

namespace lumo::ravelctl {
namespace {

class WorkerGroupCyclesTest : public testing::TestWithParam<int>
{
};

TEST_P(WorkerGroupCyclesTest, EveryStartExecutesEveryTaskExactlyOnce)
{
    const int workers = GetParam();
    // A million for two workers in the release build; 20 000 for other numbers and under a sanitizer.
    const std::int64_t cycles = workers == 2 && !test::SANITIZED ? 1'000'000 : 20'000;
    test::QuietLog();  // a million lines of detail otherwise
    test::Tasks tasks(workers);
    const auto sut = test::MakeGroup(tasks.Get(), std::chrono::minutes(1));
    sut->Start();
    for (std::int64_t cycle = 1; cycle <= cycles; ++cycle) {
        sut->GiveStart();
        sut->AwaitReady();
        for (const auto& task : tasks.all) {
            ASSERT_EQ(task->executions, cycle) << task->GetName();
        }
    }
    tasks.gate.Open();
    sut->Stop(true);
}

INSTANTIATE_TEST_SUITE_P(All, WorkerGroupCyclesTest, testing::Values(1, 2, 3, 5));

}  // namespace
}  // namespace lumo::ravelctl
