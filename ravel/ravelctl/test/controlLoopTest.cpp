#include "controlLoop.hpp"
#include "error.hpp"
#include "support/allocationGuard.hpp"
#include "support/recording.hpp"
#include "support/smallLoop.hpp"
#include "support/testFolder.hpp"
#include "support/thrown.hpp"

#include <lumo/ravelcore/feMeas.hpp>
#include <lumo/ravelcore/utils.hpp>

#include <cblas.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <optional>
#include <thread>

namespace lumo::ravelctl {
namespace {

using ravelcore::test::AllocationGuard;
using testing::HasSubstr;

RunOptions MakeOptions()
{
    RunOptions options;
    options.modes = 20;
    options.duration_s = 0.6;
    options.open_loop_s = 0.1;
    options.as_fast_as_possible = true;
    return options;
}

bool Never()
{
    return false;
}

void Ignore(const std::string& /*line*/)
{
}

/// A loop with recordings, and with injected references where there are any.
class RecordedLoop
{
public:
    explicit RecordedLoop(const RunOptions& options, ReferenceInjection* injection = nullptr)
        : rig(options),
          recordings({options.record.modes, options.record.es, options.record.pact, 1, false,
                      static_cast<int>(rig.plan.cycles)},
                     rig.slices),
          sut(rig.plan, rig.modes, rig.front_end, rig.slices, rig.workers, {&recordings, injection})
    {
    }

    void Run(const std::function<bool()>& is_stopped = Never)
    {
        rig.Start();
        recordings.Start();
        sut.Run(is_stopped);
        recordings.Stop();
        const auto fail = [](const std::string& problem) {
            FAIL() << problem;
        };
        recordings.Save(m_folder.GetPath(), Ignore, fail);
    }

    test::Recording Load(const std::string& name) const { return test::LoadRecording(m_folder / name); }

    test::SmallLoop rig;
    Recordings recordings;
    ControlLoop sut;

private:
    test::TestFolder m_folder;
};

/// Samples, um, for one mode; the others are left alone.
class InjectedMode
{
public:
    InjectedMode(int mode, const std::vector<float>& samples, int decimation = 1)
    {
        test::QuietLog();
        const auto num_modes = static_cast<std::size_t>(MakeOptions().modes);
        std::vector<float> values(samples.size() * num_modes);
        for (std::size_t i = 0; i < samples.size(); ++i) {
            values[i * num_modes + static_cast<std::size_t>(mode)] = samples[i];
        }
        const std::filesystem::path file = m_folder / "samples.fits";
        ravelcore::SaveMatrix(file.string(), "M", static_cast<int>(samples.size()), MakeOptions().modes, values);
        injection =
            std::make_unique<ReferenceInjection>(InjectOptions{file, decimation, false}, MakeOptions().modes, Ignore);
    }

