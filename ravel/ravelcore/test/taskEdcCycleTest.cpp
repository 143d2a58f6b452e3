#include "support/edcReference.hpp"
#include "support/edcRig.hpp"
#include "support/edcState.hpp"
#include "support/logHook.hpp"
#include "support/sameFloat.hpp"
#include "support/thrown.hpp"

#include <lumo/ravelcore/taskEdc.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <random>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

// What one cycle does to modes, channels, references and recorders. What it logs: taskEdcLogTest.cpp.

namespace lumo::ravelcore {
namespace {

using test::Differences;
using test::EdcReference;
using test::EdcRig;
using test::EdcState;
using test::Fractions;
using test::Integers;
using test::IsSame;
using test::StateOf;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::IsNan;
using ::testing::SizeIs;

constexpr float NOT_A_NUMBER = std::numeric_limits<float>::quiet_NaN();
constexpr float INFINITE = std::numeric_limits<float>::infinity();

void ExpectSame(const std::string& what, const std::vector<float>& seen, const std::vector<float>& expected)
{
    ASSERT_EQ(seen.size(), expected.size()) << what;
    for (std::size_t i = 0; i < seen.size(); ++i) {
        EXPECT_PRED2(IsSame, seen[i], expected[i]) << what << '[' << i << ']';
    }
}

// ----------------------------------------------------------------- the whole cycle against a reference, bit for bit

/// PID, filter, feed-forward; and whether set-points and replacement values that are no numbers take part.
using Flags = std::tuple<bool, bool, bool, bool>;

std::string NameOf(const ::testing::TestParamInfo<Flags>& one)
{
    const auto [pid, filter, feed_forward, special] = one.param;
    return std::string(pid ? "Pid" : "NoPid") + (filter ? "Filter" : "NoFilter") +
           (feed_forward ? "FeedForward" : "NoFeedForward") + (special ? "WithNan" : "");
}

class TaskEdcCycleFlagsTest : public ::testing::TestWithParam<Flags>
{
protected:
    static constexpr int NUM_PACT = 29;
    static constexpr int NUM_ES = 31;
    static constexpr int NUM_MODES = 23;

    TaskEdcCycleFlagsTest()
    {
        std::tie(sut.m_pid_enabled, sut.m_filter_enabled, sut.m_feed_forward_enabled, m_special) = GetParam();
        std::tie(m_reference.pid_enabled, m_reference.filter_enabled, m_reference.feed_forward_enabled, m_special) =
            GetParam();
        m_reference.p2edc = Integers(m_reference.p2edc.size(), 3, m_random);
        m_reference.pact2modes = Integers(m_reference.pact2modes.size(), 3, m_random);
        constexpr std::array<float, 4> SCALES = {1.0F, -1.0F, 2.0F, 0.5F};
        for (std::size_t row = 0; row < NUM_PACT; ++row) {
            m_reference.modes2pact[row * NUM_MODES + (7 * row) % NUM_MODES] = SCALES[row % 4];
        }
        sut.SetP2EdcMatrix(m_reference.p2edc);
        sut.SetPact2ModesMatrix(m_reference.pact2modes);
        sut.SetModes2PactMatrix(m_reference.modes2pact);
        const std::vector<float> params = Params();
        sut.SetPidFilters(params);
        m_reference.SetPidFilters(params);
    }

    /// Channels with and without derivative, integral, anti-windup inputs, and with limits that are met.
    static std::vector<float> Params()
    {
        std::vector<float> params;
        for (int mode = 0; mode < NUM_MODES; ++mode) {
            const auto m = static_cast<float>(mode);
            const float limit = mode % 7 == 0 ? 1.0F : 200.0F;
            for (const float param :
                 {0.05F + 0.01F * m, mode % 4 == 0 ? 0.0F : 20.0F + m, mode % 3 == 0 ? 0.0F : 0.01F * m,
                  mode % 5 == 0 ? 0.0F : 3.0F, mode % 2 == 0 ? 1.0F : 0.7F, mode % 6 == 0 ? 0.0F : 0.1F, 10.0F, -limit,
                  limit, 10.0F + 5.0F * m}) {
                params.push_back(param);
            }
        }
        return params;
    }

    /// What the owner does between two cycles.
    void Prepare(int cycle)
    {
        m_rig.es = Integers(NUM_ES, 8, m_random);
        sut.m_es_meas = m_rig.es.data();
        sut.m_pact_in = Integers(NUM_PACT, 8, m_random);
        sut.m_pdc_values = Fractions(NUM_MODES, m_random);
        sut.m_fdc_values = Fractions(NUM_MODES, m_random);
        for (std::size_t mode = 0; mode < NUM_MODES; ++mode) {
            sut.m_pdc_mask[mode] = random() % 3 == 0;
            sut.m_fdc_mask[mode] = mode % 3 == 0 || random() % 4 == 0;
        }
        sut.m_modes_ref = Fractions(NUM_MODES, m_random);
        for (std::size_t mode = 0; mode < NUM_MODES; mode += 3) {
            sut.m_modes_ref[mode] = sut.m_fdc_values[mode];  // here in equals ref
        }
        if (m_special && cycle > 3) {
            sut.m_modes_ref[1] = NOT_A_NUMBER;
            sut.m_modes_ref[2] = cycle % 2 == 0 ? INFINITE : 1.0F;
            sut.m_fdc_values[3] = NOT_A_NUMBER;
            sut.m_modes_ref[3] = NOT_A_NUMBER;
            sut.m_pdc_values[4] = -INFINITE;
            sut.m_modes_ref[5] = -0.0F;
        }
        m_reference.pdc_mask = sut.m_pdc_mask;
        m_reference.fdc_mask = sut.m_fdc_mask;
        m_reference.pdc_values = sut.m_pdc_values;
        m_reference.fdc_values = sut.m_fdc_values;
        m_reference.modes_ref = sut.m_modes_ref;
    }

    unsigned random() { return static_cast<unsigned>(m_random()); }

