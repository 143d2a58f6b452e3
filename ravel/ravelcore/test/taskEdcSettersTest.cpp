#include "support/edcState.hpp"
#include "support/logCapture.hpp"
#include "support/ramp.hpp"
#include "support/thrown.hpp"

#include <lumo/ravelcore/names.hpp>
#include <lumo/ravelcore/taskEdc.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

// The setters of TaskEdc.

namespace lumo::ravelcore {
namespace {

using log4cplus::TRACE_LOG_LEVEL;
using test::Differences;
using test::EdcState;
using test::ExpectException;
using test::LogCapture;
using test::LogEvent;
using test::Ramp;
using test::StateOf;
using test::Thrown;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;

/// An expected source position and name of the entry line.
std::string Entry(const std::string& function)
{
    return "ravel/ravelcore/src/taskEdc\\.cpp " + function + " [0-9]+";
}

// ---------------------------------------------------------------------------------------------- the three matrices

struct MatrixSetters
{
    std::string token;
    std::string matrix_setter;
    std::string value_setter;
    void (TaskEdc::*set_matrix)(const std::vector<float>&);
    void (TaskEdc::*set_value)(int, float);
    std::vector<float> TaskEdc::*matrix;
    std::string member;
    int rows;
    int cols;
};

// 4 actuators, 5 sensors, 3 modes.
const MatrixSetters PACT2MODES = {"PACT2MODES",
                                  "SetPact2ModesMatrix",
                                  "SetPact2ModesValue",
                                  &TaskEdc::SetPact2ModesMatrix,
                                  &TaskEdc::SetPact2ModesValue,
                                  &TaskEdc::m_pact2modes,
                                  "m_pact2modes",
                                  3,
                                  4};
const MatrixSetters P2EDC = {"P2EDC",
                             "SetP2EdcMatrix",
                             "SetP2EdcValue",
                             &TaskEdc::SetP2EdcMatrix,
                             &TaskEdc::SetP2EdcValue,
                             &TaskEdc::m_p2edc,
                             "m_p2edc",
                             3,
                             5};
const MatrixSetters MODES2PACT = {"MODES2PACT",
                                  "SetModes2PactMatrix",
                                  "SetModes2PactValue",
                                  &TaskEdc::SetModes2PactMatrix,
                                  &TaskEdc::SetModes2PactValue,
                                  &TaskEdc::m_modes2pact,
                                  "m_modes2pact",
                                  4,
                                  3};

class TaskEdcMatrixTest : public ::testing::TestWithParam<MatrixSetters>
{
protected:
    const std::vector<float>& Matrix() const { return sut.*m_of.matrix; }
    void SetMatrix(const std::vector<float>& values) { (sut.*m_of.set_matrix)(values); }
    void SetValue(int index, float value) { (sut.*m_of.set_value)(index, value); }