    std::unique_ptr<ReferenceInjection> injection;

private:
    test::TestFolder m_folder;
};

class ControlLoopWorkersTest : public testing::TestWithParam<int>
{
};

TEST_P(ControlLoopWorkersTest, TheCycleThreadNeverAllocatesOpenOrClosed)
{
    RunOptions options = MakeOptions();
    options.workers = GetParam();
    options.as_fast_as_possible = false;  // the wait for the instant is part of the cycle
    options.record.es = options.record.pact = true;
    const InjectedMode injected(3, std::vector<float>(50, 0.1F));
    RecordedLoop recorded(options, injected.injection.get());
    test::SmallLoop& loop = recorded.rig;
    loop.Start();
    recorded.recordings.Start();
    std::optional<AllocationGuard> guard;
    std::int64_t asked = 0;
    std::int64_t guarded = 0;
    const std::function<bool()> is_stopped = [&] {
        if (asked == 3) {  // what the first cycles need in libraries is theirs to take once
            guard.emplace();
        }
        guarded += guard ? 1 : 0;
        ++asked;
        return false;
    };
    recorded.sut.Run(is_stopped);
    const std::int64_t allocations = guard->GetCount();
    EXPECT_EQ(guarded, loop.plan.cycles - 3);
    EXPECT_EQ(allocations, 0);
    EXPECT_GT(loop.plan.open_cycles, 3);
}

INSTANTIATE_TEST_SUITE_P(All, ControlLoopWorkersTest, testing::Values(1, 3));

TEST(ControlLoopTest, WithTheLoopOpenTheActuatorsStayWhereTheyWere)
{
    RunOptions options = MakeOptions();
    test::SmallLoop loop(options);
    loop.Start();
    const auto start = loop.front_end.GetMirror().GetActuatorPositions();
    const std::vector<double> before(start.begin(), start.end());
    std::int64_t cycle = 0;
    loop.loop.Run([&] { return cycle++ == loop.plan.open_cycles; });
    EXPECT_FALSE(loop.loop.GetProgress().closed.load());
    const auto after = loop.front_end.GetMirror().GetActuatorPositions();
    for (std::size_t i = 0; i < before.size(); ++i) {
        ASSERT_NEAR(after[i], before[i], 1.0e-5) << i;  // commands are floats
    }
}

TEST(ControlLoopTest, WhatNoControlledModeDescribesIsHeldForTheWholeRun)
{
    RunOptions options = MakeOptions();
    test::SmallLoop loop(options);
    loop.Start();
    const auto modal = [&loop](std::span<const double> positions, bool controlled) {
        std::vector<double> rest(positions.begin(), positions.end());
        std::vector<double> described(rest.size(), 0.0);
        for (int mode = 0; mode < loop.modes.num_modes; ++mode) {
            double coordinate = 0.0;
            for (std::size_t i = 0; i < rest.size(); ++i) {
                coordinate +=
                    positions[i] *
                    static_cast<double>(loop.modes.pact2modes[static_cast<std::size_t>(mode) * rest.size() + i]);
            }
            for (std::size_t i = 0; i < rest.size(); ++i) {
                described[i] +=
                    coordinate *
                    static_cast<double>(loop.modes.modes2pact[i * static_cast<std::size_t>(loop.modes.num_modes) +
                                                              static_cast<std::size_t>(mode)]);
            }
        }
        for (std::size_t i = 0; i < rest.size(); ++i) {
            rest[i] -= described[i];
        }
        return controlled ? described : rest;
    };
    const std::vector<double> before = modal(loop.front_end.GetMirror().GetActuatorPositions(), false);
    loop.loop.Run(Never);
    const std::vector<double> after = modal(loop.front_end.GetMirror().GetActuatorPositions(), false);
    for (std::size_t i = 0; i < before.size(); ++i) {
        ASSERT_NEAR(after[i], before[i], 2.0e-3) << i;  // float sums, and the rate limit's memory
    }
}

TEST(ControlLoopTest, TheFirstClosedCycleTakesTheMeasuredModesAsReferencesAndThenLeadsThemToZero)
{
    RecordedLoop loop(MakeOptions());
    loop.Run();
    const test::Recording modes = loop.Load("modes_in.fits");
    const LoopPlan& plan = loop.rig.plan;
    ASSERT_EQ(modes.rows, plan.cycles);
    const auto rms = [&modes](std::int64_t row) {
        double sum = 0.0;
        for (int mode = 0; mode < modes.cols; ++mode) {
            sum += std::pow(static_cast<double>(modes.At(static_cast<int>(row), mode)), 2);
        }
        return std::sqrt(sum);
    };
    const double at_closing = rms(plan.open_cycles);
    const std::int64_t lead_end = plan.open_cycles + plan.lead_cycles;
    EXPECT_GT(rms(plan.open_cycles + plan.lead_cycles / 8), 0.7 * at_closing) << "led, not dropped";
    EXPECT_LT(rms(lead_end + 50), 0.1 * at_closing);
}

TEST(ControlLoopTest, ARunHasTheSameBitsHoweverManyThreadsTheBlasHadBeforeIt)
{
    std::vector<std::vector<float>> recorded;
    for (const int threads : {1, 2, 4}) {
        openblas_set_num_threads(threads);
        test::SmallLoop loop(MakeOptions());
        loop.Start();
        loop.loop.Run(Never);
        recorded.push_back(loop.slices.GetModesInRecorders().at(0)->GetSamples());
    }
    EXPECT_TRUE(recorded[0] == recorded[1]);
    EXPECT_TRUE(recorded[0] == recorded[2]);
}

TEST(ControlLoopTest, TimeStampsAreTheCyclesSynchronisationTimes)
{
    RecordedLoop loop(MakeOptions());
    loop.Run();
    const test::Recording modes = loop.Load("modes_out.fits");
    ASSERT_EQ(modes.timestamps.size(), static_cast<std::size_t>(loop.rig.plan.cycles));
    for (std::size_t cycle = 0; cycle < modes.timestamps.size(); ++cycle) {
        ASSERT_EQ(modes.timestamps[cycle], static_cast<double>(cycle) / 500.0);
    }
}

TEST(ControlLoopTest, TheRecordingsAreToldEveryCycleWithItsOwnRecords)
{
    RunOptions options = MakeOptions();
    options.duration_s = 0.1;
    options.open_loop_s = 0.02;
    options.record.modes = false;
    options.record.es = options.record.pact = true;
    RecordedLoop loop(options);
    std::vector<float> es;
    std::vector<float> pact;
    loop.Run([&] {  // asked before each cycle
        ravelcore::AddFeMeasToSamples(loop.rig.front_end.GetEsMeas(), es);
        ravelcore::AddFeMeasToSamples(loop.rig.front_end.GetPactMeas(), pact);
        return false;
    });
    ASSERT_EQ(loop.rig.plan.cycles, 50);
    EXPECT_EQ(loop.recordings.GetCycles(), 50);
    const test::Recording es_file = loop.Load("es.fits");
    const test::Recording pact_file = loop.Load("pact.fits");
    EXPECT_TRUE(es_file.values == es) << "not those of the cycles' records";
    EXPECT_TRUE(pact_file.values == pact) << "not those of the cycles' records";
    for (std::size_t cycle = 0; cycle < 50; ++cycle) {
        ASSERT_EQ(es_file.timestamps.at(cycle), static_cast<double>(cycle) / 500.0);
        ASSERT_EQ(pact_file.timestamps.at(cycle), static_cast<double>(cycle) / 500.0);
    }
}

/// The first row in which two recordings differ, and whether that is in one column only; -1 where they are the same.
int FirstDifference(const test::Recording& a, const test::Recording& b, int col)
{
    EXPECT_EQ(a.rows, b.rows);
    for (int row = 0; row < a.rows; ++row) {
        bool differs = false;
        for (int c = 0; c < a.cols; ++c) {
            if (a.At(row, c) != b.At(row, c)) {
                EXPECT_EQ(c, col) << "row " << row;
                differs = true;
            }
        }
        if (differs) {
            return row;
        }
    }
    return -1;
}

RunOptions MakeBriefOptions()
{
    RunOptions options = MakeOptions();
    options.duration_s = 0.34;
    options.open_loop_s = 0.02;
    return options;
}

test::Recording RunInjected(ReferenceInjection* injection, const std::string& file)
{
    RecordedLoop loop(MakeBriefOptions(), injection);
    loop.Run();
    return loop.Load(file);
}

TEST(ControlLoopTest, InjectionBeginsInTheCycleWhoseReferencesHaveBeenLedToZero)
{
    const LoopPlan plan = PlanRun(MakeBriefOptions());
    const int at_zero = static_cast<int>(plan.open_cycles + 1 + plan.lead_cycles);
    const test::Recording plain = RunInjected(nullptr, "modes_out.fits");
    constexpr int MODE = 3;
    const InjectedMode at_once(MODE, {0.05F});
    EXPECT_EQ(FirstDifference(RunInjected(at_once.injection.get(), "modes_out.fits"), plain, MODE), at_zero);
    const InjectedMode third(MODE, {0.0F, 0.0F, 0.05F});
    EXPECT_EQ(FirstDifference(RunInjected(third.injection.get(), "modes_out.fits"), plain, MODE), at_zero + 2);
    const InjectedMode slow(MODE, {0.0F, 0.05F}, 4);
    EXPECT_EQ(FirstDifference(RunInjected(slow.injection.get(), "modes_out.fits"), plain, MODE), at_zero + 4);
    const InjectedMode nothing(MODE, {0.0F, 0.0F});
    EXPECT_EQ(FirstDifference(RunInjected(nothing.injection.get(), "modes_out.fits"), plain, MODE), -1);
}

TEST(ControlLoopTest, TheModesFollowTheInjectionAndComeBackAfterIt)
{
    const LoopPlan plan = PlanRun(MakeBriefOptions());
    const int at_zero = static_cast<int>(plan.open_cycles + 1 + plan.lead_cycles);
    constexpr int MODE = 3;
    constexpr int LENGTH = 55;
    const InjectedMode injected(MODE, std::vector<float>(LENGTH, 1.0F));
    const test::Recording plain = RunInjected(nullptr, "modes_in.fits");
    const test::Recording moved = RunInjected(injected.injection.get(), "modes_in.fits");
    ASSERT_GT(moved.rows, at_zero + 2 * LENGTH - 1);
    const auto moved_by = [&](int row, int mode) {
        return moved.At(row, mode) - plain.At(row, mode);
    };
    EXPECT_NEAR(moved_by(at_zero + LENGTH - 1, MODE), 1.0, 0.02);
    EXPECT_NEAR(moved_by(at_zero + LENGTH - 1, MODE + 1), 0.0, 0.02);
    EXPECT_NEAR(moved_by(at_zero + 2 * LENGTH - 1, MODE), 0.0, 0.02);
}

TEST(ControlLoopTest, EachMissedInstantIsListedWithTheCycleThatCameAfterIt)
{
    RunOptions options = MakeOptions();
    options.as_fast_as_possible = false;
    test::SmallLoop loop(options);
    loop.Start();
    constexpr std::int64_t LATE = 30;
    std::int64_t cycle = 0;
    loop.loop.Run([&] {
        if (cycle == LATE) {  // longer than five periods: at least four instants pass, whatever else happens
            std::this_thread::sleep_for(std::chrono::milliseconds(11));
        }
        return cycle++ == 2 * LATE;
    });
    const std::vector<std::int64_t>& missed = loop.loop.GetMissedBefore();
    EXPECT_EQ(static_cast<std::int64_t>(missed.size()), loop.loop.GetProgress().missed.load());
    EXPECT_GE(std::count(missed.begin(), missed.end(), LATE), 4);
    EXPECT_TRUE(std::is_sorted(missed.begin(), missed.end()));
    EXPECT_GE(missed.front(), 0);
    EXPECT_LT(missed.back(), 2 * LATE);
}

TEST(ControlLoopTest, WithoutPacingNoInstantIsMissed)
{
    test::SmallLoop loop(MakeOptions());
    loop.Start();
    std::int64_t cycle = 0;
    loop.loop.Run([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(3));
        return cycle++ == 20;
    });
    EXPECT_TRUE(loop.loop.GetMissedBefore().empty());
    EXPECT_EQ(loop.loop.GetProgress().missed.load(), 0);
}

TEST(ControlLoopTest, OfFramesThatArePlayedBackTheSensorsAreJudgedAndNoSurfaceIsSeen)
{
    const RunOptions options = MakeOptions();
    const test::SmallLoop rig(options);
    const auto cols = static_cast<int>(ravelcore::ES_SAMPLE_SIZE);
    const auto cycles = static_cast<int>(rig.plan.cycles);
    std::vector<float> values(static_cast<std::size_t>(cycles) * static_cast<std::size_t>(cols));
    for (std::size_t frame = 0; frame < static_cast<std::size_t>(cycles); ++frame) {
        // In the first segment's block 1.
        const bool open = static_cast<std::int64_t>(frame) < rig.plan.open_cycles;
        values[frame * static_cast<std::size_t>(cols)] = open ? 3.0F : 2.0F;
    }
    test::QuietLog();
    const test::TestFolder folder;
    const std::filesystem::path file = folder / "es.fits";
    ravelcore::SaveMatrix(file.string(), "es", cycles, cols, values);
    FramePlayer player({file, {}}, Ignore);
    SimulatedFrontEnd front_end(mirrorsim::Mirror(rig.geometry, test::SmallLoop::MakeConfig(options)), &player);
    SliceSet slices(rig.modes, 1, rig.pid_params, rig.plant.period_s, front_end.GetEsMeas().block1.data(), cycles);
    WorkerGroup workers(slices.GetTasks(), std::vector<Placement>(1), std::chrono::minutes(1),
                        log4cplus::Logger::getInstance("controlLoopTest"));
    ControlLoop sut(rig.plan, rig.modes, front_end, slices, workers);
    workers.Start();
    sut.Run(Never);
    slices.PrepareStop();
    workers.Stop(true);
    EXPECT_EQ(sut.GetProgress().cycles_done.load(), cycles);
    EXPECT_EQ(sut.GetSurfaceLog().GetNumSamples(), 0);
    EXPECT_DOUBLE_EQ(sut.GetOpenEsRms().value(), 3.0 / std::sqrt(mirrorsim::NUM_SENSORS));
    EXPECT_DOUBLE_EQ(sut.GetJudgedEsRms().value(), 2.0 / std::sqrt(mirrorsim::NUM_SENSORS));
}

TEST(ControlLoopTest, ItStopsWhenItIsToldToAndBooksWhatWasDone)
{
    test::SmallLoop loop(MakeOptions());
    loop.Start();
    int asked = 0;
    loop.loop.Run([&asked] { return asked++ == 120; });
    EXPECT_EQ(loop.loop.GetProgress().cycles_done.load(), 120);
    EXPECT_EQ(loop.loop.GetCycleTimes().GetValuesUs().size(), 120U);
    EXPECT_EQ(loop.loop.GetExecTimes().GetValuesUs().size(), 120U);
    EXPECT_EQ(loop.loop.GetSurfaceLog().GetNumSamples(), 120);
    EXPECT_TRUE(loop.loop.GetProgress().closed.load());
    EXPECT_GT(loop.loop.GetOpenEsRms().value(), 0.0);
}

TEST(ControlLoopTest, WhatItDidNotComeToHasNoFigure)
{
    for (const int cycles : {0, 1, 120}) {
        RunOptions options = MakeOptions();
        test::SmallLoop loop(options);
        loop.Start();
        int asked = 0;
        loop.loop.Run([&] { return asked++ == cycles; });
        EXPECT_EQ(loop.loop.GetOpenEsRms().has_value(), cycles > 0) << cycles;
        EXPECT_EQ(loop.loop.GetJudgedEsRms().has_value(), cycles > loop.plan.FirstJudgedCycle()) << cycles;
    }
}

TEST(ControlLoopTest, ALostWorkerEndsTheLoopWithItsReason)
{
    RunOptions options = MakeOptions();
    options.workers = 2;
    test::SmallLoop loop(options);
    // The second slice's task never executes: as a worker that has ended.
    class Failing : public ravelcore::Task
    {
    public:
        Failing() : Task("failing") {}
        void Initialize() override {}
        void Configure(const std::map<std::string, std::string>& /*cfg*/) override {}
        void Execute(double /*time_stamp*/, bool /*first*/) override { throw std::runtime_error("it broke"); }
    };
    Failing failing;
    WorkerGroup workers({loop.slices.GetTasks()[0], &failing}, std::vector<Placement>(2), std::chrono::minutes(1),
                        log4cplus::Logger::getInstance("controlLoopTest"));
    ControlLoop sut(loop.plan, loop.modes, loop.front_end, loop.slices, workers);
    test::QuietLog();
    workers.Start();
    const std::string line = test::ThrownLine<RunError>([&] { sut.Run(Never); });
    EXPECT_THAT(line, HasSubstr("worker1 ended: it broke"));
    // The first worker waits at the gate for one that never comes; the stop must free and join it.
    loop.slices.PrepareStop();
    workers.Stop(true);
}

}  // namespace
}  // namespace lumo::ravelctl