    void ExpectChannelsAgree() const
    {
        for (std::size_t mode = 0; mode < NUM_MODES; ++mode) {
            const PidFilterContext& seen = sut.m_pid_filters[mode];
            const test::ReferenceChannel& expected = m_reference.channels[mode];
            ExpectSame("channel " + std::to_string(mode),
                       {seen.ui, seen.ud, seen.last_meas, seen.internal1, seen.internal2},
                       {expected.ui, expected.ud, expected.last_meas, expected.w1, expected.w2});
        }
    }

    std::mt19937 m_random{20240611};
    bool m_special = false;
    EdcRig m_rig{NUM_PACT, NUM_ES, NUM_MODES};
    TaskEdc& sut = m_rig.sut;
    EdcReference m_reference{NUM_PACT, NUM_ES, NUM_MODES};
};

INSTANTIATE_TEST_SUITE_P(, TaskEdcCycleFlagsTest,
                         ::testing::Combine(::testing::Bool(), ::testing::Bool(), ::testing::Bool(), ::testing::Bool()),
                         NameOf);

TEST_P(TaskEdcCycleFlagsTest, EveryCycleAgreesWithTheReferenceBitForBit)
{
    m_rig.rec_in.Start(false, 0);
    m_rig.rec_out.Start(false, 0);
    for (int cycle = 0; cycle < 40; ++cycle) {
        SCOPED_TRACE("cycle " + std::to_string(cycle));
        const bool first = cycle == 0 || cycle == 25;  // a restart of the worker, too
        Prepare(cycle);
        sut.Execute(100.0 + cycle, first);
        m_reference.Run(m_rig.es.data(), sut.m_pact_in, first);
        ExpectSame("m_modes_in", sut.m_modes_in, m_reference.modes_in);
        ExpectSame("m_modes_rate_limited", sut.m_modes_rate_limited, m_reference.rate_limited);
        ExpectSame("m_modes_ref", sut.m_modes_ref, m_reference.modes_ref);
        ExpectSame("m_modes_out", sut.m_modes_out, m_reference.modes_out);
        ExpectSame("m_modes_error", sut.m_modes_error, m_reference.modes_error);
        for (std::size_t i = 0; i < NUM_PACT; ++i) {  // as values: a sum of zeros has no sign
            const float expected = m_reference.pact_ref[i];
            EXPECT_TRUE(sut.m_pact_ref[i] == expected || (std::isnan(sut.m_pact_ref[i]) && std::isnan(expected)))
                << "m_pact_ref[" << i << "] " << sut.m_pact_ref[i] << ' ' << expected;
        }
        ExpectChannelsAgree();
        ASSERT_EQ(m_rig.rec_in.GetIndex(), cycle);
        ASSERT_EQ(m_rig.rec_out.GetIndex(), cycle);
        const auto slot = static_cast<std::ptrdiff_t>(cycle) * NUM_MODES;
        const auto recorded = [slot](const Recorder& recorder) {
            const auto begin = recorder.GetSamples().begin() + slot;
            return std::vector<float>(begin, begin + NUM_MODES);
        };
        ExpectSame("recorded in", recorded(m_rig.rec_in), m_reference.modes_in);
        ExpectSame("recorded out", recorded(m_rig.rec_out), m_reference.modes_out);
        EXPECT_EQ(m_rig.rec_in.GetTimestamps()[static_cast<std::size_t>(cycle)], 100.0 + cycle);
        EXPECT_EQ(m_rig.rec_out.GetTimestamps()[static_cast<std::size_t>(cycle)], 100.0 + cycle);
        if (HasFailure()) {
            return;  // one cycle's differences are enough
        }
    }
}

// ----------------------------------------------------------------------------------- the rules, one small case each

/// Four modes that measure what `m_rig.es` holds and command what `sut.m_pact_ref` holds.
class TaskEdcCycleTest : public ::testing::Test
{
protected:
    TaskEdcCycleTest() { m_rig.SetIdentities(); }

    /// A cycle with these measurements and references.
    void Cycle(const std::vector<float>& measured, const std::vector<float>& references, bool first = false)
    {
        m_rig.es = measured;
        sut.m_es_meas = m_rig.es.data();
        sut.m_modes_ref = references;
        sut.Execute(m_time, first);
    }

    void SetFlags(bool pid, bool filter, bool feed_forward)
    {
        sut.m_pid_enabled = pid;
        sut.m_filter_enabled = filter;
        sut.m_feed_forward_enabled = feed_forward;
    }

