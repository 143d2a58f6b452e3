#include "controller.hpp"
#include "error.hpp"
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
#include <cmath>
#include <cstdint>
#include <sstream>

// Whole runs with a script: what reaches the recordings, and when.

namespace lumo::ravelctl {
namespace {

using test::FinishedRun;
using test::LoadRecording;
using test::Recording;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr const char* MODE_FILES[] = {"modes_in.fits", "modes_out.fits"};

class ScriptedRunTest : public testing::Test
{
protected:
    /// A run, into a folder of that name, with a script where there is one.
    FinishedRun Run(const std::string& name, const std::string& script)
    {
        m_options.output = m_folder / name;
        m_options.script.clear();
        if (!script.empty()) {
            m_options.script = m_folder / (name + ".toml");
            test::WriteBytes(m_options.script, script);
        }
        return test::RunInProcess(m_options);
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

    static std::vector<std::int64_t> Cycles(const FinishedRun& run)
    {
        std::vector<std::int64_t> cycles;
        for (const ScriptEvent& event : run.report.script) {
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
    RunOptions m_options = test::ShortRun(m_folder, "run");  // 300 cycles
};

TEST_F(ScriptedRunTest, GainsThatChangeActFromTheirCycleOnAndNotBefore)
{
    Run("plain", "");
    const FinishedRun run = Run("scripted", "[[at]]\ntime = 0.4\ngains = { kp = 0.1, ki = 20.0 }\n");
    EXPECT_THAT(Cycles(run), ElementsAre(200));
    EXPECT_EQ(FirstDifference("plain", "scripted", "modes_out.fits"), 200);
    EXPECT_GT(FirstDifference("plain", "scripted", "modes_in.fits"), 200) << "the mirror follows the command";
    EXPECT_LT(FirstDifference("plain", "scripted", "modes_in.fits"), 206);
}

TEST_F(ScriptedRunTest, AStepThatIsRefusedLeavesTheRunAsItIsWithoutThatStep)
{
    const std::string good = "[[at]]\ntime = 0.4\npdc = { modes = 5, value = 0.0 }\n";
    Run("without", good);
    SaveMatrix("small.fits", 3, 2, std::vector<float>(6, 1.0F));
    const FinishedRun run = Run("with", R"([[at]]
time = 0.3
gains = { kp = 0.1 }
references = { value = 0.5 }
pdc = { modes = 3, value = 0.0 }
p2edc = ")" + (m_folder / "small.fits").string() +
                                            "\"\n" + good);
    ASSERT_EQ(run.report.script.size(), 2U);
    EXPECT_EQ(run.report.script[0].problem,
              "Matrix P2EDC (" + (m_folder / "small.fits").string() + ") has dimension [3,2], expecting [20,4788]");
    EXPECT_EQ(run.report.script[0].cycle, -1);
    EXPECT_EQ(run.report.script[1].cycle, 200);
    EXPECT_EQ(run.status, EXIT_FAILED) << "the run goes on, but it is not what was asked for";
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
    const FinishedRun fast = Run("fast", script);
    m_options.as_fast_as_possible = false;
    const FinishedRun paced = Run("paced", script);
    EXPECT_THAT(Cycles(fast), ElementsAre(60, 120));
    ASSERT_THAT(Cycles(paced), ElementsAre(60, 120));
    for (const char* file : MODE_FILES) {
        EXPECT_TRUE(AreSameFiles("fast", "paced", file)) << file;
    }
}

TEST_F(ScriptedRunTest, EqualScriptsGiveEqualBitsHoweverManyStepsThereAre)
{
    m_options.workers = 2;
    std::string script;
    for (int step = 0; step < 100; ++step) {
        script += fmt::format("[[at]]\ntime = {}\ngains = {{ modes = {}, kp = {} }}\n", 0.004 * (step + 1), step % 20,
                              0.3 + 0.001 * step);
    }
    const FinishedRun first = Run("a", script);
    const FinishedRun second = Run("b", script);
    std::vector<std::int64_t> expected;
    for (std::int64_t step = 0; step < 100; ++step) {
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
    constexpr int REPLACED = 300;
    constexpr int AT_REST = 400;  // the set-point filter
    constexpr int GIVEN_BACK = 500;
    m_options.duration_s = 1.6;
    const FinishedRun run = Run("run", R"([[at]]
time = 0.6
pdc = { modes = 3, value = 0.0 }
[[at]]
time = 1.0
pdc = { modes = 3, release = true }
)");
    EXPECT_THAT(Cycles(run), ElementsAre(REPLACED, GIVEN_BACK));
    const Recording in = LoadRecording(m_folder / "run" / "modes_in.fits");
    const Recording out = LoadRecording(m_folder / "run" / "modes_out.fits");
    ASSERT_EQ(in.rows, 800);
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
    std::cout << "left alone: " << left << " um; controlled: " << Rms(in, MODE, 600, 800) << " um rms after, "
              << Rms(in, MODE, 200, 300) << " um rms before\n";
    EXPECT_LT(Rms(in, MODE, 600, 800), 0.2 * left);
}

TEST_F(ScriptedRunTest, ReferencesThatChangeAreWhereTheModesAreLedTo)
{
    constexpr int MODE = 5;
    constexpr double VALUE_UM = 2.0;
    m_options.duration_s = 1.6;
    Run("plain", "");
    const FinishedRun run = Run("scripted", "[[at]]\ntime = 0.6\nreferences = { modes = 5, value = 2.0 }\n");
    EXPECT_THAT(Cycles(run), ElementsAre(300));
    EXPECT_EQ(FirstDifference("plain", "scripted", "modes_out.fits"), 300);
    const Recording plain = LoadRecording(m_folder / "plain" / "modes_in.fits");
    const Recording in = LoadRecording(m_folder / "scripted" / "modes_in.fits");
    // The same wind blows in both runs, and the loop is linear: what differs is the step's answer.
    const double answer = Mean(in, MODE, 600, 800) - Mean(plain, MODE, 600, 800);
    const double other = Mean(in, MODE + 1, 600, 800) - Mean(plain, MODE + 1, 600, 800);
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
        const FinishedRun run = Run("saved" + number, "[[at]]\ntime = 0.2\nsave = \"first\"\n");
        EXPECT_THAT(Cycles(run), ElementsAre(100));
        EXPECT_EQ(run.report.script.at(0).last_cycle, 101);
        EXPECT_THAT(run.report.files, ElementsAre("first/modes_in.fits", "first/modes_out.fits", "modes_in.fits",
                                                  "modes_out.fits", "summary.json"));
        for (const char* file : MODE_FILES) {
            const Recording whole = LoadRecording(m_folder / ("plain" + number) / file);
            const Recording first = LoadRecording(m_folder / ("saved" + number) / "first" / file);
            const Recording rest = LoadRecording(m_folder / ("saved" + number) / file);
            ASSERT_EQ(first.rows, 100) << file;
            ASSERT_EQ(rest.rows, 199) << file;
            const auto expect_part = [&](const Recording& part, std::ptrdiff_t begin) {
                const auto stamps = whole.timestamps.begin() + begin;
                const auto values = whole.values.begin() + begin * whole.cols;
                EXPECT_TRUE(std::equal(part.timestamps.begin(), part.timestamps.end(), stamps)) << file;
                EXPECT_TRUE(std::equal(part.values.begin(), part.values.end(), values)) << file;
            };
            expect_part(first, 0);
            expect_part(rest, 101);
        }
    }
}

TEST_F(ScriptedRunTest, ASaveOfTheNewestSamplesHoldsThemInTheOrderOfTime)
{
    m_options.record.last_s = 0.1;
    const FinishedRun run = Run("run", "[[at]]\ntime = 0.25\nsave = \"first\"\n");
    EXPECT_THAT(Cycles(run), ElementsAre(125));
    const auto expect_newest = [](const Recording& recording, int last) {
        ASSERT_EQ(recording.rows, 50);
        for (std::size_t row = 0; row < 50; ++row) {
            ASSERT_EQ(recording.timestamps[row], static_cast<double>(last - 49 + static_cast<int>(row)) / 500.0);
        }
    };
    for (const char* file : MODE_FILES) {
        expect_newest(LoadRecording(m_folder / "run" / "first" / file), 124);
        expect_newest(LoadRecording(m_folder / "run" / file), 299);
    }
}

TEST_F(ScriptedRunTest, ASaveBeforeTheLastCycleLeavesNothingForTheEnd)
{
    const FinishedRun run = Run("run", "[[at]]\ntime = 0.598\nsave = \"all\"\n");
    EXPECT_THAT(Cycles(run), ElementsAre(299));
    EXPECT_EQ(LoadRecording(m_folder / "run" / "all" / "modes_in.fits").rows, 299);
    EXPECT_THAT(run.report.files, ElementsAre("all/modes_in.fits", "all/modes_out.fits", "summary.json"));
    EXPECT_FALSE(std::filesystem::exists(m_folder / "run" / "modes_in.fits"));
    EXPECT_EQ(run.status, EXIT_OK) << run.text;
}

TEST_F(ScriptedRunTest, WhatIsDueAfterAnInterruptionIsNeitherDoneNorAProblem)
{
    m_options.duration_s = 200.0;
    m_options.output = m_folder / "run";
    m_options.script = m_folder / "script.toml";
    test::WriteBytes(m_options.script,
                     "[[at]]\ntime = 199\nsave = \"first\"\n[[at]]\ntime = 199.5\ngains = { kp = 0.1 }\n");
    test::QuietLog();
    std::ostringstream out;
    Controller controller(m_options, out);
    controller.Configure();
    controller.Start();
    controller.Wait([] { return true; });
    controller.Stop();
    controller.Save();
    EXPECT_EQ(controller.GetExitStatus(), EXIT_INTERRUPTED);
    EXPECT_THAT(controller.GetReport().problems, IsEmpty());
    EXPECT_THAT(controller.GetReport().script, IsEmpty());
    EXPECT_FALSE(std::filesystem::exists(m_folder / "run" / "first"));
}

}  // namespace
}  // namespace lumo::ravelctl