    const MatrixSetters m_of = GetParam();
    const int m_size = m_of.rows * m_of.cols;
    LogCapture m_log{LOGGER_RAVELCORE};
    Recorder m_in{"in"};
    Recorder m_out{"out"};
    TaskEdc sut{7, 4, 5, 3, m_in, m_out, 6};
};

INSTANTIATE_TEST_SUITE_P(, TaskEdcMatrixTest, ::testing::Values(PACT2MODES, P2EDC, MODES2PACT),
                         [](const auto& one) { return one.param.token; });

TEST_P(TaskEdcMatrixTest, SettersBeforeInitializeThrowNotAllocated)
{
    const EdcState before = StateOf(sut);
    const std::string message = m_of.token + " matrix not allocated.";
    ExpectException(Thrown([&] { SetMatrix(Ramp(static_cast<std::size_t>(m_size), 1.0F)); }), message,
                    m_of.matrix_setter, "taskEdc.cpp");
    ExpectException(Thrown([&] { SetMatrix({}); }), message, m_of.matrix_setter, "taskEdc.cpp");
    ExpectException(Thrown([&] { SetValue(0, 1.0F); }), message, m_of.value_setter, "taskEdc.cpp");
    ExpectException(Thrown([&] { SetValue(-1, 1.0F); }), message, m_of.value_setter, "taskEdc.cpp");
    EXPECT_THAT(Differences(before, StateOf(sut)), IsEmpty());
}

TEST_P(TaskEdcMatrixTest, TaskWorksAfterSettersThatCameBeforeInitialize)
{
    EXPECT_THROW(SetValue(0, 1.0F), brisk::Exception);
    sut.Initialize();
    EXPECT_EQ(Matrix(), std::vector<float>(static_cast<std::size_t>(m_size), 0.0F));
    SetValue(0, 1.0F);
    EXPECT_EQ(Matrix()[0], 1.0F);
}

TEST_P(TaskEdcMatrixTest, MatrixIsCopiedElementForElementInPlace)
{
    sut.Initialize();
    const EdcState before = StateOf(sut);
    const float* const storage = Matrix().data();
    const std::vector<float> given = Ramp(static_cast<std::size_t>(m_size), -3.5F);
    SetMatrix(given);
    EXPECT_EQ(Matrix(), given);
    EXPECT_EQ(Matrix().data(), storage) << "reallocated";
    EXPECT_THAT(Differences(before, StateOf(sut)), ElementsAre(m_of.member));
}

TEST_P(TaskEdcMatrixTest, MatrixMayBeItself)
{
    sut.Initialize();
    const std::vector<float> given = Ramp(static_cast<std::size_t>(m_size), 1.0F);
    SetMatrix(given);
    SetMatrix(Matrix());
    EXPECT_EQ(Matrix(), given);
}

TEST_P(TaskEdcMatrixTest, MatrixSetterWritesEntryLineAndElementCountAtTrace)
{
    sut.Initialize();
    m_log.Clear();
    SetMatrix(Ramp(static_cast<std::size_t>(m_size), 1.0F));
    EXPECT_THAT(m_log.Messages(TRACE_LOG_LEVEL),
                ElementsAre(MatchesRegex(Entry(m_of.matrix_setter)),
                            "Updated " + m_of.token + ' ' + std::to_string(m_size) + " values."));
    EXPECT_THAT(m_log.Events(), ::testing::Each(::testing::Field(&LogEvent::logger, "ravelcore.TaskEdc.7")));
    EXPECT_THAT(m_log.Events(), ::testing::SizeIs(2));
}

TEST_P(TaskEdcMatrixTest, MatrixOfAnotherSizeThrowsBothSizesAndLeavesTheTaskUnchanged)
{
    sut.Initialize();
    SetMatrix(Ramp(static_cast<std::size_t>(m_size), 1.0F));
    const EdcState before = StateOf(sut);
    for (const int size : {0, 1, m_size - 1, m_size + 1, 10 * m_size}) {
        m_log.Clear();
        ExpectException(Thrown([&] { SetMatrix(Ramp(static_cast<std::size_t>(size), 9.0F)); }),
                        "Expected " + m_of.token + " of " + std::to_string(m_size) + " but received one of " +
                            std::to_string(size) + " elements.",
                        m_of.matrix_setter, "taskEdc.cpp");
        EXPECT_THAT(m_log.Messages(TRACE_LOG_LEVEL), ElementsAre(MatchesRegex(Entry(m_of.matrix_setter))));
    }
    EXPECT_THAT(Differences(before, StateOf(sut)), IsEmpty());
}

TEST_P(TaskEdcMatrixTest, EachIndexStoresOneElementAtThatRowMajorPlace)
{
    sut.Initialize();
    std::vector<float> expected(static_cast<std::size_t>(m_size), 0.0F);
    const EdcState before = StateOf(sut);
    for (int row = 0; row < m_of.rows; ++row) {
        for (int col = 0; col < m_of.cols; ++col) {
            const int index = row * m_of.cols + col;
            expected[static_cast<std::size_t>(index)] = static_cast<float>(100 * row + col + 1);
            SetValue(index, static_cast<float>(100 * row + col + 1));
            ASSERT_EQ(Matrix(), expected);
        }
    }
    EXPECT_THAT(Differences(before, StateOf(sut)), ElementsAre(m_of.member));
}

TEST_P(TaskEdcMatrixTest, ValueSetterWritesEntryLineValueAndPlaceAtTrace)
{
    sut.Initialize();
    m_log.Clear();
    SetValue(0, 0.1F);
    SetValue(m_size - 1, -1234567.0F);
    EXPECT_THAT(m_log.Messages(TRACE_LOG_LEVEL),
                ElementsAre(MatchesRegex(Entry(m_of.value_setter)), "Updated " + m_of.token + " value 0.1 in pos. 0",
                            MatchesRegex(Entry(m_of.value_setter)),
                            "Updated " + m_of.token + " value -1.23457e+06 in pos. " + std::to_string(m_size - 1)));
}

TEST_P(TaskEdcMatrixTest, IndexOutOfRangeThrowsTheRangeAndLeavesTheTaskUnchanged)
{
    sut.Initialize();
    const EdcState before = StateOf(sut);
    for (const int index : {-1, m_size, m_size + 1, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()}) {
        m_log.Clear();
        ExpectException(
            Thrown([&] { SetValue(index, 9.0F); }),
            m_of.token + " index " + std::to_string(index) + " out of range [0.." + std::to_string(m_size - 1) + "].",
            m_of.value_setter, "taskEdc.cpp");
        EXPECT_THAT(m_log.Messages(TRACE_LOG_LEVEL), ElementsAre(MatchesRegex(Entry(m_of.value_setter))));
    }
    EXPECT_THAT(Differences(before, StateOf(sut)), IsEmpty());
}

TEST_P(TaskEdcMatrixTest, NotANumberIsStoredLikeAnyValue)
{
    sut.Initialize();
    SetValue(1, std::numeric_limits<float>::quiet_NaN());
    EXPECT_TRUE(std::isnan(Matrix()[1]));
}

TEST_P(TaskEdcMatrixTest, SecondInitializeDiscardsTheMatrix)
{
    sut.Initialize();
    SetMatrix(Ramp(static_cast<std::size_t>(m_size), 1.0F));
    sut.Initialize();
    EXPECT_EQ(Matrix(), std::vector<float>(static_cast<std::size_t>(m_size), 0.0F));
}

TEST(TaskEdcEmptyMatrixTest, MatrixWithAZeroDimensionCountsAsNotAllocated)
{
    const LogCapture log(LOGGER_RAVELCORE, log4cplus::INFO_LOG_LEVEL);
    Recorder in("in");
    Recorder out("out");
    TaskEdc sut(7, 0, 5, 3, in, out, 6);
    sut.Initialize();
    ExpectException(Thrown([&] { sut.SetPact2ModesMatrix({}); }), "PACT2MODES matrix not allocated.",
                    "SetPact2ModesMatrix", "taskEdc.cpp");
    ExpectException(Thrown([&] { sut.SetModes2PactValue(0, 1.0F); }), "MODES2PACT matrix not allocated.",
                    "SetModes2PactValue", "taskEdc.cpp");
    sut.SetP2EdcMatrix(Ramp(15, 1.0F));
    EXPECT_EQ(sut.m_p2edc.back(), 15.0F);
}

// ---------------------------------------------------------------------------------------------------- the channels

/// The field that each packed parameter goes to, by the numbers that callers use.
constexpr float PidFilterContext::*FIELDS[10] = {
    &PidFilterContext::kp,    &PidFilterContext::ki,  &PidFilterContext::kd, &PidFilterContext::karw,
    &PidFilterContext::bp,    &PidFilterContext::tt,  &PidFilterContext::n,  &PidFilterContext::ulow,
    &PidFilterContext::uhigh, &PidFilterContext::freq};

class TaskEdcPidFiltersTest : public ::testing::Test
{
protected:
    static constexpr int NUM_MODES = 20;