    double m_time = 0.5;
    EdcRig m_rig{4, 4, 4};
    TaskEdc& sut = m_rig.sut;
};

TEST_F(TaskEdcCycleTest, ZeroMatricesGiveZeroOutputsAndZeroReferencesInTheFirstCycle)
{
    EdcRig rig(5, 6, 4);
    rig.es.assign(6, 3.0F);
    rig.sut.m_pact_in.assign(5, 4.0F);
    rig.sut.m_modes_ref.assign(4, 9.0F);
    rig.sut.Execute(0.0, true);
    EXPECT_THAT(rig.sut.m_modes_in, Each(0.0F));
    EXPECT_THAT(rig.sut.m_modes_rate_limited, Each(0.0F));
    EXPECT_THAT(rig.sut.m_modes_ref, ElementsAre(0.0F, 0.0F, 0.0F, 0.0F));
    EXPECT_THAT(rig.sut.m_modes_out, ElementsAre(0.0F, 0.0F, 0.0F, 0.0F));
    EXPECT_THAT(rig.sut.m_modes_error, Each(0.0F));
    EXPECT_THAT(rig.sut.m_pact_ref, ElementsAre(0.0F, 0.0F, 0.0F, 0.0F, 0.0F));
    EXPECT_EQ(rig.sut.m_pid_filters[3].ui, 0.0F);
}

TEST_F(TaskEdcCycleTest, WithoutPidAndFilterOutIsInWhereInEqualsRefAndInPlusRefElsewhere)
{
    SetFlags(false, false, false);
    Cycle({2.0F, 2.0F, 0.0F, -1.0F}, {2.0F, 5.0F, 0.0F, NOT_A_NUMBER});
    EXPECT_THAT(sut.m_modes_out, ElementsAre(2.0F, 7.0F, 0.0F, IsNan()));
}

TEST_F(TaskEdcCycleTest, WithoutPidAndFilterTheSignOfAZeroThatEqualsItsReferenceIsKept)
{
    SetFlags(false, false, false);
    sut.m_fdc_mask.assign(4, true);  // a product may lose the sign
    sut.m_fdc_values = {-0.0F, -0.0F, 0.0F, 0.0F};
    Cycle({0.0F, 0.0F, 0.0F, 0.0F}, {-0.0F, 0.0F, -0.0F, 0.0F});
    ExpectSame("m_modes_out", sut.m_modes_out, {-0.0F, -0.0F, 0.0F, 0.0F});
}

TEST_F(TaskEdcCycleTest, WithoutFilterFeedForwardAddsTheRawReferenceAlsoWhereInEqualsRef)
{
    SetFlags(false, false, true);
    Cycle({2.0F, 2.0F, 0.0F, -1.0F}, {2.0F, 5.0F, 0.0F, 4.0F});
    EXPECT_THAT(sut.m_modes_out, ElementsAre(4.0F, 12.0F, 0.0F, 7.0F));
    PidFilterContext ctx = sut.m_pid_filters[0];
    EXPECT_EQ(PidFilterCompute(ctx, 2.0F, 2.0F, 0.0F, false, false, true, false), 2.0F)
        << "the free function adds its working set-point instead, which is meant";
}

TEST_F(TaskEdcCycleTest, WithFilterFeedForwardAddsTheFilteredReference)
{
    SetFlags(false, true, true);
    PidFilterContext ctx = sut.m_pid_filters[1];
    const float f = FilterCompute(ctx, 2.0F, 5.0F, false);
    ASSERT_NE(f, 5.0F);
    Cycle({2.0F, 2.0F, 0.0F, 0.0F}, {2.0F, 5.0F, 0.0F, 0.0F});
    EXPECT_EQ(sut.m_modes_out[1], (2.0F + f) + f);
}

TEST_F(TaskEdcCycleTest, WithoutPidTheRawReferenceDecidesWhetherOutIsInAlsoWithTheFilterOn)
{
    SetFlags(false, true, false);
    PidFilterContext ctx = sut.m_pid_filters[0];
    const float f = FilterCompute(ctx, 2.0F, 2.0F, false);
    ASSERT_NE(f, 0.0F);
    ASSERT_NE(f, 2.0F);
    Cycle({2.0F, 2.0F, 0.0F, 0.0F}, {2.0F, 5.0F, 0.0F, 0.0F});
    EXPECT_EQ(sut.m_modes_out[0], 2.0F);
    EXPECT_EQ(sut.m_pid_filters[0].internal1, ctx.internal1) << "the filter runs all the same";
}

TEST_F(TaskEdcCycleTest, WithoutFilterThePidGetsSetpointZeroWhereInEqualsRef)
{
    SetFlags(true, false, false);
    Cycle({2.0F, 2.0F, 0.0F, 0.0F}, {2.0F, 5.0F, 0.0F, 0.0F});
    EXPECT_EQ(sut.m_modes_out[0], (1.0F * 0.0F - 2.0F) * 0.001F);
    EXPECT_EQ(sut.m_modes_out[1], (1.0F * 5.0F - 2.0F) * 0.001F);
}

TEST_F(TaskEdcCycleTest, WithoutPidTheControllersStateRests)
{
    sut.m_pid_filters[2].ui = 1.0F;
    sut.m_pid_filters[2].ud = 2.0F;
    sut.m_pid_filters[2].last_meas = 3.0F;
    SetFlags(false, true, true);
    Cycle({5.0F, 5.0F, 5.0F, 5.0F}, {1.0F, 1.0F, 1.0F, 1.0F}, true);
    EXPECT_EQ(sut.m_pid_filters[2].ui, 1.0F);
    EXPECT_EQ(sut.m_pid_filters[2].ud, 2.0F);
    EXPECT_EQ(sut.m_pid_filters[2].last_meas, 3.0F);
}

TEST_F(TaskEdcCycleTest, WithoutFilterTheFiltersStateRests)
{
    sut.m_pid_filters[2].internal1 = 1.0F;
    sut.m_pid_filters[2].internal2 = 2.0F;
    SetFlags(true, false, true);
    Cycle({5.0F, 5.0F, 5.0F, 5.0F}, {1.0F, 1.0F, 1.0F, 1.0F}, true);
    EXPECT_EQ(sut.m_pid_filters[2].internal1, 1.0F);
    EXPECT_EQ(sut.m_pid_filters[2].internal2, 2.0F);
}

TEST_F(TaskEdcCycleTest, PdcReplacesMaskedModesAndFdcWinsWhereBothAreSet)
{
    sut.m_pdc_mask = {false, true, false, true};
    sut.m_fdc_mask = {false, false, true, true};
    sut.m_pdc_values = {10.0F, 11.0F, 12.0F, 13.0F};
    sut.m_fdc_values = {20.0F, 21.0F, 22.0F, 23.0F};
    Cycle({1.0F, 2.0F, 3.0F, 4.0F}, {0.0F, 0.0F, 0.0F, 0.0F});
    EXPECT_THAT(sut.m_modes_in, ElementsAre(1.0F, 11.0F, 22.0F, 23.0F));
    EXPECT_THAT(sut.m_modes_error, ElementsAre(-1.0F, -11.0F, -22.0F, -23.0F));
}

TEST_F(TaskEdcCycleTest, ReplacedModesAreMeasuredAgainWithoutTheirMask)
{
    sut.m_fdc_mask[1] = true;
    sut.m_fdc_values[1] = 9.0F;
    Cycle({1.0F, 2.0F, 3.0F, 4.0F}, {0.0F, 0.0F, 0.0F, 0.0F});
    ASSERT_EQ(sut.m_modes_in[1], 9.0F);
    sut.m_fdc_mask[1] = false;
    Cycle({1.0F, 2.0F, 3.0F, 4.0F}, {0.0F, 0.0F, 0.0F, 0.0F});
    EXPECT_EQ(sut.m_modes_in[1], 2.0F);
}

TEST_F(TaskEdcCycleTest, FirstCycleTakesTheReplacedModesAsReferences)
{
    sut.m_pdc_mask[1] = true;
    sut.m_pdc_values[1] = 11.0F;
    sut.m_fdc_mask[2] = true;
    sut.m_fdc_values[2] = 22.0F;
    Cycle({1.0F, 2.0F, 3.0F, 4.0F}, {9.0F, 9.0F, 9.0F, 9.0F}, true);
    EXPECT_THAT(sut.m_modes_ref, ElementsAre(1.0F, 11.0F, 22.0F, 4.0F));
    EXPECT_THAT(sut.m_modes_error, Each(0.0F));
}

TEST_F(TaskEdcCycleTest, LaterCyclesLeaveTheReferencesToTheOwner)
{
    Cycle({1.0F, 2.0F, 3.0F, 4.0F}, {9.0F, 8.0F, 7.0F, 6.0F}, false);
    EXPECT_THAT(sut.m_modes_ref, ElementsAre(9.0F, 8.0F, 7.0F, 6.0F));
    EXPECT_THAT(sut.m_modes_error, ElementsAre(8.0F, 6.0F, 4.0F, 2.0F));
}

TEST_F(TaskEdcCycleTest, FirstCycleStartsBumplessly)
{
    Cycle({1.0F, -20.0F, 150.0F, 0.25F}, {0.0F, 0.0F, 0.0F, 0.0F}, true);
    for (std::size_t mode = 0; mode < 4; ++mode) {
        EXPECT_FLOAT_EQ(sut.m_modes_out[mode], sut.m_modes_in[mode]) << "the command holds what was measured";
    }
}

TEST_F(TaskEdcCycleTest, ErrorIsTakenFromTheRawReference)
{
    SetFlags(true, true, true);
    Cycle({1.0F, 1.0F, 1.0F, 1.0F}, {3.0F, NOT_A_NUMBER, INFINITE, 1.0F});
    EXPECT_THAT(sut.m_modes_error, ElementsAre(2.0F, IsNan(), INFINITE, 0.0F));
}

TEST_F(TaskEdcCycleTest, ActuatorValuesReachTheIntegralThroughTheAntiWindupGain)
{
    sut.SetPidFiltersParam(1, 4, 3.0F);
    PidFilterInit(sut.m_pid_filters[1]);
    sut.m_pact_in = {0.0F, 7.0F, 0.0F, 0.0F};
    sut.m_fdc_mask[1] = true;  // a replaced mode keeps its actuator values
    Cycle({0.0F, 0.0F, 0.0F, 0.0F}, {0.0F, 0.0F, 0.0F, 0.0F});
    EXPECT_THAT(sut.m_modes_rate_limited, ElementsAre(0.0F, 7.0F, 0.0F, 0.0F));
    EXPECT_EQ(sut.m_pid_filters[1].ui, (3.0F * 0.002F) * 7.0F);
    EXPECT_EQ(sut.m_pid_filters[0].ui, 0.0F);
}

TEST_F(TaskEdcCycleTest, FlagsMayChangeBetweenCycles)
{
    SetFlags(false, false, false);
    Cycle({1.0F, 1.0F, 1.0F, 1.0F}, {2.0F, 2.0F, 2.0F, 2.0F}, true);
    EXPECT_THAT(sut.m_modes_out, Each(1.0F));
    SetFlags(true, false, false);
    Cycle({1.0F, 1.0F, 1.0F, 1.0F}, {2.0F, 2.0F, 2.0F, 2.0F});
    EXPECT_THAT(sut.m_modes_out, Each(0.001F)) << "the integral was never started: it is 0 and not the measurement";
}

TEST_F(TaskEdcCycleTest, MaskThatIsShorterThanTheModesEndsTheProcess)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    sut.m_pdc_mask.resize(3);
    EXPECT_DEATH(sut.Execute(0.0, false), "Expected a mask that reaches to mode 3 but found one of 3 modes.");
    sut.m_pdc_mask.resize(4);
    sut.m_fdc_mask.clear();
    EXPECT_DEATH(sut.Execute(0.0, false), "Expected a mask that reaches to mode 0 but found one of 0 modes.");
}

/// Checked element access ends the process where a vector of the owner's is one short.
class TaskEdcShortVectorDeathTest : public TaskEdcCycleTest
{
protected:
    TaskEdcShortVectorDeathTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }

