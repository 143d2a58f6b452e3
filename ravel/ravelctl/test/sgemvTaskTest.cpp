#include "sgemvTask.hpp"
#include "support/allocationGuard.hpp"
#include "support/quietLog.hpp"

#include <lumo/ravelcore/names.hpp>

#include <gtest/gtest.h>

#include <numeric>

namespace lumo::ravelctl {
namespace {

using ravelcore::test::AllocationGuard;
using Work = SgemvInput::Work;

constexpr int ROWS = 20;
constexpr int COLS = 300;
constexpr std::size_t CYCLES = 50;
constexpr std::size_t READS = 5;

class SgemvTaskTest : public testing::Test
{
protected:
    SgemvTaskTest()
    {
        test::QuietLog();
        m_sut.Configure({{ravelcore::KEY_TASK_SGEMV_NUM_ROWS, std::to_string(ROWS)},
                         {ravelcore::KEY_TASK_SGEMV_NUM_COLS, std::to_string(COLS)}});
        m_sut.Initialize();
    }

    void Execute(Work work, int times)
    {
        for (int i = 0; i < times; ++i) {
            m_input.work = work;
            m_input.given = std::chrono::steady_clock::now();
            m_sut.Execute(0.0, false);
        }
    }

    CycleGate m_gate{1};
    SgemvInput m_input;
    SgemvTask m_sut{m_gate, m_input, CYCLES, READS};
};

TEST_F(SgemvTaskTest, TheSizesComeFromTheConfiguration)
{
    EXPECT_EQ(m_sut.GetSgemv().GetNumRows(), ROWS);
    EXPECT_EQ(m_sut.GetSgemv().GetNumCols(), COLS);
    EXPECT_EQ(m_sut.GetSgemv().GetMatrix().size(), static_cast<std::size_t>(ROWS * COLS));
}

TEST_F(SgemvTaskTest, AProductIsReallyDoneAndRecorded)
{
    Execute(Work::Product, 3);
    const std::vector<float>& matrix = m_sut.GetSgemv().GetMatrix();
    const std::vector<float>& in = m_sut.GetSgemv().GetInputVector();
    for (int row = 0; row < ROWS; ++row) {
        const double expected = std::inner_product(in.begin(), in.end(), matrix.begin() + row * COLS, 0.0);
        EXPECT_NEAR(m_sut.GetSgemv().GetOutputVector()[static_cast<std::size_t>(row)], expected, 1e-3) << row;
    }
    EXPECT_NE(m_sut.GetSgemv().GetOutputVector(), std::vector<float>(ROWS, 0.0F));
    EXPECT_EQ(m_sut.GetExecutions().GetValuesUs().size(), 3U);
    EXPECT_EQ(m_sut.GetLatencies().GetValuesUs().size(), 3U);
    EXPECT_EQ(m_sut.GetReads().GetValuesUs().size(), 0U);
    EXPECT_GT(m_sut.GetExecTime().count(), 0);
}

TEST_F(SgemvTaskTest, WarmingUpIsAProductThatIsNotRecorded)
{
    Execute(Work::WarmUp, 2);
    EXPECT_NE(m_sut.GetSgemv().GetOutputVector(), std::vector<float>(ROWS, 0.0F));
    EXPECT_EQ(m_sut.GetExecutions().GetValuesUs().size() + m_sut.GetLatencies().GetValuesUs().size(), 0U);
}

TEST_F(SgemvTaskTest, AReadIsRecordedApartAndMultipliesNothing)
{
    Execute(Work::Read, 2);
    EXPECT_EQ(m_sut.GetReads().GetValuesUs().size(), 2U);
    EXPECT_EQ(m_sut.GetExecutions().GetValuesUs().size() + m_sut.GetLatencies().GetValuesUs().size(), 0U);
    EXPECT_EQ(m_sut.GetSgemv().GetOutputVector(), std::vector<float>(ROWS, 0.0F));
}

TEST_F(SgemvTaskTest, AnIdleStartPassesTheGateAndDoesNothing)
{
    m_input.idle = true;
    Execute(Work::Product, 2);
    EXPECT_EQ(m_sut.GetExecutions().GetValuesUs().size(), 0U);
    EXPECT_EQ(m_sut.GetSgemv().GetOutputVector(), std::vector<float>(ROWS, 0.0F));
}

TEST_F(SgemvTaskTest, TheStartLatencyBeginsWhenTheStartIsGiven)
{
    m_input.work = Work::Product;
    m_input.given = std::chrono::steady_clock::now() - std::chrono::seconds(3);
    m_sut.Execute(0.0, false);
    EXPECT_GE(m_sut.GetLatencies().GetValuesUs().at(0), 3.0e6F);
}

TEST(SgemvTaskDeadlineTest, ProductsThatEndTooLateAfterTheStartAreCountedAndNothingElse)
{
    test::QuietLog();
    CycleGate gate{1};
    SgemvInput input;
    SgemvTask sut(gate, input, CYCLES, READS, 60.0e6);  // a minute
    sut.Configure({{ravelcore::KEY_TASK_SGEMV_NUM_ROWS, "2"}, {ravelcore::KEY_TASK_SGEMV_NUM_COLS, "2"}});
    sut.Initialize();
    const auto execute = [&](Work work, std::chrono::minutes since_start) {
        input.work = work;
        input.given = std::chrono::steady_clock::now() - since_start;
        sut.Execute(0.0, false);
    };
    execute(Work::WarmUp, std::chrono::minutes(2));
    execute(Work::Read, std::chrono::minutes(2));
    execute(Work::Product, std::chrono::minutes(0));
    EXPECT_EQ(sut.GetMissedDeadlines(), 0);
    execute(Work::Product, std::chrono::minutes(2));
    execute(Work::Product, std::chrono::minutes(3));
    EXPECT_EQ(sut.GetMissedDeadlines(), 2);
}

TEST_F(SgemvTaskTest, WithoutADeadlineNoneIsMissed)
{
    m_input.work = Work::Product;
    m_input.given = std::chrono::steady_clock::now() - std::chrono::hours(1);
    m_sut.Execute(0.0, false);
    EXPECT_EQ(m_sut.GetMissedDeadlines(), 0);
}

TEST_F(SgemvTaskTest, ExecuteNeverAllocates)
{
    Execute(Work::WarmUp, 1);
    const AllocationGuard guard;
    Execute(Work::Product, static_cast<int>(CYCLES) + 10);  // also when the memory is full
    Execute(Work::Read, static_cast<int>(READS) + 10);
    EXPECT_EQ(guard.GetCount(), 0);
    EXPECT_EQ(m_sut.GetExecutions().GetValuesUs().size(), CYCLES);
    EXPECT_EQ(m_sut.GetReads().GetValuesUs().size(), READS);
}

}  // namespace
}  // namespace lumo::ravelctl