    /// Parameters that all differ.
    static std::vector<float> Params()
    {
        std::vector<float> params = Ramp(10 * NUM_MODES, 1.0F);
        for (float& param : params) {
            param /= 8.0F;
        }
        return params;
    }

    /// A channel that has run: everything in it that is not a parameter is 5.
    static void Use(PidFilterContext& channel)
    {
        for (float PidFilterContext::*field :
             {&PidFilterContext::a0, &PidFilterContext::bi, &PidFilterContext::ci, &PidFilterContext::ad,
              &PidFilterContext::bd, &PidFilterContext::ui, &PidFilterContext::ud, &PidFilterContext::last_meas,
              &PidFilterContext::gain, &PidFilterContext::n1, &PidFilterContext::d1, &PidFilterContext::n2,
              &PidFilterContext::d2, &PidFilterContext::internal1, &PidFilterContext::internal2}) {
            channel.*field = 5.0F;
        }
    }

    LogCapture m_log{LOGGER_RAVELCORE};
    Recorder m_in{"in"};
    Recorder m_out{"out"};
    TaskEdc sut{7, 4, 5, NUM_MODES, m_in, m_out, 6};
};

TEST_F(TaskEdcPidFiltersTest, SettersBeforeInitializeThrowNotAllocatedWhateverTheArguments)
{
    const EdcState before = StateOf(sut);
    ExpectException(Thrown([&] { sut.SetPidFilters(Params()); }), "PidFilters not allocated.", "SetPidFilters",
                    "taskEdc.cpp");
    ExpectException(Thrown([&] { sut.SetPidFilters({}); }), "PidFilters not allocated.", "SetPidFilters",
                    "taskEdc.cpp");
    ExpectException(Thrown([&] { sut.SetPidFiltersParam(0, 1, 2.0F); }), "PidFilters not allocated.",
                    "SetPidFiltersParam", "taskEdc.cpp");
    ExpectException(Thrown([&] { sut.SetPidFiltersParam(-1, 11, 2.0F); }), "PidFilters not allocated.",
                    "SetPidFiltersParam", "taskEdc.cpp");
    EXPECT_THAT(Differences(before, StateOf(sut)), IsEmpty());
}

TEST_F(TaskEdcPidFiltersTest, TenFloatsAModeGoToTheFieldsInPackedOrder)
{
    sut.Initialize();
    const std::vector<float> params = Params();
    sut.SetPidFilters(params);
    for (std::size_t mode = 0; mode < NUM_MODES; ++mode) {
        for (std::size_t param = 0; param < 10; ++param) {
            EXPECT_EQ(sut.m_pid_filters[mode].*FIELDS[param], params[10 * mode + param]) << mode << ' ' << param;
        }
    }
}

TEST_F(TaskEdcPidFiltersTest, AllChannelsAreInitialisedAndLoseTheirState)
{
    sut.Initialize();
    for (PidFilterContext& channel : sut.m_pid_filters) {
        Use(channel);
    }
    const EdcState before = StateOf(sut);
    const std::vector<float> params = Params();
    sut.SetPidFilters(params);
    EXPECT_THAT(Differences(before, StateOf(sut)), ElementsAre("m_pid_filters"));
    for (std::size_t mode = 0; mode < NUM_MODES; ++mode) {
        const PidFilterContext& channel = sut.m_pid_filters[mode];
        EXPECT_EQ(channel.ui, 0.0F);
        EXPECT_EQ(channel.ud, 0.0F);
        EXPECT_EQ(channel.last_meas, 0.0F);
        EXPECT_EQ(channel.internal1, 0.0F);
        EXPECT_EQ(channel.internal2, 0.0F);
        EXPECT_EQ(channel.a0, 0.002F / channel.tt);
        EXPECT_EQ(channel.bi, (0.002F * channel.kp) * channel.ki);
        EXPECT_EQ(channel.ci, channel.karw * 0.002F);
        EXPECT_NE(channel.ad, 5.0F);
        EXPECT_NE(channel.bd, 5.0F);
        EXPECT_NE(channel.gain, 5.0F);
        EXPECT_EQ(channel.n1, 2.0F);
        EXPECT_EQ(channel.n2, 1.0F);
        EXPECT_NE(channel.d1, 5.0F);
        EXPECT_NE(channel.d2, 5.0F);
    }
}

TEST_F(TaskEdcPidFiltersTest, SamplingPeriodAndFeedForwardOffsetStayAsTheyWere)
{
    sut.Initialize();
    sut.SetPidFilters(Params());
    EXPECT_EQ(sut.m_pid_filters[3].sampling_period, 0.002F);
    EXPECT_EQ(sut.m_pid_filters[3].feed_forward_offset, 0.0F);
    sut.m_pid_filters[3].sampling_period = 0.004F;
    sut.m_pid_filters[3].feed_forward_offset = 1.5F;
    sut.SetPidFilters(Params());
    EXPECT_EQ(sut.m_pid_filters[3].sampling_period, 0.004F);
    EXPECT_EQ(sut.m_pid_filters[3].feed_forward_offset, 1.5F);
    EXPECT_EQ(sut.m_pid_filters[3].a0, 0.004F / sut.m_pid_filters[3].tt);
}

TEST_F(TaskEdcPidFiltersTest, MessageOfAnotherNumberOfFloatsSaysNineAModeAlthoughTenAreTaken)
{
    sut.Initialize();
    ExpectException(Thrown([&] { sut.SetPidFilters(std::vector<float>(199)); }),
                    "Expected 180 but received 199 elements.", "SetPidFilters", "taskEdc.cpp");
    ExpectException(Thrown([&] { sut.SetPidFilters(std::vector<float>(180)); }),
                    "Expected 180 but received 180 elements.", "SetPidFilters", "taskEdc.cpp");
    ExpectException(Thrown([&] { sut.SetPidFilters(std::vector<float>(201)); }),
                    "Expected 180 but received 201 elements.", "SetPidFilters", "taskEdc.cpp");
    ExpectException(Thrown([&] { sut.SetPidFilters({}); }), "Expected 180 but received 0 elements.", "SetPidFilters",
                    "taskEdc.cpp");
    EXPECT_NO_THROW(sut.SetPidFilters(Params()));
}

TEST_F(TaskEdcPidFiltersTest, AnotherNumberOfFloatsLeavesTheTaskUnchanged)
{
    sut.Initialize();
    for (PidFilterContext& channel : sut.m_pid_filters) {
        Use(channel);
    }
    const EdcState before = StateOf(sut);
    m_log.Clear();
    EXPECT_THROW(sut.SetPidFilters(std::vector<float>(199, 2.0F)), brisk::Exception);
    EXPECT_THAT(m_log.Messages(TRACE_LOG_LEVEL), ElementsAre(MatchesRegex(Entry("SetPidFilters"))));
    EXPECT_THAT(Differences(before, StateOf(sut)), IsEmpty());
}

TEST_F(TaskEdcPidFiltersTest, SuccessWritesEntryLineAndNumberOfParametersAtTrace)
{
    sut.Initialize();
    m_log.Clear();
    sut.SetPidFilters(Params());
    EXPECT_THAT(m_log.Messages(TRACE_LOG_LEVEL),
                ElementsAre(MatchesRegex(Entry("SetPidFilters")), "Updated PID and Filters 200 parameters."));
    EXPECT_THAT(m_log.Events(), ::testing::Each(::testing::Field(&LogEvent::logger, "ravelcore.TaskEdc.7")));
    EXPECT_THAT(m_log.Events(), ::testing::SizeIs(2));
}

TEST_F(TaskEdcPidFiltersTest, OneParameterWritesItsFieldAndNothingElseAndLogsNothingMore)
{
    sut.Initialize();
    for (PidFilterContext& channel : sut.m_pid_filters) {
        Use(channel);
    }
    for (int param = 1; param <= 10; ++param) {
        for (const int mode : {0, 7, NUM_MODES - 1}) {
            const float value = 1000.0F * static_cast<float>(param) + static_cast<float>(mode);
            std::vector<PidFilterContext> expected = sut.m_pid_filters;
            expected[static_cast<std::size_t>(mode)].*FIELDS[param - 1] = value;
            EdcState state = StateOf(sut);
            m_log.Clear();
            sut.SetPidFiltersParam(mode, param, value);
            EXPECT_THAT(m_log.Messages(TRACE_LOG_LEVEL), ElementsAre(MatchesRegex(Entry("SetPidFiltersParam"))));
            EXPECT_THAT(m_log.Events(), ::testing::SizeIs(1));
            EXPECT_THAT(Differences(state, StateOf(sut)), ElementsAre("m_pid_filters"));
            state = StateOf(sut);
            sut.m_pid_filters = expected;
            EXPECT_THAT(Differences(state, StateOf(sut)), IsEmpty()) << "mode " << mode << " parameter " << param;
        }
    }
}

TEST_F(TaskEdcPidFiltersTest, ParameterNumberOutOfRangeThrowsBeforeTheModeIsLookedAt)
{
    sut.Initialize();
    const EdcState before = StateOf(sut);
    for (const int param : {11, 0, -1, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()}) {
        for (const int mode : {0, -1, NUM_MODES}) {
            m_log.Clear();
            ExpectException(Thrown([&] { sut.SetPidFiltersParam(mode, param, 2.0F); }),
                            "PidFilters parameter number " + std::to_string(param) + " out of range [1..10].",
                            "SetPidFiltersParam", "taskEdc.cpp");
            EXPECT_THAT(m_log.Messages(TRACE_LOG_LEVEL), ElementsAre(MatchesRegex(Entry("SetPidFiltersParam"))));
        }
    }
    EXPECT_THAT(Differences(before, StateOf(sut)), IsEmpty());
}

TEST_F(TaskEdcPidFiltersTest, ModeOutOfRangeThrowsTheRangeAndLeavesTheTaskUnchanged)
{
    sut.Initialize();
    const EdcState before = StateOf(sut);
    for (const int mode : {-1, NUM_MODES, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()}) {
        ExpectException(Thrown([&] { sut.SetPidFiltersParam(mode, 1, 2.0F); }),
                        "PidFilters mode " + std::to_string(mode) + " out of range [0..19].", "SetPidFiltersParam",
                        "taskEdc.cpp");
    }
    EXPECT_THAT(Differences(before, StateOf(sut)), IsEmpty());
}

/// One mode that measures what it is given, with a set-point of its own, after a first cycle at 0.
class TaskEdcParamInEffectTest : public ::testing::Test
{
protected:
    TaskEdcParamInEffectTest()
    {
        sut.Initialize();
        sut.SetP2EdcMatrix({1.0F});
        //                 kp    ki     kd    karw  bp    tt    n      ulow    uhigh  freq
        sut.SetPidFilters({0.5F, 30.0F, 0.1F, 4.0F, 1.0F, 0.1F, 10.0F, -100.0F, 100.0F, 30.0F});
        sut.m_filter_enabled = false;
        sut.m_es_meas = &m_meas;
        sut.Execute(0.0, true);
    }

