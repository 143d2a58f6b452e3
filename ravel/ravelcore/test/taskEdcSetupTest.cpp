#include "support/edcState.hpp"
#include "support/logCapture.hpp"
#include "support/thrown.hpp"

#include <lumo/ravelcore/names.hpp>
#include <lumo/ravelcore/taskEdc.hpp>

#include <cblas.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <limits>
#include <map>
#include <string>
#include <type_traits>
#include <vector>

// Construction, Initialize and Configure; the setters are in taskEdcSettersTest.cpp.

namespace lumo::ravelcore {
namespace {

using log4cplus::DEBUG_LOG_LEVEL;
using log4cplus::TRACE_LOG_LEVEL;
using test::Differences;
using test::EdcState;
using test::ExpectException;
using test::LogCapture;
using test::LogEvent;
using test::StateOf;
using test::Thrown;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;
using ::testing::SizeIs;

constexpr int NUM_PACT = 4;
constexpr int NUM_ES = 5;
constexpr int NUM_MODES = 3;
constexpr int NUM_SAMPLES = 6;

class TaskEdcSetupTest : public ::testing::Test
{
protected:
    /// The text of the line with which an operation begins.
    static std::string Entry(const std::string& source, const std::string& function)
    {
        return "ravel/ravelcore/src/" + source + "\\.cpp " + function + " [0-9]+";
    }

