#include "sliceSet.hpp"
#include "support/allocationGuard.hpp"
#include "support/sliceRig.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <numeric>

namespace lumo::ravelctl {
namespace {

using ravelcore::PidFilterContext;
using ravelcore::test::AllocationGuard;
using test::AreSameBits;
using test::SliceRig;
using testing::ElementsAre;
using testing::Field;

constexpr int NUM_MODES = 5;
constexpr int NUM_SLICES = 3;  // 2 + 2 + 1 modes

/// The channels of a rig, computed once more beside it.
class Channels
{
public:
    explicit Channels(const std::vector<float>& pid_params)
    {
        ravelcore::PidFilterCopy(static_cast<float>(SliceRig::PERIOD_S), 0.0F, pid_params, m_channels);
        m_references.assign(m_channels.size(), 0.0F);
    }

    /// New coefficients; what the header names of the state stays.
    void SetGains(const std::vector<float>& pid_params)
    {
        for (std::size_t mode = 0; mode < m_channels.size(); ++mode) {
            const PidFilterContext before = m_channels[mode];
            PidFilterContext& channel = m_channels[mode];
            ravelcore::PidFilterUnpack(&pid_params[mode * ravelcore::NUM_PID_FILTER_PARAMS], channel);
            ravelcore::PidFilterInit(channel);
            channel.ui = before.ui;
            channel.ud = before.ud;
            channel.last_meas = before.last_meas;
            channel.internal1 = before.internal1;
            channel.internal2 = before.internal2;
        }
    }

