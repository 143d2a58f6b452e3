#include "recordings.hpp"
#include "support/allocationGuard.hpp"
#include "support/quietLog.hpp"
#include "support/recording.hpp"
#include "support/testFolder.hpp"
#include "workerGroup.hpp"

#include <lumo/ravelcore/feMeas.hpp>

#include <fmt/core.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <numeric>
#include <thread>

namespace lumo::ravelctl {
namespace {

using ravelcore::test::AllocationGuard;
using testing::ElementsAre;
using testing::IsEmpty;
using Names = std::vector<std::string>;

constexpr double PERIOD_S = 0.002;
constexpr int NUM_MODES = 5;

/// Each mode reads one sensor.
mirrorsim::ControlModes ModesOfOneSensorEach()
{
    mirrorsim::ControlModes modes;
    modes.num_modes = NUM_MODES;
    modes.p2edc.assign(std::size_t{NUM_MODES} * mirrorsim::NUM_ES, 0.0F);
    for (std::size_t mode = 0; mode < NUM_MODES; ++mode) {
        modes.p2edc[mode * mirrorsim::NUM_ES + mode] = 1.0F;
    }
    modes.pact2modes.assign(std::size_t{NUM_MODES} * mirrorsim::NUM_PACT, 0.0F);
    modes.modes2pact = modes.pact2modes;
    return modes;
}

/// What element `index` of a block holds in a cycle: another value everywhere, exact in a float.
float ValueAt(std::int64_t cycle, int block, std::size_t index)
{
    return static_cast<float>(20'000 * cycle + 5'000 * block + static_cast<std::int64_t>(index));
}

template <typename Block>
void Fill(std::int64_t cycle, int number, Block& block)
{
    for (std::size_t i = 0; i < block.size(); ++i) {
        block[i] = ValueAt(cycle, number, i);
    }
}

/// Recordings of a loop that stays open, so that a mode's command is its measurement.
class Rig
{
public:
    explicit Rig(const RecordingPlan& plan, int num_workers = 1)
        : m_slices(m_modes, num_workers, m_pid_params, PERIOD_S, m_es.block1.data(), plan.modes ? plan.capacity : 1),
          m_workers(m_slices.GetTasks(), std::vector<Placement>(static_cast<std::size_t>(num_workers)),
                    std::chrono::minutes(1), log4cplus::Logger::getInstance("recordingsTest")),
          sut(plan, m_slices)
    {
        test::QuietLog();
        m_workers.Start();
        m_slices.SetClosed(false);
    }

    ~Rig()
    {
        m_slices.PrepareStop();
        m_workers.Stop(true);
    }

    Rig(const Rig&) = delete;
    Rig& operator=(const Rig&) = delete;

    /// Cycles `begin` to `end` - 1, as the control loop runs them.
    void Run(std::int64_t begin, std::int64_t end)
    {
        for (std::int64_t cycle = begin; cycle < end; ++cycle) {
            Fill(cycle, 1, m_es.block1);
            Fill(cycle, 2, m_es.block2);
            Fill(cycle, 3, m_es.block3);
            Fill(cycle, 1, m_pact.block1);
            Fill(cycle, 2, m_pact.block2);
            m_slices.PrepareCycle(TimeOf(cycle), false);
            m_workers.GiveStart();
            m_workers.AwaitReady();
            sut.Add(TimeOf(cycle), m_es, m_pact);
        }
    }

    static double TimeOf(std::int64_t cycle) { return static_cast<double>(cycle) * PERIOD_S; }