    static constexpr const char* OUT_OF_RANGE = "Assertion '__n < this->size\\(\\)' failed";
};

TEST_F(TaskEdcShortVectorDeathTest, ReplacementValuesThatAreOneShortEndTheProcessWhereTheLastIsWanted)
{
    sut.m_pdc_values.resize(3);
    sut.m_fdc_values.resize(3);
    sut.Execute(0.0, true);
    sut.m_pdc_mask[3] = true;
    EXPECT_DEATH(sut.Execute(0.0, false), OUT_OF_RANGE);
    sut.m_pdc_mask[3] = false;
    sut.m_fdc_mask[3] = true;
    EXPECT_DEATH(sut.Execute(0.0, false), OUT_OF_RANGE);
}

TEST_F(TaskEdcShortVectorDeathTest, ReferencesThatAreOneShortEndTheProcess)
{
    sut.m_modes_ref.resize(3);
    EXPECT_DEATH(sut.Execute(0.0, false), OUT_OF_RANGE);
}

TEST_F(TaskEdcShortVectorDeathTest, ReferencesThatAreOneShortEndTheProcessWhereTheFirstCycleWritesThem)
{
    // And not where it reads them later: before that there is a line with DEBUG on, behind which this process ends
    // well.
    EdcRig rig(225, 4, 18);
    rig.sut.m_modes_ref.resize(17);
    const auto cycle = [&rig] {
        const test::LogHook hook("ravelcore.TaskEdc.7", log4cplus::DEBUG_LOG_LEVEL,
                                 [](const std::string& /*message*/) { std::_Exit(EXIT_SUCCESS); });
        rig.sut.Execute(0.0, true);
    };
    EXPECT_DEATH(cycle(), OUT_OF_RANGE);
}

