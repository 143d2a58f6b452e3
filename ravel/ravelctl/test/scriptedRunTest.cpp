#include "controller.hpp"
#include "error.hpp"
#include "scriptPlayer.hpp"
#include "support/logReaction.hpp"
#include "support/quietLog.hpp"
#include "support/recording.hpp"
#include "support/runInProcess.hpp"
#include "support/smallLoop.hpp"
#include "support/textFile.hpp"

#include <lumo/mirrorsim/geometry.hpp>
#include <lumo/ravelcore/utils.hpp>

#include <fmt/core.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <bit>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <sstream>
#include <thread>
#include <utility>

// Whole runs with a script: what reaches the recordings, and when.

namespace lumo::ravelctl {
namespace {

using test::LoadRecording;
using test::Recording;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* MODE_FILES[] = {"modes_in.fits", "modes_out.fits", "modes_ref.fits", "modes_arw.fits"};

RunOptions MakeOptions()
{
    RunOptions options;
    options.modes = 20;
    options.duration_s = 0.3;  // 150 cycles
    options.as_fast_as_possible = true;
    return options;
}

class ScriptedRunTest : public testing::Test
{
protected:
    ScriptedRunTest() { test::QuietLog(); }

    /// A run whose recordings go into a folder of that name, and what became of its script's steps; without a script
    /// nothing of what plays scripts is there.
    std::vector<ScriptEvent> Run(const std::string& name, const std::string& script)
    {
        test::SmallLoop rig(m_options);
        Recordings recordings(PlanRecording(m_options, rig.plan), rig.slices);
        std::vector<ScriptStep> steps;
        if (!script.empty()) {
            const std::filesystem::path file = m_folder / (name + ".toml");
            test::WriteBytes(file, script);
            steps = LoadScript(file, m_options.modes, rig.plan.TimeOf(rig.plan.cycles - 1));
        }
        LiveParameters parameters(rig.slices, m_options.modes, rig.pid_params, ScriptPlayer::FindMatrices(steps));
        CycleRequests requests(parameters, recordings, rig.plan.paced);
        LoopExtras extras;
        extras.recordings = &recordings;
        if (!steps.empty()) {
            extras.parameters = &parameters;
            extras.requests = &requests;
        }
        ControlLoop loop(rig.plan, rig.modes, rig.front_end, rig.slices, rig.workers, extras);
        ScriptPlayer player(steps, rig.plan, m_options.modes, m_folder / name, {parameters, requests, recordings});
        rig.Start();
        recordings.Start();
        player.StartThread();
        loop.Run([] { return false; });
        player.stop(nullptr);
        player.JoinThread();
        std::filesystem::create_directories(m_folder / name);
        recordings.Save(
            m_folder / name, [](const std::string& /*file*/) {},
            [](const std::string& problem) { ADD_FAILURE() << problem; });
        return player.GetEvents();
    }

    bool AreSameFiles(const std::string& left, const std::string& right, const char* file) const
    {
        return test::ReadBytes(m_folder / left / file) == test::ReadBytes(m_folder / right / file);
    }

    /// The first row in which two recordings differ; the number of rows where none does.
    int FirstDifference(const std::string& left, const std::string& right, const char* file) const
    {
        const Recording a = LoadRecording(m_folder / left / file);
        const Recording b = LoadRecording(m_folder / right / file);
        EXPECT_EQ(a.timestamps, b.timestamps);
        for (std::size_t i = 0; i < a.values.size(); ++i) {
            if (std::bit_cast<std::uint32_t>(a.values[i]) != std::bit_cast<std::uint32_t>(b.values.at(i))) {
                return static_cast<int>(i) / a.cols;
            }
        }
        return a.rows;
    }

    static std::vector<std::int64_t> Cycles(const std::vector<ScriptEvent>& events)
    {
        std::vector<std::int64_t> cycles;
        for (const ScriptEvent& event : events) {
            EXPECT_EQ(event.problem, "") << event.what;
            cycles.push_back(event.cycle);
        }
        return cycles;
    }

    std::filesystem::path SaveMatrix(const std::string& name, int rows, int cols,
                                     const std::vector<float>& values) const
    {
        ravelcore::SaveMatrix((m_folder / name).string(), "M", rows, cols, values);
        return m_folder / name;
    }

