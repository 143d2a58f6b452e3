#include "cycleRequests.hpp"
#include "support/allocationGuard.hpp"
#include "support/sliceRig.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

namespace lumo::ravelctl {
namespace {

using ravelcore::test::AllocationGuard;
using test::SliceRig;
using testing::Each;

using Kind = CycleRequests::Kind;

constexpr int NUM_MODES = 29;  // of P2EDC two pieces for each of the two slices
constexpr int NUM_SLICES = 2;
constexpr int NUM_PIECES = 4;

bool Never()
{
    return false;
}

/// Of a loop that must not ask; the answer ends its waiting.
bool MustNotWait()
{
    ADD_FAILURE() << "it waits";
    return true;
}

class CycleRequestsTest : public testing::Test
{
protected:
    /// Whether the recorders take samples.
    bool IsRecording()
    {
        const std::size_t before = m_rig.ModesIn().size();
        m_rig.RunCycle();
        return m_rig.ModesIn().size() > before;
    }

    void PublishReference(float value_um)
    {
        LiveParameters::Change change;
        change.references_um.assign(NUM_MODES, value_um);
        m_parameters.Publish(change);
    }

    void PublishMatrix(float factor)
    {
        LiveParameters::Change change;
        const std::vector<float> matrix = test::Diagonal(NUM_MODES, mirrorsim::NUM_ES, factor);
        for (const ModeSlice& slice : m_rig.slices.GetModeSlices()) {
            change.p2edc.push_back(RowsOf(matrix, mirrorsim::NUM_ES, slice));
        }
        m_parameters.Publish(change);
    }

    /// The factor of the matrix in force.
    float MatrixInForce()
    {
        m_rig.RunCycle();
        return m_rig.ModesIn().back().at(7) / m_rig.es_meas.at(7);
    }