// ------------------------------------------------------------------------------------------------- not-a-number

TEST_F(TaskEdcCycleTest, OldContentsOfTheVectorsThatAreOverwrittenDoNotMatterEvenNotANumber)
{
    sut.m_modes_in.assign(4, NOT_A_NUMBER);
    sut.m_modes_out.assign(4, NOT_A_NUMBER);
    sut.m_modes_error.assign(4, NOT_A_NUMBER);
    sut.m_modes_rate_limited.assign(4, INFINITE);
    sut.m_pact_ref.assign(4, NOT_A_NUMBER);
    SetFlags(false, false, false);
    Cycle({1.0F, 2.0F, 3.0F, 4.0F}, {0.0F, 0.0F, 0.0F, 0.0F});
    EXPECT_THAT(sut.m_modes_in, ElementsAre(1.0F, 2.0F, 3.0F, 4.0F));
    EXPECT_THAT(sut.m_modes_out, ElementsAre(1.0F, 2.0F, 3.0F, 4.0F));
    EXPECT_THAT(sut.m_modes_rate_limited, Each(0.0F));
    EXPECT_THAT(sut.m_modes_error, ElementsAre(-1.0F, -2.0F, -3.0F, -4.0F));
    EXPECT_THAT(sut.m_pact_ref, ElementsAre(1.0F, 2.0F, 3.0F, 4.0F));
}

TEST_F(TaskEdcCycleTest, OneMeasurementThatIsNoNumberMakesAllModesNotANumberAlsoWithAColumnOfZeros)
{
    sut.m_p2edc.assign(16, 0.0F);
    SetFlags(false, false, false);
    Cycle({1.0F, NOT_A_NUMBER, 1.0F, 1.0F}, {0.0F, 0.0F, 0.0F, 0.0F});
    EXPECT_THAT(sut.m_modes_in, Each(IsNan()));
    Cycle({1.0F, 1.0F, 1.0F, 1.0F}, {0.0F, 0.0F, 0.0F, 0.0F});
    EXPECT_THAT(sut.m_modes_out, Each(0.0F)) << "without channels the next cycle is clean";
}

TEST_F(TaskEdcCycleTest, ReplacementKeepsAModeThatIsNoNumberOutOfItsChannel)
{
    sut.m_pdc_mask.assign(4, true);
    sut.m_pdc_values = {1.0F, 2.0F, 3.0F, 4.0F};
    Cycle({NOT_A_NUMBER, 0.0F, 0.0F, 0.0F}, {1.0F, 2.0F, 3.0F, 4.0F}, true);
    EXPECT_THAT(sut.m_modes_in, ElementsAre(1.0F, 2.0F, 3.0F, 4.0F));
    EXPECT_FALSE(std::isnan(sut.m_modes_out[0]));
    EXPECT_FALSE(std::isnan(sut.m_pid_filters[0].ui));
}

TEST_F(TaskEdcCycleTest, NotANumberStaysInTheChannelThatHasSeenItUntilTheChannelIsInitialised)
{
    sut.m_modes2pact.assign(16, 0.0F);
    for (std::size_t i = 0; i < 4; ++i) {
        sut.m_modes2pact[5 * i] = 1.0F;
    }
    const std::vector<float> zeros(4, 0.0F);
    Cycle(zeros, zeros, true);
    sut.m_fdc_mask[2] = true;
    sut.m_fdc_values[2] = NOT_A_NUMBER;
    Cycle(zeros, zeros);
    sut.m_fdc_mask[2] = false;
    for (int cycle = 0; cycle < 3; ++cycle) {
        Cycle(zeros, zeros);
        EXPECT_EQ(sut.m_modes_in[2], 0.0F);
        EXPECT_THAT(sut.m_modes_out, ElementsAre(0.0F, 0.0F, IsNan(), 0.0F));
        EXPECT_THAT(sut.m_pact_ref, Each(IsNan())) << "0 times NaN: one mode takes every actuator";
        EXPECT_TRUE(std::isnan(sut.m_pid_filters[2].ui));
        EXPECT_TRUE(std::isnan(sut.m_pid_filters[2].ud));
    }
    Cycle(zeros, zeros, true);
    EXPECT_TRUE(std::isnan(sut.m_modes_out[2])) << "a first cycle renews the integral but not the derivative";
    PidFilterReset(sut.m_pid_filters[2]);
    Cycle(zeros, zeros, true);
    EXPECT_THAT(sut.m_modes_out, Each(0.0F));
    EXPECT_THAT(sut.m_pact_ref, Each(0.0F));
}

TEST_F(TaskEdcCycleTest, SetpointThatIsNoNumberStaysInTheFilterUntilAFirstCycle)
{
    SetFlags(false, true, false);
    const std::vector<float> zeros(4, 0.0F);
    const std::vector<float> ones(4, 1.0F);
    Cycle(zeros, zeros, true);
    Cycle(zeros, {0.0F, NOT_A_NUMBER, 0.0F, 0.0F});
    EXPECT_THAT(sut.m_modes_out, ElementsAre(0.0F, IsNan(), 0.0F, 0.0F));
    Cycle(zeros, ones);
    EXPECT_TRUE(std::isnan(sut.m_modes_out[1]));
    EXPECT_FALSE(std::isnan(sut.m_modes_out[0]));
    Cycle(ones, ones, true);
    EXPECT_THAT(sut.m_modes_out, Each(1.0F));
    EXPECT_FALSE(std::isnan(sut.m_pid_filters[1].internal2));
}

// --------------------------------------------------------------------------------------------------- the products

