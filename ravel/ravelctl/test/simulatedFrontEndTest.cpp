#include "simulatedFrontEnd.hpp"
#include "support/allocationGuard.hpp"
#include "support/quietLog.hpp"
#include "support/testFolder.hpp"

#include <lumo/ravelcore/feMeas.hpp>
#include <lumo/ravelcore/utils.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

namespace lumo::ravelctl {
namespace {

using ravelcore::test::AllocationGuard;

constexpr double PERIOD_S = 0.002;
constexpr int NUM_FRAMES = 4;
constexpr auto NUM_PACT = static_cast<std::size_t>(mirrorsim::NUM_PACT);

mirrorsim::Mirror MakeMirror()
{
    static const mirrorsim::Geometry geometry;
    return {geometry, mirrorsim::MirrorConfig{}};
}

std::vector<float> CommandOf(int cycle)
{
    return std::vector<float>(NUM_PACT, 0.01F * static_cast<float>(cycle));
}

template <typename Record>
bool IsSame(const Record& a, const Record& b)
{
    return std::memcmp(&a, &b, sizeof(Record)) == 0;
}

/// Frames in files: all values of a frame are its number.
class SimulatedFrontEndTest : public testing::Test
{
protected:
    SimulatedFrontEndTest()
    {
        test::QuietLog();
        Save("es.fits", ravelcore::ES_SAMPLE_SIZE);
        Save("pact.fits", ravelcore::PACT_SAMPLE_SIZE);
    }

    void Save(const char* name, std::size_t cols) const
    {
        std::vector<float> values;
        for (int frame = 0; frame < NUM_FRAMES; ++frame) {
            values.insert(values.end(), cols, static_cast<float>(frame + 1000));
        }
        ravelcore::SaveMatrix((m_folder / name).string(), "frames", NUM_FRAMES, static_cast<int>(cols), values);
    }

    FramePlayer MakePlayer(bool es, bool pact) const
    {
        PlayOptions options;
        options.es = es ? m_folder / "es.fits" : "";
        options.pact = pact ? m_folder / "pact.fits" : "";
        return {options, [](const std::string& /*line*/) {
                }};
    }