    SliceRig m_rig{NUM_MODES, NUM_SLICES};
    LiveParameters m_parameters{m_rig.slices, NUM_MODES, m_rig.pid_params, {true, false, false}};
    Recordings m_recordings{RecordingPlan{true, false, false, 1, false, 100}, m_rig.slices};
    CycleRequests m_paced{m_parameters, m_recordings, true};
    CycleRequests m_free{m_parameters, m_recordings, false};
};

TEST_F(CycleRequestsTest, WithoutAnAnnouncementNothingIsDoneAndNobodyWaits)
{
    for (CycleRequests* sut : {&m_paced, &m_free}) {
        sut->BeforeCycle(0, MustNotWait);
        sut->BeforeCycle(CycleRequests::NEVER - 1, MustNotWait);
        EXPECT_TRUE(sut->IsDone()) << "none is armed";
    }
    EXPECT_TRUE(IsRecording());
}

TEST_F(CycleRequestsTest, ARequestIsDoneBeforeTheCycleThatWasAnnouncedAndNotEarlier)
{
    for (CycleRequests* sut : {&m_paced, &m_free}) {
        m_recordings.Start();
        sut->Announce(7);
        sut->Arm(Kind::StopRecording);
        for (std::int64_t cycle = 4; cycle < 7; ++cycle) {
            sut->BeforeCycle(cycle, MustNotWait);
            ASSERT_FALSE(sut->IsDone()) << "before cycle " << cycle;
            ASSERT_TRUE(IsRecording());
        }
        sut->BeforeCycle(7, MustNotWait);
        EXPECT_TRUE(sut->IsDone());
        EXPECT_EQ(sut->GetOutcome().cycle, 7);
        EXPECT_FALSE(IsRecording());
    }
}

TEST_F(CycleRequestsTest, RecordingStopsAndStartsAnew)
{
    CycleRequests& sut = m_paced;
    m_recordings.Start();
    m_rig.RunCycles(3);
    sut.Announce(3);
    sut.Arm(Kind::StopRecording);
    sut.BeforeCycle(3, Never);
    ASSERT_TRUE(sut.IsDone());
    EXPECT_FALSE(IsRecording());
    sut.Announce(4);
    sut.Arm(Kind::StartRecording);
    sut.BeforeCycle(4, Never);
    ASSERT_TRUE(sut.IsDone());
    EXPECT_EQ(m_rig.ModesIn().size(), 0U);
    EXPECT_TRUE(IsRecording());
}

TEST_F(CycleRequestsTest, CyclesThatAreNotRecordedAreNotCountedSoThatASaveMayTakeItsTime)
{
    const mirrorsim::EsRecord es{};
    const mirrorsim::PactRecord pact{};
    CycleRequests& sut = m_paced;
    m_recordings.Start();
    for (std::int64_t cycle = 0; cycle < 3; ++cycle) {
        m_recordings.Add(0.0, es, pact);
    }
    sut.Announce(3);
    sut.Arm(Kind::StopRecording);
    sut.BeforeCycle(3, Never);
    ASSERT_TRUE(sut.IsDone());
    std::thread cycle_thread([&] { m_recordings.Add(0.0, es, pact); });
    EXPECT_EQ(m_recordings.GetCycles(), 3) << "while the cycle goes on";
    cycle_thread.join();
    EXPECT_EQ(m_recordings.GetCycles(), 3);
    sut.Announce(5);
    sut.Arm(Kind::StartRecording);
    sut.BeforeCycle(5, Never);
    m_recordings.Add(0.0, es, pact);
    EXPECT_EQ(m_recordings.GetCycles(), 1);
}

TEST_F(CycleRequestsTest, ParametersAreTakenOverBetweenTwoCycles)
{
    CycleRequests& sut = m_paced;
    PublishReference(0.5F);
    sut.Announce(3);
    sut.Arm(Kind::TakeParameters);
    sut.BeforeCycle(2, Never);
    EXPECT_THAT(m_parameters.GetReferences(), Each(0.0F));
    sut.BeforeCycle(3, Never);
    EXPECT_TRUE(sut.IsDone());
    EXPECT_THAT(m_parameters.GetReferences(), Each(0.5F));
}

TEST_F(CycleRequestsTest, ARequestIsDoneOnce)
{
    CycleRequests& sut = m_paced;
    sut.Announce(3);
    sut.Arm(Kind::StopRecording);
    sut.BeforeCycle(3, Never);
    m_recordings.Start();
    sut.BeforeCycle(4, Never);
    EXPECT_EQ(sut.GetOutcome().cycle, 3);
    EXPECT_TRUE(IsRecording());
}

TEST_F(CycleRequestsTest, APacedLoopNeverWaitsAndDoesLateWhatIsArmedLate)
{
    CycleRequests& sut = m_paced;
    sut.Announce(3);
    for (std::int64_t cycle = 3; cycle < 6; ++cycle) {
        sut.BeforeCycle(cycle, MustNotWait);
    }
    EXPECT_TRUE(IsRecording());
    sut.Arm(Kind::StopRecording);
    sut.BeforeCycle(6, MustNotWait);
    EXPECT_TRUE(sut.IsDone());
    EXPECT_EQ(sut.GetOutcome().cycle, 6);
    EXPECT_FALSE(IsRecording());
}

TEST_F(CycleRequestsTest, ALoopThatIsNotPacedWaitsUntilTheRequestIsArmed)
{
    CycleRequests& sut = m_free;
    sut.Announce(3);
    int asked = 0;
    sut.BeforeCycle(3, [&] {
        if (++asked == 3) {
            sut.Arm(Kind::StopRecording);
        }
        return false;
    });
    EXPECT_EQ(asked, 3);
    EXPECT_TRUE(sut.IsDone());
    EXPECT_EQ(sut.GetOutcome().cycle, 3);
    EXPECT_FALSE(IsRecording());
}

TEST_F(CycleRequestsTest, ALoopThatIsNotPacedWaitsUntilSomethingElseIsAnnounced)
{
    CycleRequests& sut = m_free;
    sut.Announce(3);
    int asked = 0;
    sut.BeforeCycle(3, [&] {
        if (++asked == 3) {
            sut.Announce(CycleRequests::NEVER);
        }
        return false;
    });
    EXPECT_EQ(asked, 3);
    EXPECT_TRUE(IsRecording());
    sut.BeforeCycle(4, MustNotWait);
}

TEST_F(CycleRequestsTest, ALoopThatIsNotPacedWaitsUntilItIsStopped)
{
    CycleRequests& sut = m_free;
    sut.Announce(3);
    int asked = 0;
    sut.BeforeCycle(3, [&asked] { return ++asked == 3; });
    EXPECT_EQ(asked, 3);
    EXPECT_TRUE(IsRecording());
}

TEST_F(CycleRequestsTest, WhatIsAnnouncedForLaterAndArmedWhileTheLoopWaitsIsDoneLater)
{
    CycleRequests& sut = m_free;
    sut.Announce(3);
    sut.BeforeCycle(3, [&] {
        if (sut.IsDone()) {  // the loop waits; before it looks again, all of this has happened
            sut.Announce(6);
            sut.Arm(Kind::StopRecording);
        }
        return false;
    });
    for (std::int64_t cycle = 4; cycle < 6; ++cycle) {
        EXPECT_FALSE(sut.IsDone()) << "before cycle " << cycle;
        EXPECT_TRUE(IsRecording());
        sut.BeforeCycle(cycle, MustNotWait);
    }
    sut.BeforeCycle(6, MustNotWait);
    EXPECT_TRUE(sut.IsDone());
    EXPECT_EQ(sut.GetOutcome().cycle, 6);
    EXPECT_FALSE(IsRecording());
}

TEST_F(CycleRequestsTest, TheOutcomeSaysForHowLongTheCycleThreadWasKept)
{
    CycleRequests& sut = m_paced;
    const auto begin = std::chrono::steady_clock::now();
    PublishReference(0.5F);
    sut.Announce(3);
    sut.Arm(Kind::TakeParameters);
    sut.BeforeCycle(3, Never);
    const std::chrono::nanoseconds elapsed = std::chrono::steady_clock::now() - begin;
    EXPECT_GT(sut.GetOutcome().duration.count(), 0);
    EXPECT_LE(sut.GetOutcome().duration, elapsed);
}

TEST_F(CycleRequestsTest, APacedLoopBringsAMatrixNearerByOnePieceACycleAheadOfItsTime)
{
    CycleRequests& sut = m_paced;
    sut.Announce(NUM_PIECES + 1);
    PublishMatrix(2.0F);
    sut.Arm(Kind::TakeParameters);
    for (std::int64_t cycle = 0; cycle < NUM_PIECES + 1; ++cycle) {
        sut.BeforeCycle(cycle, MustNotWait);
        ASSERT_FALSE(sut.IsDone());
        ASSERT_EQ(MatrixInForce(), 1.0F) << "in cycle " << cycle;
    }
    EXPECT_FALSE(m_parameters.StagePiece()) << "all of it is here";
    sut.BeforeCycle(NUM_PIECES + 1, MustNotWait);
    EXPECT_TRUE(sut.IsDone());
    EXPECT_EQ(MatrixInForce(), 2.0F);
}

TEST_F(CycleRequestsTest, AMatrixThatComesLateIsTakenOverByAPacedLoopAsSoonAsItIsWhole)
{
    CycleRequests& sut = m_paced;
    sut.Announce(3);
    PublishMatrix(2.0F);
    sut.Arm(Kind::TakeParameters);
    std::int64_t cycle = 3;
    for (; cycle < 3 + NUM_PIECES - 1; ++cycle) {
        sut.BeforeCycle(cycle, MustNotWait);
        ASSERT_FALSE(sut.IsDone()) << "before cycle " << cycle;
        ASSERT_EQ(MatrixInForce(), 1.0F) << "in cycle " << cycle;
    }
    sut.BeforeCycle(cycle, MustNotWait);
    EXPECT_TRUE(sut.IsDone());
    EXPECT_EQ(sut.GetOutcome().cycle, cycle) << "the cycle from which on it is in force";
    EXPECT_EQ(MatrixInForce(), 2.0F);
}

TEST_F(CycleRequestsTest, ALoopThatIsNotPacedTakesAWholeMatrixAtOnce)
{
    CycleRequests& sut = m_free;
    sut.Announce(3);
    PublishMatrix(2.0F);
    sut.Arm(Kind::TakeParameters);
    sut.BeforeCycle(3, MustNotWait);
    EXPECT_TRUE(sut.IsDone());
    EXPECT_EQ(sut.GetOutcome().cycle, 3);
    EXPECT_EQ(MatrixInForce(), 2.0F);
}

TEST_F(CycleRequestsTest, BetweenTwoCyclesNothingIsAllocated)
{
    const std::function<bool()> never = Never;
    std::int64_t allocations = 0;
    for (CycleRequests* sut : {&m_paced, &m_free}) {
        PublishMatrix(2.0F);
        sut->Announce(2);
        std::int64_t cycle = 0;
        sut->Arm(Kind::TakeParameters);
        const AllocationGuard guard;
        while (!sut->IsDone()) {
            sut->BeforeCycle(cycle++, never);
        }
        for (const Kind kind : {Kind::StopRecording, Kind::StartRecording}) {
            sut->Arm(kind);
            sut->BeforeCycle(cycle++, never);
        }
        int asked = 0;
        const auto waits = [&asked] {
            return ++asked == 3;
        };
        sut->BeforeCycle(cycle, std::function<bool()>(std::cref(waits)));
        allocations += guard.GetCount();
        EXPECT_TRUE(sut->IsDone());
    }
    EXPECT_EQ(allocations, 0);
}

TEST_F(CycleRequestsTest, RequestsOfAnotherThreadAreDoneAtTheirCyclesHoweverFastItIs)
{
    CycleRequests& sut = m_free;
    constexpr int NUM_REQUESTS = 100;
    constexpr std::int64_t STEP = 3;
    sut.Announce(STEP);
    std::vector<std::int64_t> cycles;
    std::vector<float> seen;  // what the cycle had taken over by then
    std::thread slow([&] {
        for (int i = 1; i <= NUM_REQUESTS; ++i) {
            sut.Announce(STEP * i);
            PublishReference(static_cast<float>(i));
            sut.Arm(Kind::TakeParameters);
            while (!sut.IsDone()) {
                std::this_thread::yield();
            }
            cycles.push_back(sut.GetOutcome().cycle);
        }
        sut.Announce(CycleRequests::NEVER);
    });
    for (std::int64_t cycle = 0; cycle < STEP * (NUM_REQUESTS + 1); ++cycle) {
        sut.BeforeCycle(cycle, Never);
        seen.push_back(m_parameters.GetReferences()[0]);
    }
    slow.join();
    ASSERT_EQ(cycles.size(), static_cast<std::size_t>(NUM_REQUESTS));
    for (std::size_t i = 0; i < cycles.size(); ++i) {
        EXPECT_EQ(cycles[i], STEP * static_cast<std::int64_t>(i + 1));
    }
    for (std::size_t cycle = 0; cycle < seen.size(); ++cycle) {
        EXPECT_EQ(seen[cycle], static_cast<float>(std::min<std::size_t>(cycle / STEP, NUM_REQUESTS))) << cycle;
    }
}

}  // namespace
}  // namespace lumo::ravelctl