/// |seen - exact| stays within the bound of any order of summation in float.
void ExpectProduct(const std::string& what, const std::vector<float>& seen, const std::vector<float>& matrix,
                   const float* vector, std::size_t cols)
{
    const std::vector<double> exact = test::MultiplyInDouble(matrix, seen.size(), cols, vector);
    for (std::size_t row = 0; row < seen.size(); ++row) {
        double magnitude = 0.0;
        for (std::size_t col = 0; col < cols; ++col) {
            magnitude += std::abs(double{matrix[row * cols + col]} * double{vector[col]});
        }
        const double bound = static_cast<double>(cols + 1) * std::ldexp(1.0, -24) * magnitude * 1.01;
        ASSERT_NEAR(seen[row], exact[row], bound) << what << '[' << row << ']';
    }
}

TEST(TaskEdcProductsTest, AgreeWithProductsInDouble)
{
    std::mt19937 random(4711);
    EdcRig rig(257, 131, 67);
    TaskEdc& sut = rig.sut;
    sut.SetP2EdcMatrix(Fractions(sut.m_p2edc.size(), random));
    sut.SetPact2ModesMatrix(Fractions(sut.m_pact2modes.size(), random));
    sut.SetModes2PactMatrix(Fractions(sut.m_modes2pact.size(), random));
    for (int cycle = 0; cycle < 5; ++cycle) {
        rig.es = Fractions(131, random);
        sut.m_es_meas = rig.es.data();
        sut.m_pact_in = Fractions(257, random);
        sut.Execute(0.0, cycle == 0);
        ExpectProduct("m_modes_in", sut.m_modes_in, sut.m_p2edc, rig.es.data(), 131);
        ExpectProduct("m_modes_rate_limited", sut.m_modes_rate_limited, sut.m_pact2modes, sut.m_pact_in.data(), 257);
        ExpectProduct("m_pact_ref", sut.m_pact_ref, sut.m_modes2pact, sut.m_modes_out.data(), 67);
    }
}

TEST(TaskEdcProductsTest, AreExactForSmallIntegersWhateverTheShape)
{
    std::mt19937 random(42);
    for (const int num_modes : {1, 2, 3, 4, 5, 7, 8, 9, 15, 16, 17, 33, 65}) {
        for (const int num_es : {1, 2, 3, 4, 5, 8, 13, 16, 31, 64, 127, 513}) {
            const int num_pact = num_es % 10 + 1;
            EdcRig rig(num_pact, num_es, num_modes, 1);
            TaskEdc& sut = rig.sut;
            sut.m_pid_enabled = false;
            sut.m_filter_enabled = false;
            sut.SetP2EdcMatrix(Integers(sut.m_p2edc.size(), 3, random));
            sut.SetPact2ModesMatrix(Integers(sut.m_pact2modes.size(), 3, random));
            sut.SetModes2PactMatrix(Integers(sut.m_modes2pact.size(), 3, random));
            rig.es = Integers(rig.es.size(), 5, random);
            sut.m_pact_in = Integers(sut.m_pact_in.size(), 5, random);
            sut.m_es_meas = rig.es.data();
            EdcReference reference(num_pact, num_es, num_modes);
            reference.pid_enabled = false;
            reference.filter_enabled = false;
            reference.p2edc = sut.m_p2edc;
            reference.pact2modes = sut.m_pact2modes;
            reference.modes2pact = sut.m_modes2pact;
            reference.Run(rig.es.data(), sut.m_pact_in, true);
            sut.Execute(0.0, true);
            ASSERT_EQ(sut.m_modes_in, reference.modes_in) << num_modes << " x " << num_es;
            ASSERT_EQ(sut.m_modes_rate_limited, reference.rate_limited) << num_modes << " x " << num_pact;
            ASSERT_EQ(sut.m_pact_ref, reference.pact_ref) << num_pact << " x " << num_modes;
        }
    }
}

TEST(TaskEdcProductsTest, MeasurementsNeedNoMoreAlignmentThanAFloat)
{
    constexpr std::size_t NUM_ES = 4788;
    std::mt19937 random(99);
    EdcRig rig(3, static_cast<int>(NUM_ES), 37, 1);
    rig.sut.SetP2EdcMatrix(Integers(37 * NUM_ES, 3, random));
    const std::vector<float> values = Integers(NUM_ES, 5, random);
    rig.sut.m_es_meas = values.data();
    rig.sut.Execute(0.0, true);
    const std::vector<float> expected = rig.sut.m_modes_in;
    EXPECT_THAT(test::MultiplyInDouble(rig.sut.m_p2edc, 37, NUM_ES, values.data()),
                ::testing::Pointwise(::testing::DoubleEq(), expected));
    alignas(64) static std::array<float, NUM_ES + 16> buffer;
    for (std::size_t offset = 0; offset < 16; ++offset) {
        buffer.fill(NOT_A_NUMBER);  // a read beside the measurements would show
        std::copy(values.begin(), values.end(), buffer.begin() + static_cast<std::ptrdiff_t>(offset));
        rig.sut.m_es_meas = buffer.data() + offset;
        rig.sut.Execute(0.0, false);
        EXPECT_EQ(rig.sut.m_modes_in, expected) << offset * sizeof(float) << " bytes after a multiple of 64";
    }
}

TEST(TaskEdcProductsTest, WithoutSensorsOrActuatorsTheModesAreZero)
{
    EdcRig rig(0, 0, 3);
    const float unused = NOT_A_NUMBER;
    rig.sut.m_es_meas = &unused;
    rig.sut.m_modes_in.assign(3, 5.0F);
    rig.sut.m_modes_rate_limited.assign(3, 5.0F);
    rig.sut.Execute(0.0, true);
    EXPECT_THAT(rig.sut.m_modes_in, Each(0.0F));
    EXPECT_THAT(rig.sut.m_modes_rate_limited, Each(0.0F));
    EXPECT_THAT(rig.sut.m_modes_out, Each(0.0F));
    EXPECT_THAT(rig.sut.m_pact_ref, IsEmpty());
}

// --------------------------------------------------------------------------------------------------- the recorders