    void Save(const std::filesystem::path& folder)
    {
        done.clear();
        failed.clear();
        sut.Save(
            folder, [this](const std::string& name) { done.push_back(name); },
            [this](const std::string& problem) { failed.push_back(problem); });
    }

private:
    mirrorsim::ControlModes m_modes = ModesOfOneSensorEach();
    std::vector<float> m_pid_params =
        std::vector<float>(std::size_t{NUM_MODES} * ravelcore::NUM_PID_FILTER_PARAMS, 1.0F);
    mirrorsim::EsRecord m_es{};
    mirrorsim::PactRecord m_pact{};
    SliceSet m_slices;
    WorkerGroup m_workers;

public:
    Recordings sut;
    Names done;
    Names failed;
};

RecordingPlan PlanOf(int capacity, int decimation = 1, bool loopback = false)
{
    return {true, true, true, decimation, loopback, capacity};
}

/// Whether a recording has one row for each of `cycles`, with their stamps and, in every column, what `value_at` says.
template <typename ValueAtColumn>
void ExpectRows(const test::Recording& recording, int cols, const std::vector<std::int64_t>& cycles,
                const ValueAtColumn& value_at)
{
    ASSERT_EQ(recording.rows, static_cast<int>(cycles.size()));
    ASSERT_EQ(recording.cols, cols);
    for (int row = 0; row < recording.rows; ++row) {
        const std::int64_t cycle = cycles[static_cast<std::size_t>(row)];
        ASSERT_EQ(recording.timestamps.at(static_cast<std::size_t>(row)), Rig::TimeOf(cycle)) << row;
        for (int col = 0; col < cols; ++col) {
            ASSERT_EQ(recording.At(row, col), value_at(cycle, static_cast<std::size_t>(col))) << row << ", " << col;
        }
    }
}

/// A segment's 6 values of block 1, then its 6 of block 3, then its 6 of block 2.
float EsColumn(std::int64_t cycle, std::size_t col)
{
    constexpr std::array BLOCKS = {1, 3, 2};
    const std::size_t segment = col / 18;
    const std::size_t within = col % 18;
    return ValueAt(cycle, BLOCKS.at(within / 6), 6 * segment + within % 6);
}

/// A segment's 3 values of block 1, then its 3 of block 2.
float PactColumn(std::int64_t cycle, std::size_t col)
{
    const std::size_t segment = col / 6;
    const std::size_t within = col % 6;
    return ValueAt(cycle, within < 3 ? 1 : 2, 3 * segment + within % 3);
}

float ModeColumn(std::int64_t cycle, std::size_t col)
{
    return ValueAt(cycle, 1, col);
}

void ExpectAllSix(const std::filesystem::path& folder, const std::vector<std::int64_t>& cycles)
{
    ExpectRows(test::LoadRecording(folder / "modes_in.fits"), NUM_MODES, cycles, ModeColumn);
    ExpectRows(test::LoadRecording(folder / "modes_out.fits"), NUM_MODES, cycles, ModeColumn);
    const auto zero = [](std::int64_t /*cycle*/, std::size_t /*col*/) {
        return 0.0F;
    };
    ExpectRows(test::LoadRecording(folder / "modes_ref.fits"), NUM_MODES, cycles, zero);  // as long as the loop is open
    ExpectRows(test::LoadRecording(folder / "modes_arw.fits"), NUM_MODES, cycles, zero);
    ExpectRows(test::LoadRecording(folder / "es.fits"), 14364, cycles, EsColumn);
    ExpectRows(test::LoadRecording(folder / "pact.fits"), 4788, cycles, PactColumn);
}

class RecordingsSlicesTest : public testing::TestWithParam<int>
{
};

TEST_P(RecordingsSlicesTest, EveryCycleIsARowOfModesSensorsAndActuatorsInTheOrderOfTheirSamples)
{
    Rig rig(PlanOf(4), GetParam());
    rig.sut.Start();
    rig.Run(0, 4);
    rig.sut.Stop();
    const test::TestFolder folder;
    rig.Save(folder.GetPath());
    EXPECT_THAT(rig.done, ElementsAre("modes_in.fits", "modes_out.fits", "modes_ref.fits", "modes_arw.fits", "es.fits",
                                      "pact.fits"));
    EXPECT_THAT(rig.failed, IsEmpty());
    EXPECT_EQ(folder.CountEntries(), 6U);
    ExpectAllSix(folder.GetPath(), {0, 1, 2, 3});
}

TEST_P(RecordingsSlicesTest, OneInThreeCyclesIsEveryThirdOne)
{
    Rig rig(PlanOf(3, 3), GetParam());
    rig.sut.Start();
    rig.Run(0, 11);
    rig.sut.Stop();
    const test::TestFolder folder;
    rig.Save(folder.GetPath());
    ExpectAllSix(folder.GetPath(), {2, 5, 8});
}

TEST_P(RecordingsSlicesTest, TheLastCyclesAreTheNewestOnesInTheOrderOfTime)
{
    Rig rig(PlanOf(4, 1, true), GetParam());
    rig.sut.Start();
    rig.Run(0, 10);
    rig.sut.Stop();
    const test::TestFolder folder;
    rig.Save(folder.GetPath());
    ExpectAllSix(folder.GetPath(), {6, 7, 8, 9});
}

TEST_P(RecordingsSlicesTest, TheLastOfOneInThreeCyclesAreThereWhereverTheRecordersStand)
{
    const test::TestFolder folder;
    Rig rig(PlanOf(3, 3, true), GetParam());
    for (int cycles = 9; cycles <= 15; ++cycles) {  // of 10 the recorders have gone round and skipped the cycle
        rig.sut.Start();
        rig.Run(0, cycles);
        rig.sut.Stop();
        rig.Save(folder.GetPath());
        const std::int64_t last = cycles / 3 * 3 - 1;
        SCOPED_TRACE(cycles);
        ExpectAllSix(folder.GetPath(), {last - 6, last - 3, last});
    }
}

TEST_P(RecordingsSlicesTest, RecordersThatHaveNotYetGoneRoundGiveWhatTheyHold)
{
    Rig rig(PlanOf(100, 1, true), GetParam());
    rig.sut.Start();
    rig.Run(0, 3);
    rig.sut.Stop();
    const test::TestFolder folder;
    rig.Save(folder.GetPath());
    ExpectAllSix(folder.GetPath(), {0, 1, 2});
}

TEST_P(RecordingsSlicesTest, AnEarlyEndLeavesWhatWasRecordedUntilThen)
{
    Rig rig(PlanOf(100), GetParam());
    rig.sut.Start();
    rig.Run(0, 3);
    const test::TestFolder folder;
    rig.Save(folder.GetPath());  // the cycle has ended, without a stop
    ExpectAllSix(folder.GetPath(), {0, 1, 2});
}

TEST_P(RecordingsSlicesTest, CyclesAfterTheStopAreNotPartOfTheRecording)
{
    for (const bool loopback : {false, true}) {
        for (const std::int64_t cycles : {3, 4, 5}) {
            Rig rig(PlanOf(4, 1, loopback), GetParam());
            rig.sut.Start();
            rig.Run(0, cycles);
            rig.sut.Stop();
            rig.Run(cycles, 11);
            EXPECT_EQ(rig.sut.GetCycles(), cycles);
            const test::TestFolder folder;
            rig.Save(folder.GetPath());
            SCOPED_TRACE(loopback);
            const std::int64_t last = loopback ? cycles : std::min<std::int64_t>(cycles, 4);
            std::vector<std::int64_t> kept;
            for (std::int64_t cycle = std::max<std::int64_t>(last - 4, 0); cycle < last; ++cycle) {
                kept.push_back(cycle);
            }
            ExpectAllSix(folder.GetPath(), kept);
        }
    }
}

TEST_P(RecordingsSlicesTest, ASlowThreadSavesWhileTheCyclesGoOn)
{
    Rig rig(PlanOf(40, 1, true), GetParam());
    rig.sut.Start();
    rig.Run(0, 30);
    rig.sut.Stop();
    const test::TestFolder folder;
    std::thread slow([&] { rig.Save(folder.GetPath()); });
    rig.Run(30, 100);
    slow.join();
    EXPECT_THAT(rig.failed, IsEmpty());
    std::vector<std::int64_t> kept(30);
    std::iota(kept.begin(), kept.end(), 0);
    ExpectAllSix(folder.GetPath(), kept);
}

TEST_P(RecordingsSlicesTest, BeforeTheStartNothingIsRecorded)
{
    Rig rig(PlanOf(4), GetParam());
    rig.Run(0, 3);
    EXPECT_EQ(rig.sut.GetCycles(), 0);
    rig.sut.Start();
    rig.Run(3, 5);
    rig.sut.Stop();
    const test::TestFolder folder;
    rig.Save(folder.GetPath());
    ExpectAllSix(folder.GetPath(), {3, 4});
}

TEST_P(RecordingsSlicesTest, StartingAgainBeginsANewRecording)
{
    for (const bool loopback : {false, true}) {
        Rig rig(PlanOf(4, 1, loopback), GetParam());
        rig.sut.Start();
        rig.Run(0, 7);
        rig.sut.Stop();
        rig.Run(7, 8);  // of no recording
        rig.sut.Start();
        EXPECT_EQ(rig.sut.GetCycles(), 0);
        rig.Run(8, 11);
        EXPECT_EQ(rig.sut.GetCycles(), 3);
        rig.sut.Stop();
        const test::TestFolder folder;
        rig.Save(folder.GetPath());
        SCOPED_TRACE(loopback);
        ExpectAllSix(folder.GetPath(), {8, 9, 10});
    }
}

INSTANTIATE_TEST_SUITE_P(All, RecordingsSlicesTest, testing::Values(1, 3));

TEST(RecordingsTest, WhatIsNotToBeRecordedMakesNoFile)
{
    for (int kinds = 0; kinds < 8; ++kinds) {
        RecordingPlan plan = PlanOf(2);
        plan.modes = (kinds & 1) != 0;
        plan.es = (kinds & 2) != 0;
        plan.pact = (kinds & 4) != 0;
        Rig rig(plan);
        rig.sut.Start();
        rig.Run(0, 2);
        rig.sut.Stop();
        const test::TestFolder folder;
        rig.Save(folder.GetPath());
        Names expected;
        if (plan.modes) {
            expected = {"modes_in.fits", "modes_out.fits", "modes_ref.fits", "modes_arw.fits"};
        }
        if (plan.es) {
            expected.emplace_back("es.fits");
        }
        if (plan.pact) {
            expected.emplace_back("pact.fits");
        }
        EXPECT_EQ(rig.done, expected);
        EXPECT_THAT(rig.failed, IsEmpty());
        EXPECT_EQ(folder.CountEntries(), expected.size()) << kinds;
    }
}

TEST(RecordingsTest, WithoutASampleThereIsNoFileAndNoComplaint)
{
    const test::TestFolder folder;
    Rig rig(PlanOf(4, 3));
    rig.Save(folder.GetPath());  // never started
    rig.sut.Start();
    rig.Run(0, 2);  // the first sample would be that of the third cycle
    rig.sut.Stop();
    rig.Save(folder.GetPath());
    EXPECT_THAT(rig.done, IsEmpty());
    EXPECT_THAT(rig.failed, IsEmpty());
    EXPECT_EQ(folder.CountEntries(), 0U);
}

TEST(RecordingsTest, AFileThatCannotBeWrittenIsToldAndTheOthersAreWritten)
{
    Rig rig(PlanOf(2));
    rig.sut.Start();
    rig.Run(0, 2);
    rig.sut.Stop();
    const test::TestFolder folder;
    std::filesystem::create_directories(folder / "es.fits");
    std::filesystem::create_directories(folder / "modes_in.fits");
    rig.Save(folder.GetPath());
    EXPECT_THAT(rig.done, ElementsAre("modes_out.fits", "modes_ref.fits", "modes_arw.fits", "pact.fits"));
    const auto complaint = [&folder](const std::string& name) {
        const std::string file = (folder / name).string();
        return fmt::format(
            "cannot write {}: what was written cannot be given this name: Is a directory; free some space or choose "
            "another place with --output",
            file);
    };
    EXPECT_THAT(rig.failed, ElementsAre(complaint("modes_in.fits"), complaint("es.fits")));
    EXPECT_EQ(folder.CountEntries(), 6U) << "a part was left behind";
}

TEST(RecordingsTest, OfAFolderThatIsNotThereEveryFileIsTold)
{
    Rig rig(PlanOf(2));
    rig.sut.Start();
    rig.Run(0, 2);
    rig.sut.Stop();
    const test::TestFolder folder;
    rig.Save(folder / "missing");
    EXPECT_THAT(rig.done, IsEmpty());
    ASSERT_EQ(rig.failed.size(), 6U);
    EXPECT_EQ(rig.failed[4].rfind("cannot write " + (folder / "missing" / "es.fits").string() + ": ", 0), 0U)
        << rig.failed[4];
}

TEST(RecordingsTest, AnOldFileIsReplaced)
{
    const test::TestFolder folder;
    Rig rig(PlanOf(4));
    for (const std::int64_t cycles : {4, 2}) {
        rig.sut.Start();
        rig.Run(0, cycles);
        rig.sut.Stop();
        rig.Save(folder.GetPath());
    }
    ExpectAllSix(folder.GetPath(), {0, 1});
}

TEST(RecordingsTest, CyclesAreCountedWhateverIsRecorded)
{
    RecordingPlan plan = PlanOf(1, 100);
    plan.modes = plan.es = plan.pact = false;
    Rig rig(plan);
    EXPECT_EQ(rig.sut.GetCycles(), 0);
    rig.sut.Start();
    rig.Run(0, 7);
    EXPECT_EQ(rig.sut.GetCycles(), 7);
}

TEST(RecordingsTest, StartAddAndStopNeverAllocate)
{
    for (const bool loopback : {false, true}) {
        RecordingPlan plan = PlanOf(4, 2, loopback);
        mirrorsim::ControlModes modes = ModesOfOneSensorEach();
        const std::vector<float> pid_params(std::size_t{NUM_MODES} * ravelcore::NUM_PID_FILTER_PARAMS, 1.0F);
        const mirrorsim::EsRecord es{};
        const mirrorsim::PactRecord pact{};
        SliceSet slices(modes, 1, pid_params, PERIOD_S, es.block1.data(), plan.capacity);
        for (ravelcore::Task* task : slices.GetTasks()) {
            task->Initialize();
        }
        Recordings sut(plan, slices);
        const AllocationGuard guard;
        for (int recording = 0; recording < 2; ++recording) {
            sut.Start();
            for (int cycle = 0; cycle < 13; ++cycle) {
                sut.Add(Rig::TimeOf(cycle), es, pact);
            }
            sut.Stop();
        }
        sut.Start();
        sut.Stop();
        EXPECT_EQ(guard.GetCount(), 0) << loopback;
    }
}

}  // namespace
}  // namespace lumo::ravelctl