    /// The commands of one cycle.
    std::vector<float> Compute(const SliceRig& rig, bool first)
    {
        std::vector<float> commands;
        for (std::size_t mode = 0; mode < m_channels.size(); ++mode) {
            const float measured = rig.es_meas[mode];
            if (first) {
                m_references[mode] = measured;
            }
            commands.push_back(ravelcore::PidFilterCompute(m_channels[mode], measured, m_references[mode],
                                                           rig.shortfall_um[mode], true, true, false, first));
        }
        return commands;
    }

private:
    std::vector<PidFilterContext> m_channels;
    std::vector<float> m_references;
};

class SliceSetSlicesTest : public testing::TestWithParam<int>
{
};

TEST_P(SliceSetSlicesTest, NewGainsGiveTheCoefficientsOfInitialisedChannelsAndKeepTheirState)
{
    SliceRig rig(NUM_MODES, GetParam());
    SliceSet& sut = rig.slices;
    Channels channels(rig.pid_params);
    std::vector<std::vector<float>> expected;
    for (int cycle = 0; cycle < 60; ++cycle) {
        if (cycle == 20 || cycle == 21 || cycle == 40) {
            const std::vector<float> gains = test::LivelyGains(NUM_MODES, static_cast<float>(cycle) / 20.0F);
            sut.SetGains(gains);
            channels.SetGains(gains);
        }
        rig.RunCycle();
        expected.push_back(channels.Compute(rig, cycle == 0));
    }
    EXPECT_TRUE(AreSameBits(rig.ModesOut(), expected));
}

TEST_P(SliceSetSlicesTest, TheSameGainsChangeNoBit)
{
    SliceRig rig(NUM_MODES, GetParam());
    SliceRig untouched(NUM_MODES, GetParam());
    rig.RunCycles(10);
    rig.slices.SetGains(rig.pid_params);
    rig.RunCycles(10);
    untouched.RunCycles(20);
    EXPECT_TRUE(AreSameBits(rig.ModesOut(), untouched.ModesOut()));
}

TEST_P(SliceSetSlicesTest, ReferencesAreAFractionOfTheCapturedOnesPlusTheOffsets)
{
    SliceRig rig(NUM_MODES, GetParam());
    SliceSet& sut = rig.slices;
    std::vector<float> offsets(NUM_MODES);
    std::iota(offsets.begin(), offsets.end(), 1.0F);
    rig.RunCycle();  // takes what it measures as references
    const std::vector<float> captured(rig.es_meas.begin(), rig.es_meas.begin() + NUM_MODES);
    sut.CaptureReferences();
    // Without a set-point filter and a PID controller a command is the measured mode plus the reference.
    sut.SetClosed(false);
    for (const float fraction : {1.0F, 0.25F, 0.0F}) {
        sut.SetReferences(fraction, offsets);
        rig.RunCycle();
        for (std::size_t mode = 0; mode < NUM_MODES; ++mode) {
            const float reference = fraction * captured[mode] + offsets[mode];
            EXPECT_EQ(rig.ModesOut().back()[mode], rig.es_meas[mode] + reference) << mode << ", " << fraction;
        }
    }
}

TEST_P(SliceSetSlicesTest, MeasuredModesAreReplacedAsTheMasksSay)
{
    SliceRig rig(NUM_MODES, GetParam());
    SliceSet& sut = rig.slices;
    const auto measured = [&rig](std::size_t mode) {
        return rig.es_meas[mode];
    };
    rig.RunCycle();
    sut.SetPdc(std::vector<float>{0.0F, 1.0F, 0.0F, -2.0F, 0.0F}, std::vector<float>{9.0F, 10.0F, 11.0F, 12.0F, 13.0F});
    rig.RunCycle();
    EXPECT_THAT(rig.ModesIn().back(), ElementsAre(measured(0), 10.0F, measured(2), 12.0F, measured(4)));
    sut.SetFdc(std::vector<float>{0.0F, 0.0F, 0.0F, 1.0F, 1.0F}, std::vector<float>{19.0F, 20.0F, 21.0F, 22.0F, 23.0F});
    rig.RunCycle();
    EXPECT_THAT(rig.ModesIn().back(), ElementsAre(measured(0), 10.0F, measured(2), 22.0F, 23.0F)) << "FDC wins";
    const std::vector<float> none(NUM_MODES, 0.0F);
    sut.SetPdc(none, none);
    rig.RunCycle();
    EXPECT_THAT(rig.ModesIn().back(), ElementsAre(measured(0), measured(1), measured(2), 22.0F, 23.0F));
    sut.SetFdc(none, none);
    rig.RunCycle();
    EXPECT_EQ(rig.ModesIn().back(), std::vector<float>(rig.es_meas.begin(), rig.es_meas.begin() + NUM_MODES));
}

TEST_P(SliceSetSlicesTest, RecordersAreSideBySideInModeOrder)
{
    SliceRig rig(NUM_MODES, GetParam());
    for (int cycle = 0; cycle < 3; ++cycle) {
        rig.RunCycle();
        EXPECT_EQ(rig.ModesIn().back(), std::vector<float>(rig.es_meas.begin(), rig.es_meas.begin() + NUM_MODES));
    }
    EXPECT_EQ(rig.ModesIn().size(), 3U);
    EXPECT_EQ(rig.ModesOut().size(), 3U);
    const auto in = rig.slices.GetModesInRecorders();
    const auto out = rig.slices.GetModesOutRecorders();
    ASSERT_EQ(in.size(), static_cast<std::size_t>(GetParam()));
    ASSERT_EQ(out.size(), in.size());
    for (std::size_t slice = 0; slice < in.size(); ++slice) {
        EXPECT_EQ(in[slice]->GetName(), "modes_in");
        EXPECT_EQ(out[slice]->GetName(), "modes_out");
        EXPECT_EQ(in[slice]->GetTimestamps().at(2), 2 * SliceRig::PERIOD_S);
        EXPECT_EQ(out[slice]->GetTimestamps().at(2), 2 * SliceRig::PERIOD_S);
    }
}

TEST_P(SliceSetSlicesTest, ReferencesAndAntiWindupInputsAreRecordedBesideTheModes)
{
    SliceRig rig(NUM_MODES, GetParam());
    std::vector<float> offsets(NUM_MODES);
    std::iota(offsets.begin(), offsets.end(), 1.0F);
    rig.RunCycle();
    EXPECT_EQ(rig.ModesRef().back(), rig.ModesIn().back()) << "taken in the cycle in which the loop closes";
    rig.slices.SetReferences(0.0F, offsets);
    rig.RunCycle();
    EXPECT_EQ(rig.ModesRef().back(), offsets);
    EXPECT_EQ(rig.ModesArw().back(),
              std::vector<float>(rig.shortfall_um.begin(), rig.shortfall_um.begin() + NUM_MODES));
    const auto ref = rig.slices.GetModesRefRecorders();
    const auto arw = rig.slices.GetModesArwRecorders();
    ASSERT_EQ(ref.size(), static_cast<std::size_t>(GetParam()));
    ASSERT_EQ(arw.size(), ref.size());
    for (std::size_t slice = 0; slice < ref.size(); ++slice) {
        EXPECT_EQ(ref[slice]->GetName(), "modes_ref");
        EXPECT_EQ(arw[slice]->GetName(), "modes_arw");
        EXPECT_EQ(ref[slice]->GetTimestamps().at(1), SliceRig::PERIOD_S);
        EXPECT_EQ(arw[slice]->GetTimestamps().at(1), SliceRig::PERIOD_S);
    }
    rig.slices.StopRecording();
    rig.RunCycle();
    EXPECT_EQ(rig.ModesRef().size(), 2U);
    EXPECT_EQ(rig.ModesArw().size(), 2U);
}

TEST_P(SliceSetSlicesTest, CommandsAreTheSumOfAllSlices)
{
    SliceRig rig(NUM_MODES, GetParam());
    rig.RunCycle();
    const std::vector<float> once = rig.Commands();
    EXPECT_EQ(once, rig.ModesOut().back());
    std::vector<float> twice(static_cast<std::size_t>(mirrorsim::NUM_PACT), 100.0F);
    rig.slices.AddPactRef(twice);
    for (std::size_t mode = 0; mode < NUM_MODES; ++mode) {
        EXPECT_EQ(twice[mode], 100.0F + once[mode]) << "added to what is there";
    }
    EXPECT_EQ(twice.back(), 100.0F);
}

TEST_P(SliceSetSlicesTest, SquaresAreSummedOverAllModes)
{
    SliceRig rig(NUM_MODES, GetParam());
    rig.RunCycles(3);
    double expected = 0.0;
    const std::vector<float> last = rig.ModesIn().back();
    for (const float mode : last) {
        expected += static_cast<double>(mode) * static_cast<double>(mode);
    }
    EXPECT_DOUBLE_EQ(rig.slices.SumOfSquaredModes(), expected);
    EXPECT_GT(expected, 0.1);
    EXPECT_GT(rig.slices.GetExecTime().count(), 0);
}

INSTANTIATE_TEST_SUITE_P(All, SliceSetSlicesTest, testing::Values(1, NUM_SLICES));

TEST(SliceSetTest, ModeSlicesAreInTheOrderOfTheTasks)
{
    const SliceRig rig(NUM_MODES, NUM_SLICES);
    const auto slice = [](int first, int count) {
        return testing::AllOf(Field(&ModeSlice::first, first), Field(&ModeSlice::count, count));
    };
    EXPECT_THAT(rig.slices.GetModeSlices(), ElementsAre(slice(0, 2), slice(2, 2), slice(4, 1)));
    const std::vector<ravelcore::Task*> tasks = rig.slices.GetTasks();
    ASSERT_EQ(tasks.size(), 3U);
    EXPECT_NE(tasks[0], tasks[1]);
    EXPECT_NE(tasks[1], tasks[2]);
}

TEST(SliceSetTest, SwappedMatricesActOnTheirSliceAndTheOldOnesComeBack)
{
    SliceRig rig(NUM_MODES, NUM_SLICES);
    SliceSet& sut = rig.slices;
    rig.RunCycle();
    const ModeSlice second{2, 2};

    std::vector<float> p2edc = RowsOf(test::Diagonal(NUM_MODES, mirrorsim::NUM_ES, 3.0F), mirrorsim::NUM_ES, second);
    sut.SwapP2Edc(1, p2edc);
    EXPECT_EQ(p2edc, RowsOf(rig.modes.p2edc, mirrorsim::NUM_ES, second));
    rig.RunCycle();
    const std::vector<float>& es = rig.es_meas;
    EXPECT_THAT(rig.ModesIn().back(), ElementsAre(es[0], es[1], 3.0F * es[2], 3.0F * es[3], es[4]));

    std::vector<float> modes2pact = ColumnsOf(test::Diagonal(mirrorsim::NUM_PACT, NUM_MODES, -2.0F), NUM_MODES, second);
    sut.SwapModes2Pact(1, modes2pact);
    EXPECT_EQ(modes2pact, ColumnsOf(rig.modes.modes2pact, NUM_MODES, second));
    rig.RunCycle();
    const std::vector<float> out = rig.ModesOut().back();
    EXPECT_THAT(rig.Commands(), ElementsAre(out[0], out[1], -2.0F * out[2], -2.0F * out[3], out[4]));
}

TEST(SliceSetTest, ASwappedMatrixOfTheActuatorsActsOnTheAntiWindupOfItsSlice)
{
    SliceRig rig(NUM_MODES, NUM_SLICES);
    SliceRig untouched(NUM_MODES, NUM_SLICES);
    rig.RunCycles(3);
    untouched.RunCycles(3);
    const ModeSlice third{4, 1};
    std::vector<float> matrix(static_cast<std::size_t>(mirrorsim::NUM_PACT), 0.0F);
    rig.slices.SwapPact2Modes(2, matrix);
    EXPECT_EQ(matrix, RowsOf(rig.modes.pact2modes, mirrorsim::NUM_PACT, third));
    rig.RunCycles(10);
    untouched.RunCycles(10);
    const auto split = [&third](std::vector<std::vector<float>> rows) {
        std::vector<float> last;
        for (std::vector<float>& row : rows) {
            last.push_back(row.at(static_cast<std::size_t>(third.first)));
            row.pop_back();
        }
        return std::pair(rows, last);
    };
    const auto [others, own] = split(rig.ModesOut());
    const auto [expected_others, expected_own] = split(untouched.ModesOut());
    EXPECT_TRUE(AreSameBits(others, expected_others));
    EXPECT_NE(own, expected_own);
}

TEST(SliceSetTest, WhatIsStoppedRecordsNothingUntilItIsStartedAnew)
{
    SliceRig rig(NUM_MODES, NUM_SLICES);
    SliceSet& sut = rig.slices;
    rig.RunCycles(3);
    sut.StopRecording();
    rig.RunCycles(2);
    EXPECT_EQ(rig.ModesIn().size(), 3U);
    EXPECT_EQ(rig.ModesOut().size(), 3U);
    sut.StartRecording(false, 0);
    rig.RunCycle();
    EXPECT_EQ(rig.ModesIn().size(), 1U);
    EXPECT_EQ(sut.GetModesOutRecorders().back()->GetTimestamps().at(0), 5 * SliceRig::PERIOD_S);
}

TEST(SliceSetTest, RecordingMayStopBeforeAnythingIsRecorded)
{
    SliceRig rig(NUM_MODES, NUM_SLICES);
    SliceSet& sut = rig.slices;
    log4cplus::Logger::getRoot().setLogLevel(log4cplus::INFO_LOG_LEVEL);
    log4cplus::Logger recorder_log = log4cplus::Logger::getInstance("ravelcore");
    recorder_log.setLogLevel(log4cplus::DEBUG_LOG_LEVEL);  // a recorder that stops would report its last time stamp
    log4cplus::Logger tasks_log = log4cplus::Logger::getInstance("ravelcore.TaskEdc");
    tasks_log.setLogLevel(log4cplus::INFO_LOG_LEVEL);  // reports of modes that are not there
    sut.StopRecording();
    recorder_log.setLogLevel(log4cplus::NOT_SET_LOG_LEVEL);
    tasks_log.setLogLevel(log4cplus::NOT_SET_LOG_LEVEL);
    test::QuietLog();
    rig.RunCycles(2);
    EXPECT_EQ(rig.ModesIn().size(), 0U);
    sut.StartRecording(false, 0);
    rig.RunCycles(2);
    EXPECT_EQ(rig.ModesIn().size(), 2U);
}

TEST(SliceSetTest, RecordingIsDecimatedAndGoesRoundAsItIsTold)
{
    SliceRig rig(NUM_MODES, 1, 2);
    rig.slices.StartRecording(false, 3);
    rig.RunCycles(5);
    EXPECT_EQ(rig.ModesIn().size(), 1U);
    EXPECT_EQ(rig.slices.GetModesInRecorders().front()->GetTimestamps().at(0), 2 * SliceRig::PERIOD_S);
    rig.slices.StartRecording(true, 1);
    rig.RunCycles(3);  // cycles 5 to 7 into two slots
    EXPECT_THAT(rig.slices.GetModesInRecorders().front()->GetTimestamps(),
                ElementsAre(7 * SliceRig::PERIOD_S, 6 * SliceRig::PERIOD_S));
    EXPECT_EQ(rig.slices.GetModesRefRecorders().front()->GetTimestamps(),
              rig.slices.GetModesInRecorders().front()->GetTimestamps());
    EXPECT_EQ(rig.slices.GetModesArwRecorders().front()->GetTimestamps(),
              rig.slices.GetModesInRecorders().front()->GetTimestamps());
}

TEST(SliceSetTest, WithTheLoopOpenTheCommandsFollowTheMeasuredModes)
{
    SliceRig rig(NUM_MODES, NUM_SLICES);
    rig.slices.SetClosed(false);
    rig.cycle = 1;  // the loop does not close
    rig.RunCycles(3);
    EXPECT_EQ(rig.ModesOut(), rig.ModesIn());
    rig.slices.SetClosed(true);
    rig.RunCycle();
    EXPECT_NE(rig.ModesOut().back(), rig.ModesIn().back());
}

TEST(SliceSetTest, NothingOfTheCyclesSideAllocates)
{
    SliceRig rig(NUM_MODES, NUM_SLICES);
    SliceSet& sut = rig.slices;
    rig.RunCycles(2);
    const std::vector<float> gains = test::LivelyGains(NUM_MODES, 1.0F);
    const std::vector<float> per_mode(NUM_MODES, 0.5F);
    std::vector<float> p2edc(2 * static_cast<std::size_t>(mirrorsim::NUM_ES));
    std::vector<float> pact2modes(2 * static_cast<std::size_t>(mirrorsim::NUM_PACT));
    std::vector<float> modes2pact(2 * static_cast<std::size_t>(mirrorsim::NUM_PACT));
    std::vector<float> command_um(static_cast<std::size_t>(mirrorsim::NUM_PACT));
    const AllocationGuard guard;
    for (int round = 0; round < 2; ++round) {
        sut.StopRecording();
        sut.StartRecording(true, 2);
        sut.StopRecording();  // nothing is recorded
        sut.StartRecording(false, 0);
        sut.PrepareCycle(0.0, false);
        sut.SetClosed(true);
        sut.CaptureReferences();
        sut.SetReferences(0.5F, per_mode);
        sut.SetGains(gains);
        sut.SetPdc(per_mode, per_mode);
        sut.SetFdc(per_mode, per_mode);
        sut.SwapP2Edc(1, p2edc);
        sut.SwapPact2Modes(1, pact2modes);
        sut.SwapModes2Pact(1, modes2pact);
        sut.SetShortfall(command_um);
        sut.AddPactRef(command_um);
        sut.SumOfSquaredModes();
        sut.GetExecTime();
    }
    EXPECT_EQ(guard.GetCount(), 0);
}

}  // namespace
}  // namespace lumo::ravelctl
