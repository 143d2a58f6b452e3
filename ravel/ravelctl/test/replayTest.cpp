#include "error.hpp"
#include "makeModulation.hpp"
#include "replay.hpp"
#include "support/quietLog.hpp"
#include "support/recording.hpp"
#include "support/runInProcess.hpp"
#include "support/textFile.hpp"
#include "support/thrown.hpp"

#include <lumo/ravelcore/taskEdc.hpp>
#include <lumo/ravelcore/utils.hpp>

#include <fmt/core.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <memory>
#include <sstream>

// Whole runs, and what their channels give when they are computed once more.

namespace lumo::ravelctl {
namespace {

namespace fs = std::filesystem;
using test::LoadRecording;
using test::Recording;
using testing::HasSubstr;
using testing::StartsWith;

constexpr const char* ALL_EQUAL = "replayed 300 cycles of 20 modes: every output equal to the last bit\n";
constexpr const char* REPRODUCED = "verdict                 reproduced\n";
constexpr int KP = 0;
constexpr int FREQ = 9;

struct Replayed
{
    int status = -1;
    std::string text;
    std::string err;
};

Replayed Replay(const ReplayOptions& options)
{
    std::ostringstream out;
    std::ostringstream err;
    const int status = ReplayRun(options, out, err);
    return {status, out.str(), err.str()};
}

std::uint32_t Bits(float value)
{
    return std::bit_cast<std::uint32_t>(value);
}

/// Gains of all channels from a cycle on.
using Gains = std::pair<int, std::vector<float>>;

/// The outputs of one control task, row after row, that measures the recorded modes: sensor m is mode m, and so is
/// actuator m.
std::vector<float> OutputsOfATask(const fs::path& run, int open_cycles, const std::vector<Gains>& gains)
{
    const Recording in = LoadRecording(run / "modes_in.fits");
    const Recording ref = LoadRecording(run / "modes_ref.fits");
    const Recording arw = LoadRecording(run / "modes_arw.fits");
    const auto size = static_cast<std::size_t>(in.cols);
    std::vector<float> identity(size * size, 0.0F);
    for (std::size_t i = 0; i < size; ++i) {
        identity[i * size + i] = 1.0F;
    }
    std::vector<float> es_meas(size);
    ravelcore::Recorder rec_in("in");
    ravelcore::Recorder rec_out("out");
    ravelcore::TaskEdc task(0, in.cols, in.cols, in.cols, rec_in, rec_out, in.rows);
    task.Initialize();
    task.SetP2EdcMatrix(identity);
    task.SetPact2ModesMatrix(identity);
    task.m_es_meas = es_meas.data();
    rec_out.Start(false, 0);
    for (int cycle = 0; cycle < in.rows; ++cycle) {
        for (const auto& [begin, params] : gains) {
            if (begin == cycle) {
                const std::vector<ravelcore::PidFilterContext> before = task.m_pid_filters;
                task.SetPidFilters(params);
                for (std::size_t i = 0; i < size; ++i) {
                    task.m_pid_filters[i].ui = before[i].ui;
                    task.m_pid_filters[i].ud = before[i].ud;
                    task.m_pid_filters[i].last_meas = before[i].last_meas;
                    task.m_pid_filters[i].internal1 = before[i].internal1;
                    task.m_pid_filters[i].internal2 = before[i].internal2;
                }
            }
        }
        for (std::size_t i = 0; i < size; ++i) {
            es_meas[i] = in.At(cycle, static_cast<int>(i));
            task.m_modes_ref[i] = ref.At(cycle, static_cast<int>(i));
            task.m_pact_in[i] = arw.At(cycle, static_cast<int>(i));
        }
        task.m_pid_enabled = task.m_filter_enabled = cycle >= open_cycles;
        task.Execute(0.0, cycle == open_cycles);
    }
    return rec_out.GetSamples();
}

std::vector<float> LoadGains(const fs::path& file)
{
    return LoadRecording(file).values;
}

/// `gains` with one parameter of the modes `first` to `last` replaced.
std::vector<float> WithParam(std::vector<float> gains, int param, float value, std::size_t first, std::size_t last)
{
    for (std::size_t mode = first; mode <= last; ++mode) {
        gains.at(mode * ravelcore::NUM_PID_FILTER_PARAMS + static_cast<std::size_t>(param)) = value;
    }
    return gains;
}

class ReplayTest : public testing::Test
{
protected:
    ReplayTest() { test::QuietLog(); }