TEST_F(TaskEdcCycleTest, InputsAreRecordedBeforeOutputs)
{
    Recorder both("both");
    TaskEdc task(8, 4, 4, 4, both, both, 10);
    task.Initialize();
    task.m_p2edc = sut.m_p2edc;
    task.m_pid_enabled = false;
    task.m_filter_enabled = false;
    task.m_es_meas = m_rig.es.data();
    m_rig.es.assign(4, 1.0F);
    task.m_modes_ref.assign(4, 2.0F);
    both.Start(false, 0);
    task.Execute(0.25, false);
    ASSERT_EQ(both.GetIndex(), 1);
    EXPECT_EQ(both.GetSamples()[0], 1.0F) << "in";
    EXPECT_EQ(both.GetSamples()[4], 3.0F) << "out";
    EXPECT_EQ(both.GetTimestamps()[0], 0.25);
    EXPECT_EQ(both.GetTimestamps()[1], 0.25);
}

TEST_F(TaskEdcCycleTest, RecordersTakeReplacedInputsAndTheCyclesTimeStamp)
{
    m_rig.rec_in.Start(false, 0);
    m_rig.rec_out.Start(false, 0);
    sut.m_fdc_mask[0] = true;
    sut.m_fdc_values[0] = 50.0F;
    m_time = -1234.5678;
    Cycle({1.0F, 2.0F, 3.0F, 4.0F}, {0.0F, 0.0F, 0.0F, 0.0F}, true);
    EXPECT_EQ(m_rig.rec_in.GetTimestamps()[0], -1234.5678);
    EXPECT_EQ(m_rig.rec_out.GetTimestamps()[0], -1234.5678);
    EXPECT_EQ(m_rig.rec_in.GetSamples()[0], 50.0F);
    EXPECT_EQ(m_rig.rec_in.GetSamples()[3], 4.0F);
    EXPECT_EQ(m_rig.rec_out.GetSamples()[3], sut.m_modes_out[3]);
}

TEST_F(TaskEdcCycleTest, CycleGoesOnWithRecordersThatAreNotStartedOrFull)
{
    Cycle({1.0F, 2.0F, 3.0F, 4.0F}, {0.0F, 0.0F, 0.0F, 0.0F}, true);
    EXPECT_EQ(m_rig.rec_in.GetIndex(), -1);
    EXPECT_EQ(m_rig.rec_out.GetIndex(), -1);
    m_rig.rec_in.Start(false, 0);
    m_rig.rec_out.Start(true, 0);
    for (int cycle = 0; cycle < 65; ++cycle) {
        Cycle({1.0F, 2.0F, 3.0F, static_cast<float>(cycle)}, {0.0F, 0.0F, 0.0F, 0.0F});
    }
    EXPECT_FALSE(m_rig.rec_in.IsStarted());
    EXPECT_EQ(m_rig.rec_in.GetIndex(), 63);
    EXPECT_TRUE(m_rig.rec_out.IsStarted());
    EXPECT_EQ(m_rig.rec_out.GetIndex(), 0);
    EXPECT_EQ(sut.m_modes_in[3], 64.0F);
}

TEST_F(TaskEdcCycleTest, TimeStampGoesToTheRecordersOnly)
{
    EdcRig other(4, 4, 4);
    other.SetIdentities();
    for (int cycle = 0; cycle < 5; ++cycle) {
        m_time = cycle == 2 ? std::numeric_limits<double>::quiet_NaN() : 1e9 * cycle;
        Cycle({1.0F, 2.0F, 3.0F, 4.0F}, {2.0F, 2.0F, 2.0F, 2.0F}, cycle == 0);
        other.es = m_rig.es;
        other.sut.m_es_meas = other.es.data();
        other.sut.m_modes_ref = {2.0F, 2.0F, 2.0F, 2.0F};
        other.sut.Execute(0.0, cycle == 0);
    }
    EXPECT_THAT(Differences(StateOf(sut), StateOf(other.sut)),
                ::testing::IsSubsetOf({"m_es_meas", "exec_time", "max_exec_time"}));
}

// ------------------------------------------------------------------------------------------- no measurements, times

TEST_F(TaskEdcCycleTest, WithoutMeasurementsNothingIsDoneAndTheExceptionSaysSo)
{
    m_rig.rec_in.Start(false, 0);
    m_rig.rec_out.Start(false, 3);
    sut.m_pact_in.assign(4, 2.0F);
    Cycle({1.0F, 2.0F, 3.0F, 4.0F}, {5.0F, 5.0F, 5.0F, 5.0F}, true);
    sut.m_pdc_mask.assign(4, true);
    sut.m_pdc_values.assign(4, 8.0F);
    sut.m_pact_in.assign(4, 3.0F);
    sut.m_es_meas = nullptr;
    for (const bool first : {false, true}) {
        const EdcState before = StateOf(sut);
        test::ExpectException(test::Thrown([&] { sut.Execute(9.0, first); }), "No ES Piston measurements available.",
                              "Execute", "taskEdc.cpp");
        EXPECT_THAT(Differences(before, StateOf(sut)), IsEmpty());
    }
}

TEST_F(TaskEdcCycleTest, CycleWorksAgainWhenMeasurementsAreBack)
{
    sut.m_es_meas = nullptr;
    EXPECT_THROW(sut.Execute(0.0, true), brisk::Exception);
    EXPECT_EQ(sut.GetExecTime().count(), 0);
    EXPECT_EQ(sut.GetMaxExecTime().count(), 0);
    Cycle({1.0F, 2.0F, 3.0F, 4.0F}, {0.0F, 0.0F, 0.0F, 0.0F}, true);
    EXPECT_THAT(sut.m_modes_in, ElementsAre(1.0F, 2.0F, 3.0F, 4.0F));
    EXPECT_GT(sut.GetExecTime().count(), 0);
}

