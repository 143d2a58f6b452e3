#include "qualifyLoop.hpp"
#include "support/allocationGuard.hpp"
#include "support/quietLog.hpp"

#include <lumo/ravelcore/names.hpp>

#include <gtest/gtest.h>

#include <memory>

namespace lumo::ravelctl {
namespace {

using ravelcore::test::AllocationGuard;

/// A loop over workers that run.
class QualifyLoopTest : public testing::Test
{
protected:
    static constexpr int WORKERS = 2;

    QualifyLoopTest()
    {
        test::QuietLog();
        m_plan.most_cycles = 45;
        m_plan.paced = false;
        m_plan.rate_hz = 500.0;
    }

    ~QualifyLoopTest() override
    {
        m_input.idle = true;
        m_gate.Open();
        if (m_workers) {
            m_workers->Stop(true);
        }
    }

    QualifyLoop& Start()
    {
        std::vector<ravelcore::Task*> tasks;
        for (int i = 0; i < WORKERS; ++i) {
            m_tasks.push_back(std::make_unique<SgemvTask>(m_gate, m_input, static_cast<std::size_t>(m_plan.most_cycles),
                                                          static_cast<std::size_t>(m_plan.CountReads())));
            m_tasks.back()->Configure(
                {{ravelcore::KEY_TASK_SGEMV_NUM_ROWS, "20"}, {ravelcore::KEY_TASK_SGEMV_NUM_COLS, "300"}});
            tasks.push_back(m_tasks.back().get());
        }
        m_workers = std::make_unique<WorkerGroup>(tasks, std::vector<Placement>(WORKERS), std::chrono::minutes(1),
                                                  log4cplus::Logger::getInstance("qualifyLoopTest"));
        m_sut = std::make_unique<QualifyLoop>(m_plan, m_input, *m_workers);
        m_workers->Start();
        return *m_sut;
    }

    QualifyPlan m_plan;
    CycleGate m_gate{WORKERS};
    SgemvInput m_input;
    std::vector<std::unique_ptr<SgemvTask>> m_tasks;
    std::unique_ptr<WorkerGroup> m_workers;
    std::unique_ptr<QualifyLoop> m_sut;
};

bool Never()
{
    return false;
}

TEST_F(QualifyLoopTest, TheCycleThreadNeverAllocates)
{
    m_plan.paced = true;  // the wait for the instant is part of the cycle
    QualifyLoop& sut = Start();
    const AllocationGuard guard;
    sut.Run(Never);
    EXPECT_EQ(guard.GetCount(), 0);
    EXPECT_EQ(sut.GetProgress().cycles_done, 45);
}

TEST_F(QualifyLoopTest, ProductsAreBookedAndTheWarmUpAndTheReadsAreNot)
{
    QualifyLoop& sut = Start();
    sut.Run(Never);
    EXPECT_EQ(sut.GetCycleTimes().GetValuesUs().size(), 45U);
    EXPECT_EQ(sut.GetWakeUps().GetValuesUs().size(), 45U);
    for (const auto& task : m_tasks) {
        EXPECT_EQ(task->GetExecutions().GetValuesUs().size(), 45U);
        EXPECT_EQ(task->GetReads().GetValuesUs().size(), 2U);
    }
    EXPECT_EQ(sut.GetMissedInstants(), 0) << "without pacing there are none";
}

TEST_F(QualifyLoopTest, AStopEndsItBetweenTwoCycles)
{
    QualifyLoop& sut = Start();
    sut.Run([&sut] { return sut.GetProgress().cycles_done == 7; });
    EXPECT_EQ(sut.GetCycleTimes().GetValuesUs().size(), 7U);
    EXPECT_EQ(m_tasks[1]->GetExecutions().GetValuesUs().size(), 7U);
}

TEST_F(QualifyLoopTest, ATimeThatIsOverEndsItBeforeItsCyclesAreDone)
{
    m_plan.longest_s = 0.0;
    QualifyLoop& sut = Start();
    sut.Run(Never);
    EXPECT_EQ(sut.GetProgress().cycles_done, 0);
}

TEST_F(QualifyLoopTest, EveryCycleBeyondItsDeadlineIsCounted)
{
    m_plan.deadline_us = 0.001;  // nothing is as quick
    QualifyLoop& sut = Start();
    sut.Run(Never);
    EXPECT_EQ(sut.GetProgress().late, 45);
    EXPECT_GT(sut.GetProgress().max_us, 0.0);
}

}  // namespace
}  // namespace lumo::ravelctl