    LogCapture m_log{LOGGER_RAVELCORE};
    Recorder m_in{"in"};
    Recorder m_out{"out"};
};

void FillEverything(TaskEdc& task)
{
    for (std::vector<float>* values : {&task.m_pact_in, &task.m_modes_rate_limited, &task.m_modes_ref, &task.m_modes_in,
                                       &task.m_modes_out, &task.m_modes_error, &task.m_p2edc, &task.m_pact2modes,
                                       &task.m_modes2pact, &task.m_pact_ref, &task.m_pdc_values, &task.m_fdc_values}) {
        values->assign(values->size() + 1, 7.5F);  // also of a wrong size
    }
    task.m_pdc_mask.flip();
    task.m_fdc_mask.flip();
    for (PidFilterContext& channel : task.m_pid_filters) {
        channel.kp = 9.0F;
        channel.sampling_period = 1.0F;
        channel.ui = 3.0F;
        channel.internal1 = std::numeric_limits<float>::quiet_NaN();
    }
}

/// Every member's type, in the order of declaration.
TEST_F(TaskEdcSetupTest, MembersHaveTheirTypes)
{
    static_assert(std::is_base_of_v<Task, TaskEdc>);
    static_assert(!std::is_copy_constructible_v<TaskEdc>);
    static_assert(std::has_virtual_destructor_v<TaskEdc>);
    static_assert(std::is_same_v<decltype(TaskEdc::m_id), int>);
    static_assert(std::is_same_v<decltype(TaskEdc::m_num_pact), int>);
    static_assert(std::is_same_v<decltype(TaskEdc::m_num_es), int>);
    static_assert(std::is_same_v<decltype(TaskEdc::m_num_modes), int>);
    static_assert(std::is_same_v<decltype(TaskEdc::m_pid_enabled), bool>);
    static_assert(std::is_same_v<decltype(TaskEdc::m_filter_enabled), bool>);
    static_assert(std::is_same_v<decltype(TaskEdc::m_feed_forward_enabled), bool>);
    static_assert(std::is_same_v<decltype(TaskEdc::m_es_meas), const float*>);
    static_assert(std::is_same_v<decltype(TaskEdc::m_pact_in), std::vector<float>>);
    static_assert(std::is_same_v<decltype(TaskEdc::m_modes_rate_limited), std::vector<float>>);
    static_assert(std::is_same_v<decltype(TaskEdc::m_modes_ref), std::vector<float>>);
    static_assert(std::is_same_v<decltype(TaskEdc::m_modes_in), std::vector<float>>);
    static_assert(std::is_same_v<decltype(TaskEdc::m_modes_out), std::vector<float>>);
    static_assert(std::is_same_v<decltype(TaskEdc::m_modes_error), std::vector<float>>);
    static_assert(std::is_same_v<decltype(TaskEdc::m_p2edc), std::vector<float>>);
    static_assert(std::is_same_v<decltype(TaskEdc::m_pact2modes), std::vector<float>>);
    static_assert(std::is_same_v<decltype(TaskEdc::m_modes2pact), std::vector<float>>);
    static_assert(std::is_same_v<decltype(TaskEdc::m_pact_ref), std::vector<float>>);
    static_assert(std::is_same_v<decltype(TaskEdc::m_pdc_mask), std::vector<bool>>);
    static_assert(std::is_same_v<decltype(TaskEdc::m_fdc_mask), std::vector<bool>>);
    static_assert(std::is_same_v<decltype(TaskEdc::m_pdc_values), std::vector<float>>);
    static_assert(std::is_same_v<decltype(TaskEdc::m_fdc_values), std::vector<float>>);
    static_assert(std::is_same_v<decltype(TaskEdc::m_pid_filters), std::vector<PidFilterContext>>);
    static_assert(std::is_same_v<decltype(TaskEdc::m_rec_modes_in), Recorder&>);
    static_assert(std::is_same_v<decltype(TaskEdc::m_rec_modes_out), Recorder&>);
    static_assert(std::is_same_v<decltype(TaskEdc::m_rec_num_samples), int>);
}

TEST_F(TaskEdcSetupTest, MembersStandInTheirOrder)
{
    const TaskEdc sut(1, NUM_PACT, NUM_ES, NUM_MODES, m_in, m_out, NUM_SAMPLES);
    const std::vector<const void*> addresses = {
        &sut.m_id,
        &sut.m_num_pact,
        &sut.m_num_es,
        &sut.m_num_modes,
        &sut.m_pid_enabled,
        &sut.m_filter_enabled,
        &sut.m_feed_forward_enabled,
        &sut.m_es_meas,
        &sut.m_pact_in,
        &sut.m_modes_rate_limited,
        &sut.m_modes_ref,
        &sut.m_modes_in,
        &sut.m_modes_out,
        &sut.m_modes_error,
        &sut.m_p2edc,
        &sut.m_pact2modes,
        &sut.m_modes2pact,
        &sut.m_pact_ref,
        &sut.m_pdc_mask,
        &sut.m_fdc_mask,
        &sut.m_pdc_values,
        &sut.m_fdc_values,
        &sut.m_pid_filters,
        &sut.m_rec_num_samples,
    };
    EXPECT_TRUE(std::is_sorted(addresses.begin(), addresses.end()));
}

TEST_F(TaskEdcSetupTest, NameIsTaskEdcPointAndTheNumber)
{
    EXPECT_EQ(TaskEdc(7, NUM_PACT, NUM_ES, NUM_MODES, m_in, m_out, NUM_SAMPLES).GetName(), "TaskEdc.7");
    EXPECT_EQ(TaskEdc(0, NUM_PACT, NUM_ES, NUM_MODES, m_in, m_out, NUM_SAMPLES).GetName(), "TaskEdc.0");
    EXPECT_EQ(TaskEdc(-12, NUM_PACT, NUM_ES, NUM_MODES, m_in, m_out, NUM_SAMPLES).GetName(), "TaskEdc.-12");
}

TEST_F(TaskEdcSetupTest, ConstructorStoresItsArguments)
{
    const TaskEdc sut(7, 4, 5, 3, m_in, m_out, 6);
    EXPECT_EQ(sut.m_id, 7);
    EXPECT_EQ(sut.m_num_pact, 4);
    EXPECT_EQ(sut.m_num_es, 5);
    EXPECT_EQ(sut.m_num_modes, 3);
    EXPECT_EQ(sut.m_rec_num_samples, 6);
    EXPECT_EQ(&sut.m_rec_modes_in, &m_in);
    EXPECT_EQ(&sut.m_rec_modes_out, &m_out);
}

TEST_F(TaskEdcSetupTest, ConstructorTurnsPidAndFilterOnAndFeedForwardOff)
{
    const TaskEdc sut(7, NUM_PACT, NUM_ES, NUM_MODES, m_in, m_out, NUM_SAMPLES);
    EXPECT_TRUE(sut.m_pid_enabled);
    EXPECT_TRUE(sut.m_filter_enabled);
    EXPECT_FALSE(sut.m_feed_forward_enabled);
}

TEST_F(TaskEdcSetupTest, ConstructorAllocatesNothingAndHasNoMeasurementsAndNoDurations)
{
    const TaskEdc sut(7, NUM_PACT, NUM_ES, NUM_MODES, m_in, m_out, NUM_SAMPLES);
    EXPECT_EQ(sut.m_es_meas, nullptr);
    EXPECT_EQ(sut.GetExecTime().count(), 0);
    EXPECT_EQ(sut.GetMaxExecTime().count(), 0);
    for (const std::vector<float>* values :
         {&sut.m_pact_in, &sut.m_modes_rate_limited, &sut.m_modes_ref, &sut.m_modes_in, &sut.m_modes_out,
          &sut.m_modes_error, &sut.m_p2edc, &sut.m_pact2modes, &sut.m_modes2pact, &sut.m_pact_ref, &sut.m_pdc_values,
          &sut.m_fdc_values}) {
        EXPECT_EQ(values->capacity(), 0U);
    }
    EXPECT_EQ(sut.m_pdc_mask.capacity(), 0U);
    EXPECT_EQ(sut.m_fdc_mask.capacity(), 0U);
    EXPECT_EQ(sut.m_pid_filters.capacity(), 0U);
}

TEST_F(TaskEdcSetupTest, ConstructorAndDestructorTouchNoRecorder)
{
    const std::array<float, 2> sample = {1.5F, 2.5F};
    m_in.Init(4, 2);
    m_in.Start(true, 3);
    for (int call = 0; call < 3; ++call) {
        m_in.AddSample(0.25, sample.data());
    }
    {
        const TaskEdc sut(7, NUM_PACT, NUM_ES, NUM_MODES, m_in, m_out, NUM_SAMPLES);
    }
    EXPECT_TRUE(m_in.IsStarted());
    EXPECT_EQ(m_in.GetIndex(), 0);
    EXPECT_EQ(m_in.GetNumSamples(), 4);
    EXPECT_EQ(m_in.GetSamples()[1], 2.5F);
    EXPECT_EQ(m_out.GetNumSamples(), 0);
    EXPECT_THAT(m_out.GetSamples(), IsEmpty());
}

TEST_F(TaskEdcSetupTest, ConstructorAndDestructorWriteTheirEntryLinesToTheTasksOwnLogger)
{
    m_log.Clear();
    {
        const TaskEdc sut(7, NUM_PACT, NUM_ES, NUM_MODES, m_in, m_out, NUM_SAMPLES);
    }
    EXPECT_THAT(m_log.Messages(TRACE_LOG_LEVEL),
                ElementsAre(MatchesRegex(Entry("task", "Task")), MatchesRegex(Entry("taskEdc", "TaskEdc")),
                            MatchesRegex(Entry("taskEdc", "~TaskEdc")), MatchesRegex(Entry("task", "~Task"))));
    EXPECT_THAT(m_log.Events(), Each(::testing::Field(&LogEvent::logger, "ravelcore.TaskEdc.7")));
    EXPECT_THAT(m_log.Events(), SizeIs(4));
}

TEST_F(TaskEdcSetupTest, InitializeSizesAndZeroesAllStorage)
{
    TaskEdc sut(7, 4, 5, 3, m_in, m_out, 6);
    sut.Initialize();
    const auto zeros = [](std::size_t size) {
        return std::vector<float>(size, 0.0F);
    };
    EXPECT_EQ(sut.m_pact_in, zeros(4));
    EXPECT_EQ(sut.m_modes_rate_limited, zeros(3));
    EXPECT_EQ(sut.m_modes_ref, zeros(3));
    EXPECT_EQ(sut.m_modes_in, zeros(3));
    EXPECT_EQ(sut.m_modes_out, zeros(3));
    EXPECT_EQ(sut.m_modes_error, zeros(3));
    EXPECT_EQ(sut.m_p2edc, zeros(15));
    EXPECT_EQ(sut.m_pact2modes, zeros(12));
    EXPECT_EQ(sut.m_modes2pact, zeros(12));
    EXPECT_EQ(sut.m_pact_ref, zeros(4));
    EXPECT_EQ(sut.m_pdc_mask, std::vector<bool>(3, false));
    EXPECT_EQ(sut.m_fdc_mask, std::vector<bool>(3, false));
    EXPECT_EQ(sut.m_pdc_values, zeros(3));
    EXPECT_EQ(sut.m_fdc_values, zeros(3));
    EXPECT_THAT(sut.m_pid_filters, SizeIs(3));
    EXPECT_EQ(sut.m_es_meas, nullptr);
    EXPECT_EQ(sut.GetMaxExecTime().count(), 0);
}

TEST_F(TaskEdcSetupTest, InitializeGivesEveryChannelTheDefaults)
{
    TaskEdc sut(7, NUM_PACT, NUM_ES, NUM_MODES, m_in, m_out, NUM_SAMPLES);
    sut.Initialize();
    ASSERT_THAT(sut.m_pid_filters, SizeIs(NUM_MODES));
    for (const PidFilterContext& channel : sut.m_pid_filters) {
        EXPECT_EQ(channel.feed_forward_offset, 0.0F);
        EXPECT_EQ(channel.sampling_period, 0.002F);
        EXPECT_EQ(channel.kp, 0.001F);
        EXPECT_EQ(channel.ki, 200.0F);
        EXPECT_EQ(channel.kd, 0.0F);
        EXPECT_EQ(channel.karw, 0.0F);
        EXPECT_EQ(channel.ulow, -200.0F);
        EXPECT_EQ(channel.uhigh, 200.0F);
        EXPECT_EQ(channel.n, 10.0F);
        EXPECT_EQ(channel.tt, 0.1F);
        EXPECT_EQ(channel.bp, 1.0F);
        EXPECT_EQ(channel.freq, 30.0F);
        EXPECT_FLOAT_EQ(channel.a0, 0.02F);
        EXPECT_FLOAT_EQ(channel.bi, 0.0004F);
        EXPECT_EQ(channel.n1, 2.0F);
        EXPECT_GT(channel.gain, 0.0F);
        EXPECT_EQ(channel.ui, 0.0F);
        EXPECT_EQ(channel.ud, 0.0F);
        EXPECT_EQ(channel.last_meas, 0.0F);
        EXPECT_EQ(channel.internal1, 0.0F);
        EXPECT_EQ(channel.internal2, 0.0F);
    }
}

TEST_F(TaskEdcSetupTest, InitializeSizesBothRecordersWithCapacityAndModes)
{
    TaskEdc sut(7, NUM_PACT, NUM_ES, NUM_MODES, m_in, m_out, NUM_SAMPLES);
    sut.Initialize();
    for (const Recorder* recorder : {&m_in, &m_out}) {
        EXPECT_EQ(recorder->GetNumSamples(), NUM_SAMPLES);
        EXPECT_EQ(recorder->GetSampleSize(), NUM_MODES);
        EXPECT_EQ(recorder->GetSamples(), std::vector<float>(NUM_SAMPLES * NUM_MODES, 0.0F));
        EXPECT_EQ(recorder->GetTimestamps(), std::vector<double>(NUM_SAMPLES, 0.0));
        EXPECT_EQ(recorder->GetIndex(), -1);
        EXPECT_FALSE(recorder->IsStarted());
    }
}

TEST_F(TaskEdcSetupTest, InitializeLogsTheRecordersInOrderAndThenItself)
{
    TaskEdc sut(7, NUM_PACT, NUM_ES, NUM_MODES, m_in, m_out, NUM_SAMPLES);
    m_log.Clear();
    sut.Initialize();
    EXPECT_THAT(m_log.Messages(DEBUG_LOG_LEVEL),
                ElementsAre("Initialized recorded in for 6 samples of size 3 (loopback = 0, decimation = 0).",
                            "Initialized recorded out for 6 samples of size 3 (loopback = 0, decimation = 0).",
                            "Task initialized."));
    EXPECT_THAT(m_log.Events().front().message, MatchesRegex(Entry("taskEdc", "Initialize")));
    EXPECT_EQ(m_log.Events().front().level, TRACE_LOG_LEVEL);
    EXPECT_EQ(m_log.Events().front().logger, "ravelcore.TaskEdc.7");
    EXPECT_EQ(m_log.Events().back().message, "Task initialized.");
    EXPECT_EQ(m_log.Events().back().logger, "ravelcore.TaskEdc.7");
}

TEST_F(TaskEdcSetupTest, InitializeMakesTheBlasSingleThreaded)
{
    openblas_set_num_threads(2);
    ASSERT_EQ(openblas_get_num_threads(), 2);
    TaskEdc sut(7, NUM_PACT, NUM_ES, NUM_MODES, m_in, m_out, NUM_SAMPLES);
    EXPECT_EQ(openblas_get_num_threads(), 2) << "the constructor has nothing to do with it";
    sut.Initialize();
    EXPECT_EQ(openblas_get_num_threads(), 1);
}

TEST_F(TaskEdcSetupTest, SecondInitializeZeroesEverythingAgain)
{
    TaskEdc sut(7, NUM_PACT, NUM_ES, NUM_MODES, m_in, m_out, NUM_SAMPLES);
    sut.Initialize();
    const EdcState fresh = StateOf(sut);
    FillEverything(sut);
    const std::vector<float> sample(NUM_MODES, 4.0F);
    for (Recorder* recorder : {&m_in, &m_out}) {
        recorder->Start(false, 0);
        recorder->AddSample(1.0, sample.data());
        recorder->Stop();
    }
    ASSERT_THAT(Differences(fresh, StateOf(sut)), SizeIs(21));
    sut.Initialize();
    EXPECT_THAT(Differences(fresh, StateOf(sut)), IsEmpty());
}

TEST_F(TaskEdcSetupTest, InitializeLeavesFlagsMeasurementsAndDurationsAlone)
{
    TaskEdc sut(7, NUM_PACT, NUM_ES, NUM_MODES, m_in, m_out, NUM_SAMPLES);
    sut.Initialize();
    const std::vector<float> es(NUM_ES, 1.0F);
    sut.m_es_meas = es.data();
    sut.m_pid_enabled = false;
    sut.m_filter_enabled = false;
    sut.m_feed_forward_enabled = true;
    m_log.SetLevel(log4cplus::INFO_LOG_LEVEL);
    sut.Execute(0.0, true);
    const auto duration = sut.GetMaxExecTime();
    ASSERT_GT(duration.count(), 0);
    sut.Initialize();
    EXPECT_FALSE(sut.m_pid_enabled);
    EXPECT_FALSE(sut.m_filter_enabled);
    EXPECT_TRUE(sut.m_feed_forward_enabled);
    EXPECT_EQ(sut.m_es_meas, es.data());
    EXPECT_EQ(sut.GetExecTime(), duration);
    EXPECT_EQ(sut.GetMaxExecTime(), duration);
}

TEST_F(TaskEdcSetupTest, InitializeLeavesARecordingRecorderRecording)
{
    TaskEdc sut(7, NUM_PACT, NUM_ES, NUM_MODES, m_in, m_out, NUM_SAMPLES);
    m_in.Start(true, 5);
    m_log.Clear();
    sut.Initialize();
    EXPECT_TRUE(m_in.IsStarted());
    EXPECT_EQ(m_log.Messages(DEBUG_LOG_LEVEL).front(),
              "Initialized recorded in for 6 samples of size 3 (loopback = 1, decimation = 5).");
}

TEST_F(TaskEdcSetupTest, InitializePassesOnThatARecorderHasNoCapacity)
{
    TaskEdc no_samples(7, NUM_PACT, NUM_ES, 3, m_in, m_out, 0);
    ExpectException(Thrown([&] { no_samples.Initialize(); }),
                    "Recorder in initialized with invalid capacity 0 and/or sample size3", "Init", "recorder.cpp");
    TaskEdc no_modes(8, NUM_PACT, NUM_ES, 0, m_in, m_out, 6);
    ExpectException(Thrown([&] { no_modes.Initialize(); }),
                    "Recorder in initialized with invalid capacity 6 and/or sample size0", "Init", "recorder.cpp");
}

TEST_F(TaskEdcSetupTest, InitializeRefusesImpossibleSizesBeforeAnythingIsAllocated)
{
    struct Sizes
    {
        int num_pact, num_es, num_modes;
        std::string refused;  // rows and columns of the matrix that cannot be
    };
    for (const Sizes& sizes : {Sizes{-2, 5, 3, "3 x -2"}, Sizes{4, -1, 3, "3 x -1"}, Sizes{4, 5, -3, "-3 x 5"},
                               Sizes{50001, 5, 50000, "50000 x 50001"}, Sizes{4, 50002, 50000, "50000 x 50002"}}) {
        SCOPED_TRACE(sizes.refused);
        TaskEdc sut(7, sizes.num_pact, sizes.num_es, sizes.num_modes, m_in, m_out, NUM_SAMPLES);
        const EdcState before = StateOf(sut);
        ExpectException(
            Thrown([&] { sut.Initialize(); }),
            "Expected a matrix with counts of 0 or more and at most 2147483647 elements but received one of " +
                sizes.refused + ".",
            "Initialize", "taskEdc.cpp");
        EXPECT_THAT(Differences(before, StateOf(sut)), IsEmpty());
    }
}

TEST_F(TaskEdcSetupTest, ConfigureLogsOnlyThatItWasCalled)
{
    TaskEdc sut(7, NUM_PACT, NUM_ES, NUM_MODES, m_in, m_out, NUM_SAMPLES);
    m_log.Clear();
    sut.Configure({});
    const std::vector<LogEvent> events = m_log.Events();
    ASSERT_THAT(events, SizeIs(2));
    EXPECT_EQ(events[0].level, TRACE_LOG_LEVEL);
    EXPECT_THAT(events[0].message, MatchesRegex(Entry("taskEdc", "Configure")));
    EXPECT_EQ(events[1].level, DEBUG_LOG_LEVEL);
    EXPECT_EQ(events[1].message, "Task configured.");
    EXPECT_EQ(events[1].logger, "ravelcore.TaskEdc.7");
}

TEST_F(TaskEdcSetupTest, ConfigureReadsNoKeyNotEvenOnesThatAreNoNumber)
{
    TaskEdc sut(7, NUM_PACT, NUM_ES, NUM_MODES, m_in, m_out, NUM_SAMPLES);
    sut.Initialize();
    FillEverything(sut);
    const EdcState before = StateOf(sut);
    sut.Configure({{KEY_TASK_EDC_NUM_PACT, "100"},
                   {KEY_TASK_EDC_NUM_ES, "no number"},
                   {KEY_TASK_EDC_SLICE_SIZE, "99999999999999999999"},
                   {KEY_TASK_SGEMV_NUM_ROWS, "12"}});
    EXPECT_THAT(Differences(before, StateOf(sut)), IsEmpty());
}

TEST_F(TaskEdcSetupTest, DestructorLeavesTheRecorders)
{
    {
        TaskEdc sut(7, NUM_PACT, NUM_ES, NUM_MODES, m_in, m_out, NUM_SAMPLES);
        sut.Initialize();
    }
    EXPECT_EQ(m_in.GetSampleSize(), NUM_MODES);
    EXPECT_EQ(m_out.GetNumSamples(), NUM_SAMPLES);
}

}  // namespace
}  // namespace lumo::ravelcore
