#include "support/allocationGuard.hpp"
#include "support/logCapture.hpp"
#include "support/slotOf.hpp"

#include <lumo/ravelcore/logger.hpp>
#include <lumo/ravelcore/task.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

namespace lumo::ravelcore {
namespace {

using std::chrono::nanoseconds;
using std::chrono::steady_clock;
using test::LogCapture;
using test::LogEvent;
using test::SlotOf;

/// The least that a task can be; its "work" takes as long as the test wants.
class ProbeTask : public Task
{
public:
    explicit ProbeTask(const std::string& name = "Probe") : Task(name) {}

    void Initialize() override {}
    void Configure(const std::map<std::string, std::string>& /*cfg*/) override {}
    void Execute(double /*time_stamp*/, bool /*first*/) override { UpdateExecTime(steady_clock::now()); }

    void ExecuteAsIfBegun(nanoseconds ago) { UpdateExecTime(steady_clock::now() - ago); }
    const log4cplus::Logger& GetLogger() const { return m_logger; }
};

static_assert(std::is_abstract_v<Task>);
static_assert(std::has_virtual_destructor_v<Task>);
static_assert(!std::is_copy_constructible_v<ProbeTask> && !std::is_copy_assignable_v<ProbeTask>);

/// Matches the line that a public operation of task.cpp writes on entry.
auto IsEntryOf(const std::string& function)
{
    return ::testing::MatchesRegex("ravel/ravelcore/src/task\\.cpp " + function + " [0-9]+");
}

TEST(TaskTest, KeepsTheNameOfItsConstructor)
{
    const ProbeTask sut("TaskEdc[0]");
    EXPECT_EQ(sut.GetName(), "TaskEdc[0]");
}

TEST(TaskTest, LogsUnderItsOwnNameBelowTheLibrary)
{
    const ProbeTask sut("Probe.x");
    EXPECT_EQ(sut.GetLogger().getName(), "ravelcore.Probe.x");
}

TEST(TaskTest, EmptyNameLeavesThePointInTheLoggersName)
{
    const ProbeTask sut("");
    EXPECT_EQ(sut.GetName(), "");
    EXPECT_EQ(sut.GetLogger().getName(), "ravelcore.");
}

TEST(TaskTest, DurationsAreZeroAfterConstruction)
{
    const ProbeTask sut;
    EXPECT_EQ(sut.GetExecTime(), nanoseconds(0));
    EXPECT_EQ(sut.GetMaxExecTime(), nanoseconds(0));
}

TEST(TaskTest, FirstExecuteSetsBothDurationsToTheSameValue)
{
    ProbeTask sut;
    sut.ExecuteAsIfBegun(std::chrono::seconds(1));
    EXPECT_GE(sut.GetExecTime(), std::chrono::seconds(1));
    EXPECT_EQ(sut.GetExecTime(), sut.GetMaxExecTime());
}

TEST(TaskTest, LaterShorterExecuteChangesOnlyTheLastDuration)
{
    ProbeTask sut;
    sut.ExecuteAsIfBegun(std::chrono::hours(24));
    const nanoseconds longest = sut.GetMaxExecTime();
    sut.ExecuteAsIfBegun(std::chrono::hours(1));
    EXPECT_GE(sut.GetExecTime(), std::chrono::hours(1));
    EXPECT_LT(sut.GetExecTime(), longest);
    EXPECT_EQ(sut.GetMaxExecTime(), longest);
}

TEST(TaskTest, LaterLongerExecuteChangesBothDurations)
{
    ProbeTask sut;
    sut.ExecuteAsIfBegun(std::chrono::hours(1));
    sut.ExecuteAsIfBegun(std::chrono::hours(24));
    EXPECT_GE(sut.GetExecTime(), std::chrono::hours(24));
    EXPECT_EQ(sut.GetExecTime(), sut.GetMaxExecTime());
}

TEST(TaskTest, DurationsBeyondThirtyTwoBitsOfNanosecondsAreWhole)
{
    ProbeTask sut;
    sut.ExecuteAsIfBegun(std::chrono::hours(1000));
    EXPECT_GE(sut.GetExecTime(), std::chrono::hours(1000));
    EXPECT_LT(sut.GetExecTime(), std::chrono::hours(2000));
}

TEST(TaskTest, BookkeepingNeverAllocates)
{
    ProbeTask sut;
    const test::AllocationGuard guard;
    for (int cycle = 0; cycle < 1000; ++cycle) {
        sut.Execute(0.0, cycle == 0);
    }
    EXPECT_EQ(guard.GetCount(), 0);
}

TEST(TaskTest, ReadersInOtherThreadsSeeWholeDurationsAndAMaximumThatNeverFalls)
{
    // Durations of a year and of almost nothing: half of one joined to half of the other would be neither.
    constexpr nanoseconds LONG = std::chrono::hours(24 * 365);
    constexpr nanoseconds SHORT_LIMIT = std::chrono::hours(1);
    ProbeTask sut;
    std::atomic<bool> done = false;
    std::thread reader([&] {
        nanoseconds highest(0);
        while (!done.load()) {
            const nanoseconds last = sut.GetExecTime();
            EXPECT_TRUE(last < SHORT_LIMIT || last >= LONG) << last.count();
            const nanoseconds seen = sut.GetMaxExecTime();
            EXPECT_GE(seen, highest);
            highest = seen;
        }
    });
    for (int cycle = 0; cycle < 20000; ++cycle) {
        sut.ExecuteAsIfBegun(cycle % 2 == 0 ? nanoseconds(0) : LONG);
    }
    done.store(true);
    reader.join();
}

TEST(TaskTest, EachOperationBeginsWithItsEntryLine)
{
    const LogCapture log("ravelcore.Probe");
    auto sut = std::make_unique<ProbeTask>();
    sut->GetName();
    sut->GetExecTime();
    sut->GetMaxExecTime();
    sut.reset();
    EXPECT_THAT(log.Messages(log4cplus::TRACE_LOG_LEVEL),
                ::testing::ElementsAre(IsEntryOf("Task"), IsEntryOf("GetName"), IsEntryOf("GetExecTime"),
                                       IsEntryOf("GetMaxExecTime"), IsEntryOf("~Task")));
    EXPECT_THAT(log.Events(), ::testing::Each(::testing::Field(&LogEvent::logger, "ravelcore.Probe")));
}

TEST(TaskTest, EntryLineGivesTheLineThatLog4cplusIsGivenToo)
{
    const LogCapture log("ravelcore.Probe");
    const ProbeTask sut;
    ASSERT_EQ(log.Events().size(), 1U);
    const LogEvent seen = log.Events().front();
    EXPECT_EQ(seen.message, seen.file + " Task " + std::to_string(seen.line));
    EXPECT_EQ(seen.file, "ravel/ravelcore/src/task.cpp");
    EXPECT_THAT(seen.function, ::testing::StartsWith("lumo::ravelcore::Task::Task(const "));
}

TEST(TaskTest, WritesNothingAboveTrace)
{
    const LogCapture log("ravelcore.Probe", log4cplus::DEBUG_LOG_LEVEL);
    {
        ProbeTask sut;
        sut.Execute(0.0, true);
        sut.GetMaxExecTime();
    }
    EXPECT_TRUE(log.Events().empty());
}

TEST(TaskTest, VirtualOperationsKeepTheirSlots)
{
    // Applications derive their own tasks in libraries of their own. The destructor takes slots 0 and 1.
    EXPECT_EQ(SlotOf(&Task::Initialize), 2U);
    EXPECT_EQ(SlotOf(&Task::Configure), 3U);
    EXPECT_EQ(SlotOf(&Task::Execute), 4U);
}

}  // namespace
}  // namespace lumo::ravelcore