TEST_F(TaskEdcCycleTest, FirstCycleSetsBothDurationsAndTheMaximumNeverFalls)
{
    Cycle({1.0F, 2.0F, 3.0F, 4.0F}, {0.0F, 0.0F, 0.0F, 0.0F}, true);
    EXPECT_GT(sut.GetExecTime().count(), 0);
    EXPECT_EQ(sut.GetExecTime(), sut.GetMaxExecTime());
    std::chrono::nanoseconds longest = sut.GetExecTime();
    for (int cycle = 0; cycle < 200; ++cycle) {
        sut.Execute(0.0, false);
        longest = std::max(longest, sut.GetExecTime());
        ASSERT_EQ(sut.GetMaxExecTime(), longest);
    }
}

// ------------------------------------------------------------------------------------------------- CombinePactRef

TEST_F(TaskEdcCycleTest, CombinePactRefAddsToWhatIsThere)
{
    sut.m_pact_ref = {1.0F, 2.0F, 3.0F, 4.0F};
    std::vector<float> pact = {10.0F, 20.0F, 30.0F, -4.0F};
    sut.CombinePactRef(pact);
    EXPECT_THAT(pact, ElementsAre(11.0F, 22.0F, 33.0F, 0.0F));
    sut.CombinePactRef(pact);
    EXPECT_THAT(pact, ElementsAre(12.0F, 24.0F, 36.0F, 4.0F));
    EXPECT_THAT(sut.m_pact_ref, ElementsAre(1.0F, 2.0F, 3.0F, 4.0F));
}

TEST_F(TaskEdcCycleTest, CombinePactRefLeavesTheTailOfALongerVector)
{
    sut.m_pact_ref = {1.0F, 2.0F, 3.0F, 4.0F, 100.0F, 100.0F};
    sut.m_pact_ref.resize(4);  // what is behind its end must not be added
    std::vector<float> pact(6, 10.0F);
    pact[5] = NOT_A_NUMBER;
    sut.CombinePactRef(pact);
    EXPECT_THAT(pact, ElementsAre(11.0F, 12.0F, 13.0F, 14.0F, 10.0F, IsNan()));
}

TEST_F(TaskEdcCycleTest, CombinePactRefChangesNothingButTheVector)
{
    Cycle({1.0F, 2.0F, 3.0F, 4.0F}, {0.0F, 0.0F, 0.0F, 0.0F}, true);
    const EdcState before = StateOf(sut);
    std::vector<float> pact(4);
    sut.CombinePactRef(pact);
    EXPECT_EQ(pact, sut.m_pact_ref);
    EXPECT_THAT(Differences(before, StateOf(sut)), IsEmpty());
}

// ------------------------------------------------------------------------------------------------- several tasks

/// The task of modes `first` to `first + count - 1` of a whole task without channels.
void MakeSlice(const TaskEdc& whole, int first, int count, TaskEdc& slice)
{
    slice.m_pid_enabled = false;
    slice.m_filter_enabled = false;
    for (int mode = 0; mode < count; ++mode) {
        for (int es = 0; es < whole.m_num_es; ++es) {
            slice.SetP2EdcValue(mode * whole.m_num_es + es,
                                whole.m_p2edc[static_cast<std::size_t>((first + mode) * whole.m_num_es + es)]);
        }
        for (int pact = 0; pact < whole.m_num_pact; ++pact) {
            slice.SetModes2PactValue(
                pact * count + mode,
                whole.m_modes2pact[static_cast<std::size_t>(pact * whole.m_num_modes + first + mode)]);
        }
    }
}

TEST(TaskEdcSlicesTest, ReferencesOfSlicesAddUpToThoseOfTheWhole)
{
    std::mt19937 random(5);
    EdcRig whole(41, 53, 30);
    whole.sut.m_pid_enabled = false;
    whole.sut.m_filter_enabled = false;
    whole.sut.SetP2EdcMatrix(Integers(whole.sut.m_p2edc.size(), 3, random));
    whole.sut.SetModes2PactMatrix(Integers(whole.sut.m_modes2pact.size(), 3, random));
    whole.es = Integers(whole.es.size(), 5, random);
    whole.sut.m_es_meas = whole.es.data();
    whole.sut.Execute(0.0, true);
    std::vector<float> command(41, 0.0F);
    int first = 0;
    for (const int count : {7, 1, 22}) {
        EdcRig slice(41, 53, count);
        MakeSlice(whole.sut, first, count, slice.sut);
        slice.sut.m_es_meas = whole.es.data();
        slice.sut.Execute(0.0, true);
        slice.sut.CombinePactRef(command);
        first += count;
    }
    EXPECT_EQ(command, whole.sut.m_pact_ref);
}

TEST(TaskEdcSlicesTest, TasksInTwoThreadsDoNotDisturbEachOther)
{
    constexpr int NUM_CYCLES = 100;
    const auto run = [](EdcRig& rig) {
        for (int cycle = 0; cycle < NUM_CYCLES; ++cycle) {
            rig.es[static_cast<std::size_t>(cycle)] = static_cast<float>(cycle);
            rig.sut.Execute(0.0, cycle == 0);
        }
    };
    const auto prepare = [](EdcRig& rig) {
        std::mt19937 random(77);
        rig.sut.SetP2EdcMatrix(Fractions(rig.sut.m_p2edc.size(), random));
        rig.sut.SetPact2ModesMatrix(Fractions(rig.sut.m_pact2modes.size(), random));
        rig.sut.SetModes2PactMatrix(Fractions(rig.sut.m_modes2pact.size(), random));
        rig.sut.m_pact_in = Fractions(rig.sut.m_pact_in.size(), random);
    };
    EdcRig alone(400, 600, 100);
    EdcRig one(400, 600, 100);
    EdcRig other(400, 600, 100);
    for (EdcRig* rig : {&alone, &one, &other}) {
        prepare(*rig);
    }
    run(alone);
    {
        std::thread first(run, std::ref(one));
        std::thread second(run, std::ref(other));
        first.join();
        second.join();
    }
    for (const EdcRig* rig : {&one, &other}) {
        EXPECT_THAT(Differences(StateOf(alone.sut), StateOf(rig->sut)),
                    ::testing::IsSubsetOf({"m_es_meas", "exec_time", "max_exec_time"}));
    }
}

}  // namespace
}  // namespace lumo::ravelcore