    test::TestFolder m_folder;
};

/// The records that the mirror alone would give in this cycle.

void ExpectMirrorEs(const SimulatedFrontEnd& sut, const mirrorsim::Mirror& mirror, int cycle)
{
    mirrorsim::EsRecord es{};
    mirror.FillEsMeas(cycle * PERIOD_S, cycle, es);
    EXPECT_TRUE(IsSame(sut.GetEsMeas(), es)) << cycle;
}

void ExpectMirrorPact(const SimulatedFrontEnd& sut, const mirrorsim::Mirror& mirror, int cycle)
{
    mirrorsim::PactRecord pact{};
    mirror.FillPactMeas(cycle * PERIOD_S, cycle, pact);
    EXPECT_TRUE(IsSame(sut.GetPactMeas(), pact)) << cycle;
}

template <typename Record>
void ExpectHeader(const Record& record, int cycle)
{
    EXPECT_EQ(record.tag, cycle);
    EXPECT_EQ(record.time, cycle * PERIOD_S);
    EXPECT_EQ(record.timestamp, cycle * PERIOD_S);
}

bool IsFrame(const mirrorsim::EsRecord& record, int frame)
{
    const auto is_value = [frame](float value) {
        return value == static_cast<float>(frame + 1000);
    };
    return std::all_of(record.block1.begin(), record.block1.end(), is_value) &&
           std::all_of(record.block2.begin(), record.block2.end(), is_value) &&
           std::all_of(record.block3.begin(), record.block3.end(), is_value);
}

bool IsFrame(const mirrorsim::PactRecord& record, int frame)
{
    const auto is_value = [frame](float value) {
        return value == static_cast<float>(frame + 1000);
    };
    return std::all_of(record.block1.begin(), record.block1.end(), is_value) &&
           std::all_of(record.block2.begin(), record.block2.end(), is_value);
}

TEST_F(SimulatedFrontEndTest, WithoutFramesTheRecordsAreTheMirrorsFromTheFirstCycleOn)
{
    mirrorsim::Mirror mirror = MakeMirror();
    SimulatedFrontEnd sut(MakeMirror());
    EXPECT_TRUE(sut.IsMirrorSeen());
    for (int cycle = 0; cycle < 5; ++cycle) {
        ExpectMirrorEs(sut, mirror, cycle);
        ExpectMirrorPact(sut, mirror, cycle);
        mirror.Step(CommandOf(cycle));
        sut.Advance(CommandOf(cycle), (cycle + 1) * PERIOD_S);
    }
    EXPECT_EQ(sut.GetMirror().GetCycle(), 5);
}

TEST_F(SimulatedFrontEndTest, APlayerOfNothingChangesNothing)
{
    mirrorsim::Mirror mirror = MakeMirror();
    FramePlayer player = MakePlayer(false, false);
    SimulatedFrontEnd sut(MakeMirror(), &player);
    EXPECT_TRUE(sut.IsMirrorSeen());
    sut.Advance(CommandOf(1), PERIOD_S);
    mirror.Step(CommandOf(1));
    ExpectMirrorEs(sut, mirror, 1);
    ExpectMirrorPact(sut, mirror, 1);
}

TEST_F(SimulatedFrontEndTest, TheMirrorStandsStillWhileSensorsArePlayed)
{
    const mirrorsim::Mirror mirror = MakeMirror();
    FramePlayer player = MakePlayer(true, false);
    SimulatedFrontEnd sut(MakeMirror(), &player);
    EXPECT_FALSE(sut.IsMirrorSeen());
    for (int cycle = 0; cycle < NUM_FRAMES; ++cycle) {
        EXPECT_TRUE(IsFrame(sut.GetEsMeas(), cycle)) << cycle;
        ExpectHeader(sut.GetEsMeas(), cycle);
        ExpectMirrorPact(sut, mirror, cycle);  // of the mirror as it was at first
        sut.Advance(CommandOf(cycle), (cycle + 1) * PERIOD_S);
    }
    EXPECT_EQ(sut.GetMirror().GetCycle(), 0);
    ExpectMirrorEs(sut, mirror, NUM_FRAMES);  // after the last frame
}

TEST_F(SimulatedFrontEndTest, ActuatorsAloneAreReplacedAndTheMirrorGoesOn)
{
    mirrorsim::Mirror mirror = MakeMirror();
    FramePlayer player = MakePlayer(false, true);
    SimulatedFrontEnd sut(MakeMirror(), &player);
    EXPECT_TRUE(sut.IsMirrorSeen());
    for (int cycle = 0; cycle < NUM_FRAMES; ++cycle) {
        EXPECT_TRUE(IsFrame(sut.GetPactMeas(), cycle)) << cycle;
        ExpectHeader(sut.GetPactMeas(), cycle);
        ExpectMirrorEs(sut, mirror, cycle);
        mirror.Step(CommandOf(cycle));
        sut.Advance(CommandOf(cycle), (cycle + 1) * PERIOD_S);
    }
    EXPECT_EQ(sut.GetMirror().GetCycle(), NUM_FRAMES);
    ExpectMirrorPact(sut, mirror, NUM_FRAMES);  // after the last frame
}

TEST_F(SimulatedFrontEndTest, BothKindsArePlayedInStep)
{
    FramePlayer player = MakePlayer(true, true);
    SimulatedFrontEnd sut(MakeMirror(), &player);
    EXPECT_FALSE(sut.IsMirrorSeen());
    for (int cycle = 0; cycle < NUM_FRAMES; ++cycle) {
        EXPECT_TRUE(IsFrame(sut.GetEsMeas(), cycle) && IsFrame(sut.GetPactMeas(), cycle)) << cycle;
        ExpectHeader(sut.GetEsMeas(), cycle);
        ExpectHeader(sut.GetPactMeas(), cycle);
        sut.Advance(CommandOf(cycle), (cycle + 1) * PERIOD_S);
    }
}

TEST_F(SimulatedFrontEndTest, AFrontEndBeginsWithThePlayersFirstFrame)
{
    FramePlayer player = MakePlayer(true, false);
    for (int front_end = 0; front_end < 2; ++front_end) {
        SimulatedFrontEnd sut(MakeMirror(), &player);
        EXPECT_TRUE(IsFrame(sut.GetEsMeas(), 0));
        sut.Advance(CommandOf(0), PERIOD_S);
        EXPECT_TRUE(IsFrame(sut.GetEsMeas(), 1));
    }
}

TEST_F(SimulatedFrontEndTest, AdvanceNeverAllocates)
{
    for (const bool es : {false, true}) {
        for (const bool pact : {false, true}) {
            FramePlayer player = MakePlayer(es, pact);
            SimulatedFrontEnd sut(MakeMirror(), &player);
            const std::vector<float> command = CommandOf(1);
            sut.Advance(command, PERIOD_S);
            const AllocationGuard guard;
            for (int cycle = 2; cycle < NUM_FRAMES + 3; ++cycle) {
                sut.Advance(command, cycle * PERIOD_S);
            }
            EXPECT_EQ(guard.GetCount(), 0) << es << pact;
        }
    }
}

}  // namespace
}  // namespace lumo::ravelctl