    /// A run that every test may read.
    static void SetUpTestSuite()
    {
        s_shared = std::make_unique<test::TestFolder>();
        RunOptions options = test::ShortRun(*s_shared, "plain");
        options.workers = 2;
        test::RunInProcess(options);
    }

    static void TearDownTestSuite() { s_shared.reset(); }

    static fs::path PlainRun() { return *s_shared / "plain"; }

    /// One of its own, to be replayed.
    void CopyPlainRun() const { fs::copy(PlainRun(), m_replay.run); }

    void Script(const std::string& text)
    {
        m_run.script = m_folder / "script.toml";
        test::WriteBytes(m_run.script, text);
    }

    /// Of how many values not every bit is as expected.
    static int CountDifferences(const Recording& recording, const std::vector<float>& expected)
    {
        EXPECT_EQ(recording.values.size(), expected.size());
        int count = 0;
        for (std::size_t i = 0; i < expected.size(); ++i) {
            count += Bits(recording.values.at(i)) == Bits(expected[i]) ? 0 : 1;
        }
        return count;
    }

    const test::TestFolder m_folder;
    RunOptions m_run = test::ShortRun(m_folder, "run");  // 300 cycles, 30 of them open
    ReplayOptions m_replay{m_folder / "run", {}, "", {}, false};

private:
    static inline std::unique_ptr<test::TestFolder> s_shared;
};

TEST_F(ReplayTest, EveryOutputOfARunIsComputedAgainToTheLastBitHoweverManyWorkersItHad)
{
    test::RunInProcess(m_run);
    for (const fs::path& run : {m_folder / "run", PlainRun()}) {  // one worker, two
        m_replay.run = run;
        const Replayed replayed = Replay(m_replay);
        EXPECT_EQ(replayed.text, std::string(ALL_EQUAL) + REPRODUCED);
        EXPECT_EQ(replayed.status, EXIT_OK);
    }
}

TEST_F(ReplayTest, AnInjectionIsInTheReferences)
{
    ModulationOptions noise;
    noise.shape = ModulationShape::Noise;
    noise.output = m_folder / "noise.fits";
    noise.modes = 20;
    noise.on = "3,5-9";
    noise.duration_s = 0.2;
    std::ostringstream out;
    MakeModulationFile(noise, out);
    m_run.workers = 2;
    m_run.inject.file = noise.output;
    test::RunInProcess(m_run);
    const Recording ref = LoadRecording(m_folder / "run" / "modes_ref.fits");
    EXPECT_NE(ref.At(150, 5), 0.0F);
    EXPECT_EQ(ref.At(150, 4), 0.0F);
    const Replayed replayed = Replay(m_replay);
    EXPECT_EQ(replayed.text, std::string(ALL_EQUAL) + REPRODUCED);
    EXPECT_EQ(replayed.status, EXIT_OK);
}

TEST_F(ReplayTest, ActuatorsThatFallShortAreInTheAntiWindupInput)
{
    m_run.tones = {{0, 60.0, 200.0}, {1, 60.0, 200.0}};
    const test::FinishedRun run = test::RunInProcess(m_run);
    EXPECT_GT(run.report.limited_commands, 0);
    const Recording arw = LoadRecording(m_folder / "run" / "modes_arw.fits");
    EXPECT_GT(std::count_if(arw.values.begin(), arw.values.end(), [](float value) { return value != 0.0F; }), 100);
    EXPECT_EQ(Replay(m_replay).text, std::string(ALL_EQUAL) + REPRODUCED);
}

TEST_F(ReplayTest, ChangesOfAScriptAreFollowedFromTheirCyclesOn)
{
    Script(R"([[at]]
time = 0.02
gains = { modes = "0-4", kp = 0.2 }
[[at]]
time = 0.2
gains = { modes = "0-12", kp = 0.1, kd = 0.002, freq = 50.0 }
references = { modes = 4, value = 0.05 }
[[at]]
time = 0.3
pdc = { modes = 3, value = 0.01 }
[[at]]
time = 0.36
gains = { file = "missing.fits" }
[[at]]
time = 0.4
gains = { ki = 20.0 }
fdc = { modes = 7, value = -0.02 }
)");
    for (const int workers : {1, 2}) {
        m_run.workers = workers;
        m_run.output = m_replay.run = m_folder / std::to_string(workers);
        const test::FinishedRun run = test::RunInProcess(m_run);
        ASSERT_EQ(run.report.gains.size(), 4U) << "those at the beginning and those of each step that was not refused";
        EXPECT_EQ(run.report.gains[1].name, "gains-10.fits");
        EXPECT_EQ(run.report.gains[2].before_cycle, 100);
        EXPECT_EQ(run.report.gains[3].name, "gains-200.fits");
        const Replayed replayed = Replay(m_replay);
        EXPECT_EQ(replayed.text, std::string(ALL_EQUAL) + REPRODUCED);
        EXPECT_EQ(replayed.status, EXIT_OK);
    }
}

TEST_F(ReplayTest, TheSavedGainsAreAScriptsGainsFile)
{
    Script("[[at]]\ntime = 0.2\ngains = { file = \"" + (PlainRun() / "gains.fits").string() + "\" }\n");
    m_run.workers = 2;
    const test::FinishedRun run = test::RunInProcess(m_run);
    EXPECT_EQ(run.status, EXIT_OK) << run.text;
    for (const char* file : {"modes_in.fits", "modes_out.fits", "gains.fits"}) {
        EXPECT_TRUE(test::ReadBytes(PlainRun() / file) == test::ReadBytes(m_run.output / file)) << file;
    }
    EXPECT_EQ(LoadGains(m_run.output / "gains-100.fits"), LoadGains(PlainRun() / "gains.fits"));
}

TEST_F(ReplayTest, AChangedBitIsFoundWithItsCycleAndMode)
{
    CopyPlainRun();
    const fs::path file = m_folder / "run" / "modes_out.fits";
    Recording recording = LoadRecording(file);
    float& value = recording.values.at(123 * 20 + 7);
    const float before = value;
    value = std::bit_cast<float>(Bits(value) ^ 1U);
    ravelcore::SaveMatrixWithTimestamps(file.string(), "modes_out", 300, 20, recording.values, recording.timestamps);
    const Replayed replayed = Replay(m_replay);
    EXPECT_EQ(replayed.status, EXIT_FAILED);
    const double difference = std::abs(static_cast<double>(before) - static_cast<double>(value));
    EXPECT_EQ(replayed.text,
              fmt::format("replayed 300 cycles of 20 modes: 1 of 6000 outputs (modal coordinates) differ\n"
                          "first difference: cycle 123, mode 7: recorded {} um, replayed {} um\n"
                          "largest difference: {:.6g} um, cycle 123, mode 7\n"
                          "verdict                 NOT reproduced\n",
                          value, before, difference));
    const std::string problem = fmt::format(
        "ravelctl: {}: 1 of 6000 outputs are not the recorded ones: files of the run were changed, or another build of "
        "ravelctl made it; replay it with that build, or run it again\n",
        m_run.output.string());
    EXPECT_EQ(replayed.err, problem);
    m_replay.quiet = true;
    const Replayed quiet = Replay(m_replay);
    EXPECT_EQ(quiet.status, EXIT_FAILED);
    EXPECT_EQ(quiet.text, "");
    EXPECT_EQ(quiet.err, problem);
}

TEST_F(ReplayTest, TheFirstDifferenceNeedNotBeTheLargest)
{
    CopyPlainRun();
    const fs::path file = m_folder / "run" / "modes_out.fits";
    Recording recording = LoadRecording(file);
    recording.values.at(5 * 20 + 19) += 1.0F;
    recording.values.at(299 * 20 + 2) -= 9.0F;
    recording.values.at(200 * 20 + 1) += 3.0F;
    ravelcore::SaveMatrixWithTimestamps(file.string(), "modes_out", 300, 20, recording.values, recording.timestamps);
    const Replayed replayed = Replay(m_replay);
    EXPECT_EQ(replayed.status, EXIT_FAILED);
    EXPECT_THAT(replayed.text,
                HasSubstr("3 of 6000 outputs (modal coordinates) differ\nfirst difference: cycle 5, mode 19: "));
    EXPECT_THAT(replayed.text, HasSubstr(" um, cycle 299, mode 2\n"));
}

TEST_F(ReplayTest, OtherGainsThanTheSavedOnesDoNotGiveTheRecordedOutputs)
{
    CopyPlainRun();
    const fs::path file = m_folder / "run" / "gains.fits";
    std::vector<float> gains = LoadGains(file);
    gains[4 * 10 + KP] *= 1.001F;
    ravelcore::SaveMatrix(file.string(), "gains", 1, 200, gains);
    const Replayed replayed = Replay(m_replay);
    EXPECT_EQ(replayed.status, EXIT_FAILED);
    EXPECT_THAT(replayed.text, testing::ContainsRegex("\nfirst difference: cycle 3[01], mode 4: "));
}

TEST_F(ReplayTest, WithOtherGainsTheOutputsAreThoseOfAControlTaskWithThem)
{
    m_replay.run = PlainRun();
    m_replay.set = {{KP, 0.5F}, {FREQ, 45.0F}};
    m_replay.modes = "3-12";
    m_replay.output = m_folder / "other.fits";
    const Replayed replayed = Replay(m_replay);
    EXPECT_EQ(replayed.status, EXIT_OK);
    EXPECT_THAT(replayed.text,
                StartsWith(std::string(ALL_EQUAL) +
                           "with kp = 0.5, freq = 45 for modes 3-12, what is measured being as recorded:\n"
                           "outputs (modal coordinates) with the loop closed: "));
    const std::vector<float> gains = LoadGains(m_replay.run / "gains.fits");
    const std::vector<float> expected =
        OutputsOfATask(m_replay.run, 30, {{0, WithParam(WithParam(gains, KP, 0.5F, 3, 12), FREQ, 45.0F, 3, 12)}});
    const Recording outputs = LoadRecording(m_replay.output);
    const Recording recorded = LoadRecording(m_replay.run / "modes_out.fits");
    EXPECT_EQ(outputs.rows, 300);
    EXPECT_EQ(outputs.timestamps, recorded.timestamps);
    EXPECT_EQ(CountDifferences(outputs, expected), 0);
    EXPECT_EQ(CountDifferences(recorded, OutputsOfATask(m_replay.run, 30, {{0, gains}})), 0);
    double largest = 0.0;
    for (int row = 0; row < 300; ++row) {
        for (int mode = 0; mode < 20; ++mode) {
            const double difference = std::abs(static_cast<double>(outputs.At(row, mode)) - recorded.At(row, mode));
            largest = std::max(largest, difference);
            if (row < 30 || mode < 3 || mode > 12) {
                ASSERT_EQ(difference, 0.0) << row << ", " << mode;
            }
        }
    }
    EXPECT_THAT(replayed.text, testing::ContainsRegex(": [0-9.]+ um rms as recorded, [0-9.]+ um rms then\n"));
    EXPECT_THAT(replayed.text, HasSubstr(fmt::format("\nlargest difference: {:.6g} um, cycle ", largest)));
}

TEST_F(ReplayTest, WhatIsSetStaysSetWhenTheScriptChangesGains)
{
    Script("[[at]]\ntime = 0.2\ngains = { kp = 0.1, ki = 20.0 }\n");
    test::RunInProcess(m_run);
    m_replay.set = {{KP, 0.5F}};
    m_replay.output = m_folder / "other.fits.gz";
    const Replayed replayed = Replay(m_replay);
    EXPECT_EQ(replayed.status, EXIT_OK);
    EXPECT_THAT(replayed.text, HasSubstr("with kp = 0.5 for every mode, "));
    const std::vector<float> first = WithParam(LoadGains(m_replay.run / "gains.fits"), KP, 0.5F, 0, 19);
    const std::vector<float> second = WithParam(LoadGains(m_replay.run / "gains-100.fits"), KP, 0.5F, 0, 19);
    EXPECT_NE(first, second);
    EXPECT_EQ(
        CountDifferences(LoadRecording(m_replay.output), OutputsOfATask(m_replay.run, 30, {{0, first}, {100, second}})),
        0);
}

TEST_F(ReplayTest, WithTheSameGainsNoOutputChanges)
{
    m_replay.run = PlainRun();
    const std::vector<float> gains = LoadGains(m_replay.run / "gains.fits");
    m_replay.set = {{KP, gains[2 * 10 + KP]}};
    m_replay.modes = "2";
    const Replayed replayed = Replay(m_replay);
    EXPECT_EQ(replayed.status, EXIT_OK);
    EXPECT_THAT(replayed.text, testing::EndsWith(std::string("\nno output changes\n") + REPRODUCED));
}

TEST_F(ReplayTest, OutputsThatWouldNotBeFiniteAreCounted)
{
    m_replay.run = PlainRun();
    m_replay.set = {{KP, 3.0e38F}};
    const Replayed replayed = Replay(m_replay);
    EXPECT_THAT(replayed.text, HasSubstr("\noutputs that are not finite: "));
    EXPECT_EQ(replayed.status, EXIT_OK);
}

TEST_F(ReplayTest, WithoutOtherGainsTheOutputFileHoldsTheRecordedOutputs)
{
    CopyPlainRun();
    m_replay.output = m_folder / "same.fits";
    const Replayed replayed = Replay(m_replay);
    EXPECT_THAT(replayed.text, StartsWith(std::string(ALL_EQUAL) + m_replay.output.string() + ": 300 rows of 20 "));
    EXPECT_TRUE(test::ReadBytes(m_replay.output) == test::ReadBytes(m_replay.run / "modes_out.fits"));
    EXPECT_THAT(test::ThrownLine<InputError>([&] { Replay(m_replay); }), HasSubstr("same.fits exists already"));
    m_replay.overwrite = true;
    EXPECT_EQ(Replay(m_replay).status, EXIT_OK);
    m_replay.output = m_replay.run / "modes_out.fits";
    EXPECT_EQ(test::ThrownLine<InputError>([&] { Replay(m_replay); }),
              "--output: " + m_replay.output.string() + " is a recording of the run; choose another name");
}

TEST_F(ReplayTest, ModesThatTheRunDoesNotHaveAreRefused)
{
    m_replay.run = PlainRun();
    m_replay.set = {{KP, 0.5F}};
    m_replay.modes = "20";
    EXPECT_THAT(test::ThrownLine<InputError>([&] { Replay(m_replay); }), StartsWith("--modes: "));
}

TEST_F(ReplayTest, ALimitThatIsWrongOnlyBesideTheRunsOtherOneIsRefused)
{
    constexpr int ULOW = 7;
    m_replay.run = PlainRun();
    m_replay.set = {{ULOW, 1.0e9F}};
    m_replay.modes = "3";
    EXPECT_THAT(test::ThrownLine<InputError>([&] { Replay(m_replay); }),
                StartsWith("--set: mode 3: ulow: expected at most uhigh = "));
}

TEST_F(ReplayTest, ARecordingThatASaveBeganAnewIsRefusedWithTheRemedy)
{
    Script("[[at]]\ntime = 0.4\nsave = \"first\"\n");
    test::RunInProcess(m_run);
    EXPECT_EQ(test::ThrownLine<InputError>([&] { Replay(m_replay); }),
              fmt::format("{}: expected each of the run's 300 cycles but it has 99 rows: a save of the script began it "
                          "anew; repeat the run without that save ({})",
                          (m_replay.run / "modes_in.fits").string(), (m_replay.run / "config.toml").string()));
}

}  // namespace
}  // namespace lumo::ravelctl