    static double Rms(const Recording& recording, int col, int begin, int end)
    {
        double sum = 0.0;
        for (int row = begin; row < end; ++row) {
            sum += std::pow(static_cast<double>(recording.At(row, col)), 2);
        }
        return std::sqrt(sum / (end - begin));
    }

    static double Mean(const Recording& recording, int col, int begin, int end)
    {
        double sum = 0.0;
        for (int row = begin; row < end; ++row) {
            sum += static_cast<double>(recording.At(row, col));
        }
        return sum / (end - begin);
    }

    test::TestFolder m_folder;
    RunOptions m_options = MakeOptions();
};

TEST_F(ScriptedRunTest, GainsThatChangeActFromTheirCycleOnAndNotBefore)
{
    Run("plain", "");
    const std::vector<ScriptEvent> events = Run("scripted", "[[at]]\ntime = 0.2\ngains = { kp = 0.1, ki = 20.0 }\n");
    EXPECT_THAT(Cycles(events), ElementsAre(100));
    EXPECT_EQ(FirstDifference("plain", "scripted", "modes_out.fits"), 100);
    EXPECT_GT(FirstDifference("plain", "scripted", "modes_in.fits"), 100) << "the mirror follows the command";
    EXPECT_LT(FirstDifference("plain", "scripted", "modes_in.fits"), 106);
}

TEST_F(ScriptedRunTest, AStepThatIsRefusedLeavesTheRunAsItIsWithoutThatStep)
{
    const std::string good = "[[at]]\ntime = 0.2\npdc = { modes = 5, value = 0.0 }\n";
    Run("without", good);
    SaveMatrix("small.fits", 3, 2, std::vector<float>(6, 1.0F));
    const std::vector<ScriptEvent> events = Run("with", R"([[at]]
time = 0.1
gains = { kp = 0.1 }
references = { value = 0.5 }
pdc = { modes = 3, value = 0.0 }
p2edc = ")" + (m_folder / "small.fits").string() + "\"\n" + good);
    ASSERT_EQ(events.size(), 2U);
    EXPECT_EQ(events[0].problem,
              "Matrix P2EDC (" + (m_folder / "small.fits").string() + ") has dimension [3,2], expecting [20,4788]");
    EXPECT_EQ(events[0].cycle, -1);
    EXPECT_EQ(events[1].cycle, 100);
    for (const char* file : MODE_FILES) {
        EXPECT_TRUE(AreSameFiles("with", "without", file)) << file;
    }
}

TEST_F(ScriptedRunTest, MatricesThatAreExchangedForTheSameOnesChangeNoBitAndOthersDo)
{
    m_options.workers = 2;
    const mirrorsim::ControlModes& modes = test::SharedModes(m_options.modes);
    const auto quoted = [](const std::filesystem::path& file) {
        return "\"" + file.string() + "\"\n";
    };
    const std::string same =
        "[[at]]\ntime = 0.2\np2edc = " + quoted(SaveMatrix("a.fits", modes.num_modes, mirrorsim::NUM_ES, modes.p2edc)) +
        "pact2modes = " + quoted(SaveMatrix("b.fits", modes.num_modes, mirrorsim::NUM_PACT, modes.pact2modes)) +
        "modes2pact = " + quoted(SaveMatrix("c.fits", mirrorsim::NUM_PACT, modes.num_modes, modes.modes2pact));
    Run("plain", "");
    EXPECT_THAT(Cycles(Run("same", same)), ElementsAre(100));
    for (const char* file : MODE_FILES) {
        EXPECT_TRUE(AreSameFiles("plain", "same", file)) << file;
    }
    std::vector<float> other = modes.p2edc;
    for (float& element : other) {
        element *= 1.25F;
    }
    Run("other",
        "[[at]]\ntime = 0.2\np2edc = " + quoted(SaveMatrix("d.fits", modes.num_modes, mirrorsim::NUM_ES, other)));
    EXPECT_EQ(FirstDifference("plain", "other", "modes_in.fits"), 100);
    EXPECT_EQ(FirstDifference("plain", "other", "modes_out.fits"), 100);
}

TEST_F(ScriptedRunTest, PacingChangesNoBitOfAScriptedRun)
{
    m_options.rate_hz = 100.0;  // half a second and more for every preparation, and a short run all the same
    m_options.duration_s = 1.3;
    const mirrorsim::ControlModes& modes = test::SharedModes(m_options.modes);
    std::vector<float> other = modes.p2edc;
    for (float& element : other) {
        element *= 1.25F;
    }
    const std::string script = R"([[at]]
time = 0.6
gains = { modes = "0,3-7", kp = 0.3 }
references = { modes = 5, value = 0.1 }
pdc = { modes = 3, value = 0.0 }
[[at]]
time = 1.2
p2edc = ")" + SaveMatrix("other.fits", modes.num_modes, mirrorsim::NUM_ES, other).string() +
                               "\"\n";
    const std::vector<ScriptEvent> fast = Run("fast", script);
    m_options.as_fast_as_possible = false;
    const std::vector<ScriptEvent> paced = Run("paced", script);
    EXPECT_THAT(Cycles(fast), ElementsAre(60, 120));
    // A busy machine may prepare a step too late for its cycle; until then the runs are equal all the same.
    const std::vector<std::int64_t> done = Cycles(paced);
    ASSERT_EQ(done.size(), 2U);
    ASSERT_GE(done[0], 60);
    ASSERT_GE(done[1], 120);
    const int equal_rows = done[0] > 60 ? 60 : done[1] > 120 ? 120 : 130;
    for (const char* file : MODE_FILES) {
        EXPECT_GE(FirstDifference("fast", "paced", file), equal_rows) << file;
    }
}

TEST_F(ScriptedRunTest, EqualScriptsGiveEqualBitsHoweverManyStepsThereAre)
{
    m_options.workers = 2;
    std::string script;
    for (int step = 0; step < 60; ++step) {
        script += fmt::format("[[at]]\ntime = {}\ngains = {{ modes = {}, kp = {} }}\n", 0.004 * (step + 1), step % 20,
                              0.3 + 0.001 * step);
    }
    const std::vector<ScriptEvent> first = Run("a", script);
    const std::vector<ScriptEvent> second = Run("b", script);
    std::vector<std::int64_t> expected;
    for (std::int64_t step = 0; step < 60; ++step) {
        expected.push_back(2 * (step + 1));
    }
    EXPECT_EQ(Cycles(first), expected);
    EXPECT_EQ(Cycles(second), expected);
    for (const char* file : MODE_FILES) {
        EXPECT_TRUE(AreSameFiles("a", "b", file)) << file;
    }
}

TEST_F(ScriptedRunTest, AModeThatIsReplacedByZeroKeepsItsCommandAndIsControlledAgainWhenItIsGivenBack)
{
    constexpr int MODE = 3;
    constexpr int REPLACED = 250;
    constexpr int AT_REST = 330;  // the set-point filter
    constexpr int GIVEN_BACK = 400;
    m_options.duration_s = 1.2;
    const std::vector<ScriptEvent> events = Run("run", R"([[at]]
time = 0.5
pdc = { modes = 3, value = 0.0 }
[[at]]
time = 0.8
pdc = { modes = 3, release = true }
)");
    EXPECT_THAT(Cycles(events), ElementsAre(REPLACED, GIVEN_BACK));
    const Recording in = LoadRecording(m_folder / "run" / "modes_in.fits");
    const Recording out = LoadRecording(m_folder / "run" / "modes_out.fits");
    ASSERT_EQ(in.rows, 600);
    EXPECT_NE(in.At(REPLACED - 1, MODE), 0.0F);
    for (int row = REPLACED; row < GIVEN_BACK; ++row) {
        ASSERT_EQ(in.At(row, MODE), 0.0F) << row;
        ASSERT_NE(in.At(row, MODE + 1), 0.0F) << row;
    }
    for (int row = AT_REST; row < GIVEN_BACK; ++row) {
        ASSERT_EQ(out.At(row, MODE), out.At(AT_REST, MODE)) << row;
    }
    EXPECT_NE(out.At(GIVEN_BACK - 1, MODE + 1), out.At(AT_REST, MODE + 1));
    const double left = std::abs(static_cast<double>(in.At(GIVEN_BACK, MODE)));
    EXPECT_GT(left, 0.0);
    EXPECT_NE(out.At(GIVEN_BACK, MODE), out.At(AT_REST, MODE));
    std::cout << "left alone: " << left << " um; controlled: " << Rms(in, MODE, 500, 600) << " um rms after, "
              << Rms(in, MODE, 200, 250) << " um rms before\n";
    EXPECT_LT(Rms(in, MODE, 500, 600), 0.2 * left);
}

TEST_F(ScriptedRunTest, ReferencesThatChangeAreWhereTheModesAreLedTo)
{
    constexpr int MODE = 5;
    constexpr double VALUE_UM = 2.0;
    m_options.duration_s = 0.6;
    Run("plain", "");
    const std::vector<ScriptEvent> events =
        Run("scripted", "[[at]]\ntime = 0.2\nreferences = { modes = 5, value = 2.0 }\n");
    EXPECT_THAT(Cycles(events), ElementsAre(100));
    EXPECT_EQ(FirstDifference("plain", "scripted", "modes_out.fits"), 100);
    const Recording plain = LoadRecording(m_folder / "plain" / "modes_in.fits");
    const Recording in = LoadRecording(m_folder / "scripted" / "modes_in.fits");
    // The same wind blows in both runs, and the loop is linear: what differs is the step's answer.
    const double answer = Mean(in, MODE, 250, 300) - Mean(plain, MODE, 250, 300);
    const double other = Mean(in, MODE + 1, 250, 300) - Mean(plain, MODE + 1, 250, 300);
    std::cout << "answer to " << VALUE_UM << " um: " << answer << " um, of the next mode: " << other << " um\n";
    EXPECT_NEAR(answer, VALUE_UM, 0.02 * VALUE_UM);
    EXPECT_NEAR(other, 0.0, 0.02 * VALUE_UM);
}

TEST_F(ScriptedRunTest, ASaveLeavesOutOneCycleAndWhatIsSavedIsTheRunsRecording)
{
    for (const int workers : {1, 2}) {
        m_options.workers = workers;
        const std::string number = std::to_string(workers);
        Run("plain" + number, "");
        const std::vector<ScriptEvent> events = Run("saved" + number, "[[at]]\ntime = 0.1\nsave = \"first\"\n");
        EXPECT_THAT(Cycles(events), ElementsAre(50));
        EXPECT_EQ(events.at(0).last_cycle, 51);
        EXPECT_THAT(events.at(0).files, ElementsAre("first/modes_in.fits", "first/modes_out.fits",
                                                    "first/modes_ref.fits", "first/modes_arw.fits"));
        for (const char* file : MODE_FILES) {
            const Recording whole = LoadRecording(m_folder / ("plain" + number) / file);
            const Recording first = LoadRecording(m_folder / ("saved" + number) / "first" / file);
            const Recording rest = LoadRecording(m_folder / ("saved" + number) / file);
            ASSERT_EQ(first.rows, 50) << file;
            ASSERT_EQ(rest.rows, 99) << file;
            const auto expect_part = [&](const Recording& part, std::ptrdiff_t begin) {
                const auto stamps = whole.timestamps.begin() + begin;
                const auto values = whole.values.begin() + begin * whole.cols;
                EXPECT_TRUE(std::equal(part.timestamps.begin(), part.timestamps.end(), stamps)) << file;
                EXPECT_TRUE(std::equal(part.values.begin(), part.values.end(), values)) << file;
            };
            expect_part(first, 0);
            expect_part(rest, 51);
        }
    }
}

TEST(ScriptedControllerTest, SavesOfTheNewestSamplesAreInTheOrderOfTimeAndTheLastOneLeavesNothingForTheEnd)
{
    const test::TestFolder folder;
    RunOptions options = test::ShortRun(folder, "run");
    options.record.last_s = 0.1;
    options.script = folder / "script.toml";
    test::WriteBytes(options.script, R"([[at]]
time = 0.25
save = "first"
[[at]]
time = 0.598  # before the last cycle
save = "second"
)");
    const test::FinishedRun run = test::RunInProcess(options);
    EXPECT_EQ(run.status, EXIT_OK) << run.text;
    const auto expect_newest = [&options](const char* name, std::int64_t last) {
        for (const char* file : MODE_FILES) {
            std::vector<double> expected;
            for (std::int64_t cycle = last - 49; cycle <= last; ++cycle) {
                expected.push_back(static_cast<double>(cycle) / 500.0);
            }
            EXPECT_EQ(LoadRecording(options.output / name / file).timestamps, expected) << name << "/" << file;
        }
    };
    expect_newest("first", 124);
    expect_newest("second", 298);
    std::vector<std::string> recordings = run.report.files;  // without the run's own description
    std::erase_if(recordings, [](const std::string& name) { return !name.ends_with(".fits"); });
    std::vector<std::string> expected = {"gains.fits"};
    for (const char* name : {"first/", "second/"}) {
        for (const char* file : MODE_FILES) {
            expected.push_back(std::string(name) + file);
        }
    }
    EXPECT_THAT(recordings, testing::UnorderedElementsAreArray(expected));
    EXPECT_FALSE(std::filesystem::exists(options.output / "modes_in.fits"));
}

TEST(ScriptedControllerTest, ARunThatIsNotPacedWaitsForASaveHoweverLongItTakesAndKeepsItsWorkers)
{
    const test::TestFolder folder;
    RunOptions options = test::ShortRun(folder, "run");
    options.workers = 2;
    options.script = folder / "script.toml";
    test::WriteBytes(options.script, "[[at]]\ntime = 0.3\nsave = \"first\"\n");
    const test::LogReaction slow_disk(
        "Saved modes_in", [] { std::this_thread::sleep_for(Controller::HANDSHAKE_TIMEOUT + std::chrono::seconds(1)); });
    const test::FinishedRun run = test::RunInProcess(options);
    EXPECT_TRUE(slow_disk.HasReacted());
    EXPECT_THAT(run.report.problems, IsEmpty());
    EXPECT_EQ(run.report.cycles_done, 300);
    EXPECT_EQ(run.status, EXIT_OK);
}

TEST(ScriptedControllerTest, TheSummaryOfARunThatIsReplacedGoesBeforeASaveReplacesItsFiles)
{
    const test::TestFolder folder;
    RunOptions options = test::ShortRun(folder, "run");
    options.script = folder / "script.toml";
    test::WriteBytes(options.script, "[[at]]\ntime = 0.3\nsave = \"first\"\n");
    test::RunInProcess(options);
    ASSERT_TRUE(std::filesystem::exists(options.output / "summary.json"));
    options.overwrite = true;
    bool was_there = true;
    const test::LogReaction while_saving("Saved modes_in",
                                         [&] { was_there = std::filesystem::exists(options.output / "summary.json"); });
    EXPECT_EQ(test::RunInProcess(options).status, EXIT_OK);
    EXPECT_TRUE(while_saving.HasReacted());
    EXPECT_FALSE(was_there);
    EXPECT_TRUE(std::filesystem::exists(options.output / "summary.json"));
}

TEST(ScriptedControllerTest, AnInterruptedRunEndsAsOneAlsoWhereAStepWasRefused)
{
    const test::TestFolder folder;
    RunOptions options = test::ShortRun(folder, "run");
    options.duration_s = 200.0;
    options.as_fast_as_possible = false;
    options.script = folder / "script.toml";
    test::WriteBytes(options.script, "[[at]]\ntime = 0.0\np2edc = \"missing.fits\"\n");
    test::QuietLog();
    std::ostringstream out;
    Controller controller(options, out);
    controller.Configure();
    controller.Start();
    controller.Wait([&out] { return out.str().find("REFUSED") != std::string::npos; });
    controller.Stop();
    controller.Save();
    EXPECT_EQ(controller.GetExitStatus(), EXIT_INTERRUPTED);
    EXPECT_THAT(controller.GetReport().problems, ElementsAre(testing::HasSubstr("missing.fits")));
}

TEST(ScriptedControllerTest, WhatIsDueAfterAnInterruptionIsNeitherDoneNorAProblem)
{
    const test::TestFolder folder;
    RunOptions options = test::ShortRun(folder, "run");
    options.duration_s = 200.0;
    options.script = folder / "script.toml";
    test::WriteBytes(options.script,
                     "[[at]]\ntime = 199\nsave = \"first\"\n[[at]]\ntime = 199.5\ngains = { kp = 0.1 }\n");
    test::QuietLog();
    std::ostringstream out;
    Controller controller(options, out);
    controller.Configure();
    controller.Start();
    controller.Wait([] { return true; });
    controller.Stop();
    controller.Save();
    EXPECT_EQ(controller.GetExitStatus(), EXIT_INTERRUPTED);
    EXPECT_THAT(controller.GetReport().problems, IsEmpty());
    EXPECT_THAT(controller.GetReport().script, IsEmpty());
    EXPECT_FALSE(std::filesystem::exists(options.output / "first"));
}

}  // namespace
}  // namespace lumo::ravelctl
