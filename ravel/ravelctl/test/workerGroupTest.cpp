#include "error.hpp"
#include "support/countingTask.hpp"
#include "support/thrown.hpp"
#include "support/workerThreads.hpp"
#include "workerGroup.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>

namespace lumo::ravelctl {
namespace {

using std::chrono::milliseconds;
using test::CountWorkerThreads;
using test::MakeGroup;
using test::Tasks;
using test::ThrownLine;
using testing::HasSubstr;

constexpr milliseconds LONG_TIMEOUT{60'000};
constexpr milliseconds SHORT_TIMEOUT{2000};

TEST(WorkerGroupTest, EveryWorkerHasAThreadUntilItIsStopped)
{
    Tasks tasks(3);
    const auto sut = MakeGroup(tasks.Get(), LONG_TIMEOUT);
    EXPECT_EQ(CountWorkerThreads(), 0);
    sut->Start();
    EXPECT_EQ(CountWorkerThreads(), 3);
    tasks.gate.Open();
    sut->Stop(true);
    EXPECT_EQ(CountWorkerThreads(), 0);
    sut->Stop(true);  // again: nothing to do
}

TEST(WorkerGroupTest, AWorkerThatCannotInitializeIsNamedAndAllAreJoined)
{
    // The lost one never comes to the gate: closed, the others would wait there for ever, and the stop for them.
    Tasks tasks(3);
    tasks.all[1]->fails_in_initialize = true;
    const auto sut = MakeGroup(tasks.Get(), LONG_TIMEOUT);
    const std::string line = ThrownLine<RunError>([&] { sut->Start(); });
    EXPECT_THAT(line, HasSubstr("worker1 ended: no memory for task1"));
    tasks.gate.Open();
    sut->Stop(true);
    EXPECT_EQ(CountWorkerThreads(), 0);
    EXPECT_EQ(tasks.all[1]->executions, 0);
}

TEST(WorkerGroupTest, AWorkerWhoseTaskThrowsEndsTheRunAndAllAreJoined)
{
    Tasks tasks(3);
    tasks.all[2]->fails_in_execution = 5;
    const auto sut = MakeGroup(tasks.Get(), LONG_TIMEOUT);
    sut->Start();
    int cycles_done = 0;
    const std::string line = ThrownLine<RunError>([&] {
        for (int cycle = 1; cycle <= 10; ++cycle) {
            sut->GiveStart();
            sut->AwaitReady();
            cycles_done = cycle;
        }
    });
    EXPECT_THAT(line, HasSubstr("worker2 ended: sensor lost by task2"));
    EXPECT_EQ(cycles_done, 4);
    tasks.gate.Open();
    sut->Stop(true);
    EXPECT_EQ(CountWorkerThreads(), 0);
    EXPECT_EQ(tasks.all[2]->executions, 5);
}

TEST(WorkerGroupTest, AWorkerThatIsNotReadyInTimeIsReportedWithTheNumberOfThoseThatAre)
{
    class StuckTask : public ravelcore::Task
    {
    public:
        StuckTask() : Task("stuck") {}
        void Initialize() override {}
        void Configure(const std::map<std::string, std::string>& /*cfg*/) override {}
        void Execute(double /*time_stamp*/, bool /*first*/) override { released.wait(false); }
        std::atomic<bool> released{false};
    };
    StuckTask task;
    WorkerGroup sut({&task}, std::vector<Placement>(1), WorkerGroup::Timeouts{LONG_TIMEOUT, SHORT_TIMEOUT},
                    log4cplus::Logger::getInstance("workerGroupTest"));
    sut.Start();
    sut.GiveStart();
    const std::string line = ThrownLine<RunError>([&] { sut.AwaitReady(); });
    EXPECT_THAT(line, HasSubstr("only 0 of 1 workers were ready 2000 ms after their start"));
    task.released.store(true);
    task.released.notify_all();
    sut.Stop(true);
    EXPECT_EQ(CountWorkerThreads(), 0);
}

TEST(WorkerGroupTest, WithoutALastStartWorkersEndWhenTheirWaitTimesOut)
{
    Tasks tasks(2);
    auto sut = MakeGroup(tasks.Get(), SHORT_TIMEOUT);
    sut->Start();
    sut.reset();
    EXPECT_EQ(CountWorkerThreads(), 0);
    EXPECT_EQ(tasks.all[0]->executions + tasks.all[1]->executions, 0);
}

TEST(CheckBlasTest, SeveralWorkersOnTheSerialBuildAreRefusedWithTheRemedy)
{
    constexpr int SERIAL = 0;
    constexpr int PTHREAD = 1;
    constexpr int OPENMP = 2;
    const std::string line = ThrownLine<InputError>([] { CheckBlas(2, SERIAL); });
    EXPECT_THAT(line, HasSubstr("2 workers"));
    EXPECT_THAT(line, HasSubstr("libopenblas0-pthread"));
    EXPECT_THAT(line, HasSubstr("use one worker"));
    EXPECT_NO_THROW(CheckBlas(1, SERIAL));
    EXPECT_NO_THROW(CheckBlas(2, PTHREAD));
    EXPECT_NO_THROW(CheckBlas(8, OPENMP));
}

}  // namespace
}  // namespace lumo::ravelctl