    /// The output of the next cycle.
    float Step(float meas, float ref)
    {
        m_meas = meas;
        sut.m_modes_ref[0] = ref;
        sut.Execute(0.0, false);
        return sut.m_modes_out[0];
    }

    const LogCapture m_log{LOGGER_RAVELCORE, log4cplus::INFO_LOG_LEVEL};
    float m_meas = 0.0F;
    Recorder m_in{"in"};
    Recorder m_out{"out"};
    TaskEdc sut{7, 1, 1, 1, m_in, m_out, 6};
};

TEST_F(TaskEdcParamInEffectTest, NewKpChangesTheProportionalTermAtOnceAndLeavesTheOldKpInTheCoefficients)
{
    const PidFilterContext before = sut.m_pid_filters[0];
    sut.SetPidFiltersParam(0, 1, 2.0F);
    EXPECT_EQ(sut.m_pid_filters[0].bi, before.bi);
    EXPECT_EQ(sut.m_pid_filters[0].bd, before.bd);
    EXPECT_EQ(Step(0.0F, 3.0F), 2.0F * 3.0F);
    EXPECT_EQ(sut.m_pid_filters[0].ui, 3.0F * before.bi);
}

TEST_F(TaskEdcParamInEffectTest, NewSetpointWeightActsAtTheNextCycle)
{
    sut.SetPidFiltersParam(0, 5, 0.25F);
    EXPECT_EQ(Step(0.0F, 4.0F), 0.25F * 4.0F * 0.5F);
}

TEST_F(TaskEdcParamInEffectTest, NewLimitsActAtTheNextCycle)
{
    sut.SetPidFiltersParam(0, 9, 1.5F);
    EXPECT_EQ(Step(0.0F, 100.0F), 1.5F);
    sut.SetPidFiltersParam(0, 8, -2.5F);
    EXPECT_EQ(Step(0.0F, -1000.0F), -2.5F);
}

TEST_F(TaskEdcParamInEffectTest, OtherParametersWaitForTheNextInitialisationOfTheChannel)
{
    sut.m_filter_enabled = true;
    sut.SetPact2ModesMatrix({1.0F});
    sut.m_pact_in = {1.0F};                // so that karw shows
    sut.SetPidFiltersParam(0, 9, -50.0F);  // and the others: the output saturates
    Step(1.0F, 2.0F);
    const PidFilterContext before = sut.m_pid_filters[0];
    Step(3.0F, 5.0F);
    const float expected = sut.m_pid_filters[0].ui;
    for (const int param : {2, 3, 4, 6, 7, 10}) {
        PidFilterContext& channel = sut.m_pid_filters[0];
        channel = before;
        sut.SetPidFiltersParam(0, param, 17.0F);
        Step(3.0F, 5.0F);
        EXPECT_EQ(channel.ui, expected) << param;

        channel = before;
        sut.SetPidFiltersParam(0, param, 17.0F);
        PidFilterInit(channel);
        channel.ui = before.ui;
        channel.ud = before.ud;
        channel.last_meas = before.last_meas;
        channel.internal1 = before.internal1;
        channel.internal2 = before.internal2;
        Step(3.0F, 5.0F);
        EXPECT_NE(channel.ui, expected) << "parameter " << param << " never takes effect";
    }
}

}  // namespace
}  // namespace lumo::ravelcore
