#include "support/allocationGuard.hpp"
#include "support/assertRecorder.hpp"
#include "support/fitsBytes.hpp"
#include "support/logCapture.hpp"
#include "support/logHook.hpp"
#include "support/temporaryDirectory.hpp"
#include "support/thrown.hpp"

#include <brisk/logger.hpp>
#include <lumo/ravelcore/modulation.hpp>
#include <lumo/ravelcore/recorder.hpp>
#include <lumo/ravelcore/utils.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cstdint>
#include <functional>
#include <limits>
#include <ostream>
#include <string>
#include <type_traits>
#include <vector>

namespace lumo::ravelcore {
namespace {

using test::AllocationGuard;
using test::AssertRecorder;
using test::ExpectException;
using test::LogCapture;
using test::LogHook;
using test::ReadBytes;
using test::TemporaryDirectory;
using test::Thrown;
using test::WriteBytes;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;
using ::testing::SizeIs;

constexpr int UNWRITTEN = -77;
constexpr float IDLE = -0.5F;

/// `num_samples` samples of three floats: sample k is 10 k, 10 k + 1, 10 k + 2.
std::vector<float> Samples(int num_samples)
{
    std::vector<float> samples;
    for (int k = 0; k < num_samples; ++k) {
        for (int i = 0; i < 3; ++i) {
            samples.push_back(static_cast<float>(10 * k + i));
        }
    }
    return samples;
}

/// What one call gives: the number, and the sample that begins where it points.
struct Step
{
    int number = UNWRITTEN;
    std::vector<float> sample;

    bool operator==(const Step&) const = default;
};

std::ostream& operator<<(std::ostream& stream, const Step& step)
{
    return stream << "number " << step.number << " " << ::testing::PrintToString(step.sample);
}

Step Next(Modulation& sut)
{
    Step step;
    const float* const sample = sut.GetNextSample(step.number);
    step.sample.assign(sample, sample + sut.GetSampleSize());
    return step;
}

/// The numbers of the next calls; each sample must be the one of its number.
std::vector<int> NextNumbers(Modulation& sut, int count)
{
    std::vector<int> numbers;
    for (int i = 0; i < count; ++i) {
        const Step step = Next(sut);
        const auto base = static_cast<float>(10 * (step.number - 1));
        EXPECT_THAT(step.sample, ElementsAre(base, base + 1.0F, base + 2.0F)) << "number " << step.number;
        numbers.push_back(step.number);
    }
    return numbers;
}

const Step IDLE_STEP = {UNWRITTEN, {IDLE, IDLE, IDLE}};

/// A modulation of three floats a sample; settings of the operator's logger are as at the start of the program.
class ModulationTest : public ::testing::Test
{
protected:
    ~ModulationTest() override
    {
        brisk::Logger::SetReportingLevel(brisk::Logger::LEVEL_WARNING);
        brisk::Logger::SetConsoleOutput(true);
        brisk::Logger::SetRemoteOutput(false);
    }

    void Play(int num_samples, bool loopback = false, int decimation = 0)
    {
        m_sut.Set(Samples(num_samples));
        m_sut.Start(loopback, decimation);
    }

    /// The DEBUG lines that `action` writes.
    template <typename Action>
    static std::vector<std::string> DebugLines(Action&& action)
    {
        const LogCapture log("ravelcore", log4cplus::DEBUG_LOG_LEVEL);
        action();
        for (const test::LogEvent& event : log.Events()) {
            EXPECT_EQ(event.logger, "ravelcore");
        }
        return log.Messages(log4cplus::DEBUG_LOG_LEVEL);
    }

    /// What `action` writes to the operator.
    template <typename Action>
    static std::string Output(Action&& action)
    {
        testing::internal::CaptureStdout();
        action();
        return testing::internal::GetCapturedStdout();
    }

    /// Expects `action` to be refused by brisk::Assert in `function`, and nothing to have changed.
    void ExpectRefusedWhilePlaying(const std::string& function, const std::function<void()>& action)
    {
        Play(3);
        EXPECT_EQ(Next(m_sut).number, 1);
        const AssertRecorder asserts;
        EXPECT_THAT(DebugLines(action), IsEmpty());
        ASSERT_THAT(asserts.GetFailures(), SizeIs(1));
        EXPECT_EQ(asserts.GetFailures()[0].file, "ravel/ravelcore/src/modulation.cpp");
        EXPECT_EQ(asserts.GetFailures()[0].function, function);
        EXPECT_GT(asserts.GetFailures()[0].line, 0);
        EXPECT_TRUE(m_sut.IsPlaying());
        EXPECT_EQ(m_sut.GetNumSamples(), 3);
        EXPECT_EQ(m_sut.GetFileName(), "");
        EXPECT_THAT(NextNumbers(m_sut, 2), ElementsAre(2, 3));
    }

    TemporaryDirectory m_directory;
    const std::string m_file = m_directory / "tone.fits";
    Modulation m_sut{"tone", 3, IDLE};
};

// ---- construction ------------------------------------------------------------------------------------------------

static_assert(std::has_virtual_destructor_v<Modulation>);
static_assert(!std::is_copy_constructible_v<Modulation> && !std::is_copy_assignable_v<Modulation>);

TEST_F(ModulationTest, NewModulationHoldsNothing)
{
    EXPECT_EQ(m_sut.GetName(), "tone");
    EXPECT_EQ(m_sut.GetFileName(), "");
    EXPECT_EQ(m_sut.GetNumSamples(), 0);
    EXPECT_EQ(m_sut.GetSampleSize(), 3);
    EXPECT_FALSE(m_sut.IsPlaying());
}

TEST_F(ModulationTest, NewModulationReturnsItsIdleSampleAndLeavesTheNumberUnchanged)
{
    EXPECT_EQ(Next(m_sut), IDLE_STEP);
    EXPECT_EQ(Next(m_sut), IDLE_STEP);
}

TEST_F(ModulationTest, IdleSampleHoldsTheVeryDefaultValueInEveryElement)
{
    Modulation sut("nan", 4788, std::bit_cast<float>(0x7FC01234U));
    int number = UNWRITTEN;
    const float* const sample = sut.GetNextSample(number);
    for (int i = 0; i < 4788; ++i) {
        ASSERT_EQ(std::bit_cast<std::uint32_t>(sample[i]), 0x7FC01234U);
    }
}

TEST_F(ModulationTest, SampleSizeBelowOneThrows)
{
    ExpectException(Thrown([] { Modulation("tone", 0, 0.0F); }), "Modulation tone initialized with sample size 0",
                    "Modulation", "modulation.cpp");
    ExpectException(Thrown([] { Modulation("", -12, 0.0F); }), "Modulation  initialized with sample size -12",
                    "Modulation", "modulation.cpp");
}

TEST_F(ModulationTest, EveryOperationButGetNextSampleBeginsWithItsTraceLine)
{
    brisk::Logger::SetConsoleOutput(false);
    const LogCapture log("ravelcore");
    EXPECT_THROW(Modulation("none", 0, 0.0F), brisk::Exception);
    {
        Modulation sut("tone", 1, 0.0F);
        int number = 0;
        sut.Save("");
        sut.Start(false, 0);
        sut.Set({1.0F});
        sut.Start(false, 0);
        sut.GetNextSample(number);
        sut.Stop();
        sut.GetNextSample(number);
        sut.GetName();
        sut.GetFileName();
        sut.GetNumSamples();
        sut.GetSampleSize();
        sut.IsPlaying();
    }
    std::vector<std::string> expected;
    for (const char* name : {"Modulation", "Modulation", "Save", "Start", "Set", "Start", "Stop", "GetName",
                             "GetFileName", "GetNumSamples", "GetSampleSize", "IsPlaying", "~Modulation"}) {
        expected.push_back("ravel/ravelcore/src/modulation\\.cpp " + std::string(name) + " [0-9]+");
    }
    const std::vector<test::LogEvent> seen = log.Events(log4cplus::TRACE_LOG_LEVEL);
    ASSERT_THAT(seen, SizeIs(expected.size()));
    for (std::size_t i = 0; i < seen.size(); ++i) {
        EXPECT_THAT(seen[i].message, MatchesRegex(expected[i]));
        EXPECT_EQ(seen[i].logger, "ravelcore");
    }
}

TEST_F(ModulationTest, LoadBeginsWithItsTraceLineAndHandsOverToLoadMatrix)
{
    SaveMatrix(m_file, "tone", 2, 3, Samples(2));
    const LogCapture log("ravelcore");
    m_sut.Load(m_file);
    const std::vector<std::string> lines = log.Messages(log4cplus::TRACE_LOG_LEVEL);
    ASSERT_GE(lines.size(), 2U);
    EXPECT_THAT(lines[0], MatchesRegex("ravel/ravelcore/src/modulation\\.cpp Load [0-9]+"));
    EXPECT_THAT(lines[1], MatchesRegex("ravel/ravelcore/src/utils\\.cpp LoadMatrix [0-9]+"));
}

// ---- Set ---------------------------------------------------------------------------------------------------------

TEST_F(ModulationTest, SetTakesTheSamplesAndSaysSo)
{
    EXPECT_THAT(DebugLines([&] { m_sut.Set(Samples(4)); }),
                ElementsAre("Set tone with 4 samples of 3 elements (loopback = 0)."));
    EXPECT_EQ(m_sut.GetNumSamples(), 4);
    EXPECT_FALSE(m_sut.IsPlaying());
    EXPECT_EQ(Next(m_sut), IDLE_STEP);
}

TEST_F(ModulationTest, SetSaysTheLoopbackOfTheLastStart)
{
    Play(1, true);
    m_sut.Stop();
    EXPECT_THAT(DebugLines([&] { m_sut.Set(Samples(2)); }),
                ElementsAre("Set tone with 2 samples of 3 elements (loopback = 1)."));
}

TEST_F(ModulationTest, TrailingPartialSampleIsNeverPlayed)
{
    std::vector<float> samples = Samples(3);
    samples.push_back(99.0F);
    EXPECT_THAT(DebugLines([&] { m_sut.Set(samples); }),
                ElementsAre("Set tone with 3 samples of 3 elements (loopback = 0)."));
    EXPECT_EQ(m_sut.GetNumSamples(), 3);
    m_sut.Start(true, 0);
    EXPECT_THAT(NextNumbers(m_sut, 7), ElementsAre(1, 2, 3, 1, 2, 3, 1));
}

TEST_F(ModulationTest, SetWithLessThanOneSampleLeavesNothingToPlay)
{
    m_sut.Set(Samples(3));
    EXPECT_THAT(DebugLines([&] {
                    m_sut.Set({1.0F, 2.0F});
                }),
                ElementsAre("Set tone with 0 samples of 3 elements (loopback = 0)."));
    EXPECT_EQ(m_sut.GetNumSamples(), 0);
    brisk::Logger::SetConsoleOutput(false);
    m_sut.Start(false, 0);
    EXPECT_FALSE(m_sut.IsPlaying());
}

TEST_F(ModulationTest, SetWithAnEmptyVectorOnlyForgetsTheNumberOfSamples)
{
    SaveMatrix(m_file, "tone", 3, 3, Samples(3));
    m_sut.Load(m_file);
    EXPECT_THAT(DebugLines([&] { m_sut.Set({}); }), IsEmpty());
    EXPECT_EQ(m_sut.GetNumSamples(), 0);
    EXPECT_EQ(m_sut.GetFileName(), m_file);
    EXPECT_EQ(Next(m_sut), IDLE_STEP);
}

TEST_F(ModulationTest, SetEmptiesTheFileName)
{
    SaveMatrix(m_file, "tone", 3, 3, Samples(3));
    m_sut.Load(m_file);
    m_sut.Set(Samples(1));
    EXPECT_EQ(m_sut.GetFileName(), "");
}

TEST_F(ModulationTest, SetCopiesTheSamples)
{
    std::vector<float> samples = Samples(2);
    m_sut.Set(samples);
    samples.assign(samples.size(), 77.0F);
    m_sut.Start(false, 0);
    EXPECT_THAT(NextNumbers(m_sut, 2), ElementsAre(1, 2));
}

TEST_F(ModulationTest, SetWhilePlayingIsRefused)
{
    ExpectRefusedWhilePlaying("Set", [&] { m_sut.Set({5.0F, 6.0F, 7.0F}); });
}

TEST_F(ModulationTest, SetWithAnEmptyVectorWhilePlayingIsRefused)
{
    ExpectRefusedWhilePlaying("Set", [&] { m_sut.Set({}); });
}

// ---- Load --------------------------------------------------------------------------------------------------------

TEST_F(ModulationTest, LoadTakesTheRowsOfTheFileAndSaysSo)
{
    SaveMatrix(m_file, "another name", 4, 3, Samples(4));
    const std::vector<std::string> lines = DebugLines([&] { m_sut.Load(m_file); });
    EXPECT_THAT(lines,
                ElementsAre("Loaded tone [4 x 3] from file: " + m_file,
                            "Loaded tone from file " + m_file + " with 4 samples of 3 elements (loopback = 0)."));
    EXPECT_EQ(m_sut.GetNumSamples(), 4);
    EXPECT_EQ(m_sut.GetFileName(), m_file);
    m_sut.Start(false, 0);
    EXPECT_THAT(NextNumbers(m_sut, 4), ElementsAre(1, 2, 3, 4));
}

TEST_F(ModulationTest, LoadSaysTheLoopbackOfTheLastStart)
{
    SaveMatrix(m_file, "tone", 1, 3, Samples(1));
    Play(1, true);
    m_sut.Stop();
    EXPECT_THAT(DebugLines([&] { m_sut.Load(m_file); }).back(),
                "Loaded tone from file " + m_file + " with 1 samples of 3 elements (loopback = 1).");
}

TEST_F(ModulationTest, LoadReplacesWhatWasSet)
{
    SaveMatrix(m_file, "tone", 2, 3, Samples(2));
    m_sut.Set(std::vector<float>(90, 5.0F));
    m_sut.Load(m_file);
    m_sut.Start(true, 0);
    EXPECT_THAT(NextNumbers(m_sut, 3), ElementsAre(1, 2, 1));
}

TEST_F(ModulationTest, LoadTakesTheSamplesOfARecording)
{
    Recorder recorder("modes");
    recorder.Init(5, 3);
    recorder.Start(false, 0);
    recorder.AddSample(0.5, &Samples(2)[0]);
    recorder.AddSample(1.0, &Samples(2)[3]);
    recorder.Save(m_file);
    m_sut.Load(m_file);
    m_sut.Start(false, 0);
    EXPECT_EQ(m_sut.GetNumSamples(), 2);
    EXPECT_THAT(NextNumbers(m_sut, 2), ElementsAre(1, 2));
}

TEST_F(ModulationTest, LoadOfAnotherColumnCountThrowsAndLeavesNumberAndFileName)
{
    const std::string good = m_directory / "good.fits";
    SaveMatrix(good, "tone", 2, 3, Samples(2));
    SaveMatrix(m_file, "tone", 3, 5, std::vector<float>(15, 1.0F));
    m_sut.Load(good);
    std::vector<std::string> lines;
    ExpectException(Thrown([&] {
                        lines = DebugLines([&] { EXPECT_THROW(m_sut.Load(m_file), brisk::Exception); });
                        m_sut.Load(m_file);
                    }),
                    "In tone while loading " + m_file + " expecting 3 elements per sample but read 5", "Load",
                    "modulation.cpp");
    EXPECT_THAT(lines, ElementsAre("Loaded tone [3 x 5] from file: " + m_file)) << "that is LoadMatrix's";
    EXPECT_EQ(m_sut.GetNumSamples(), 2);
    EXPECT_EQ(m_sut.GetFileName(), good);
    EXPECT_FALSE(m_sut.IsPlaying());
}

TEST_F(ModulationTest, LoadOfFewerColumnsThrowsTheSameMessage)
{
    SaveMatrix(m_file, "tone", 3, 1, Samples(1));
    ExpectException(Thrown([&] { m_sut.Load(m_file); }),
                    "In tone while loading " + m_file + " expecting 3 elements per sample but read 1", "Load",
                    "modulation.cpp");
    EXPECT_EQ(m_sut.GetNumSamples(), 0);
}

TEST_F(ModulationTest, LoadOfAnotherColumnCountLeavesTheFilesDataInTheBuffer)
{
    SaveMatrix(m_file, "tone", 2, 5, std::vector<float>{0, 1, 2, 3, 4, 5, 6, 7, 8, 9});
    m_sut.Set(std::vector<float>(9, 77.0F));
    EXPECT_THROW(m_sut.Load(m_file), brisk::Exception);
    m_sut.Start(false, 0);
    EXPECT_THAT(Next(m_sut).sample, ElementsAre(0.0F, 1.0F, 2.0F));
    EXPECT_THAT(Next(m_sut).sample, ElementsAre(3.0F, 4.0F, 5.0F));
}

TEST_F(ModulationTest, LoadPassesOnWhatLoadMatrixThrows)
{
    SaveMatrix(m_file, "tone", 2, 3, Samples(2));
    m_sut.Load(m_file);
    ExpectException(Thrown([&] { m_sut.Load("no such file"); }), "Not able to find file <no such file>.", "LoadMatrix",
                    "utils.cpp");
    EXPECT_EQ(m_sut.GetNumSamples(), 2);
    EXPECT_EQ(m_sut.GetFileName(), m_file);
}

TEST_F(ModulationTest, SetMakesAModulationPlayableAgainAfterAFailedLoad)
{
    SaveMatrix(m_file, "tone", 3, 5, std::vector<float>(15, 1.0F));
    EXPECT_THROW(m_sut.Load(m_file), brisk::Exception);
    Play(3);
    EXPECT_THAT(NextNumbers(m_sut, 3), ElementsAre(1, 2, 3));
}

TEST_F(ModulationTest, LoadWithAnEmptyNameChangesNothing)
{
    SaveMatrix(m_file, "tone", 2, 3, Samples(2));
    m_sut.Load(m_file);
    EXPECT_THAT(DebugLines([&] { m_sut.Load(""); }), ElementsAre("Empty filename, skipped loading of tone matrix."));
    EXPECT_EQ(m_sut.GetNumSamples(), 2);
    EXPECT_EQ(m_sut.GetFileName(), m_file);
    m_sut.Start(false, 0);
    EXPECT_THAT(NextNumbers(m_sut, 2), ElementsAre(1, 2));
}

TEST_F(ModulationTest, LoadWhilePlayingIsRefused)
{
    SaveMatrix(m_file, "tone", 1, 3, std::vector<float>{5.0F, 6.0F, 7.0F});
    ExpectRefusedWhilePlaying("Load", [&] { m_sut.Load(m_file); });
}

// ---- Save --------------------------------------------------------------------------------------------------------

TEST_F(ModulationTest, SaveWritesTheSamplesUnderTheModulationsNameAndSaysSo)
{
    m_sut.Set(Samples(4));
    EXPECT_THAT(DebugLines([&] { m_sut.Save(m_file); }),
                ElementsAre("Saved tone [4 x 3] to file: " + m_file,
                            "Saved tone to file " + m_file + " with 4 samples of 3 elements."));
    int rows = -1;
    int cols = -1;
    std::vector<float> values;
    LoadMatrix(m_file, "tone", rows, cols, values);
    EXPECT_EQ(rows, 4);
    EXPECT_EQ(cols, 3);
    EXPECT_EQ(values, Samples(4));
    EXPECT_NE(ReadBytes(m_file).find("TTYPE1  = 'tone    '"), std::string::npos);
    EXPECT_THAT(m_directory.List(), ElementsAre("tone.fits"));
}

TEST_F(ModulationTest, SaveLeavesOutTheTrailingPartialSample)
{
    std::vector<float> samples = Samples(2);
    samples.push_back(99.0F);
    m_sut.Set(samples);
    m_sut.Save(m_file);
    Modulation back("back", 3, 0.0F);
    back.Load(m_file);
    EXPECT_EQ(back.GetNumSamples(), 2);
}

TEST_F(ModulationTest, SaveReplacesAnExistingFile)
{
    WriteBytes(m_file, "old");
    m_sut.Set(Samples(2));
    m_sut.Save(m_file);
    Modulation back("back", 3, 0.0F);
    back.Load(m_file);
    EXPECT_EQ(back.GetNumSamples(), 2);
}

TEST_F(ModulationTest, SaveLeavesTheFileNameAlone)
{
    m_sut.Set(Samples(2));
    m_sut.Save(m_file);
    EXPECT_EQ(m_sut.GetFileName(), "");
}

TEST_F(ModulationTest, SavePassesOnWhatSaveMatrixThrows)
{
    m_sut.Set(Samples(2));
    const LogCapture log("ravelcore", log4cplus::DEBUG_LOG_LEVEL);
    EXPECT_EQ(Thrown([&] { m_sut.Save(m_directory / "no such directory" + "/tone.fits"); }).GetFunctionName(),
              "SaveMatrix");
    EXPECT_THAT(log.Events(), IsEmpty());
}

TEST_F(ModulationTest, SaveWithoutSamplesWarnsTheOperatorAndLeavesTheFileAlone)
{
    WriteBytes(m_file, "as it was");
    std::vector<std::string> lines;
    const std::string output = Output([&] { lines = DebugLines([&] { m_sut.Save(m_file); }); });
    EXPECT_THAT(output, MatchesRegex("[^ ]+ WARNING ravel/ravelcore/src/modulation\\.cpp:[0-9]+ "
                                     "Modulation tone is empty, nothing to save\\.\n"));
    EXPECT_THAT(lines, IsEmpty());
    EXPECT_EQ(ReadBytes(m_file), "as it was");
    EXPECT_THAT(m_directory.List(), ElementsAre("tone.fits"));
}

TEST_F(ModulationTest, WarningsAreWrittenOnlyWhereTheOperatorsLoggerAdmitsThem)
{
    const auto warn = [&] {
        m_sut.Save(m_file);
        m_sut.Start(false, 0);
    };
    for (const int level : {-1, 0, 1, 2}) {
        for (const bool console : {false, true}) {
            for (const bool remote : {false, true}) {
                brisk::Logger::SetReportingLevel(level);
                brisk::Logger::SetConsoleOutput(console);
                brisk::Logger::SetRemoteOutput(remote);
                const std::string output = Output(warn);
                EXPECT_EQ(std::count(output.begin(), output.end(), '\n'), level >= 1 && console ? 2 : 0)
                    << level << console << remote;
            }
        }
    }
}

TEST_F(ModulationTest, SaveWhilePlayingIsRefused)
{
    ExpectRefusedWhilePlaying("Save", [&] { m_sut.Save(m_file); });
    EXPECT_THAT(m_directory.List(), IsEmpty());
}

// ---- Start, Stop -------------------------------------------------------------------------------------------------

TEST_F(ModulationTest, StartSaysWhatItPlays)
{
    SaveMatrix(m_file, "tone", 2, 3, Samples(2));
    m_sut.Set(Samples(2));
    EXPECT_THAT(DebugLines([&] { m_sut.Start(true, -4); }),
                ElementsAre("Started playing modulation tone using file  (loopback 1, decimation -4)."));
    m_sut.Stop();
    m_sut.Load(m_file);
    EXPECT_THAT(DebugLines([&] { m_sut.Start(false, 5); }),
                ElementsAre("Started playing modulation tone using file " + m_file + " (loopback 0, decimation 5)."));
    EXPECT_TRUE(m_sut.IsPlaying());
}

TEST_F(ModulationTest, StartPublishesTheNewStateLast)
{
    Play(3, false, 0);
    EXPECT_THAT(NextNumbers(m_sut, 2), ElementsAre(1, 2));
    std::vector<bool> playing;
    Step meanwhile;
    {
        const LogHook hook("ravelcore", log4cplus::DEBUG_LOG_LEVEL, [&](const std::string& /*message*/) {
            meanwhile.sample.resize(3);
            int number = UNWRITTEN;
            const float* const sample = m_sut.GetNextSample(number);
            meanwhile = {number, {sample, sample + 3}};
        });
        m_sut.Start(true, 2);
    }
    EXPECT_EQ(meanwhile, IDLE_STEP) << "until all is in place, the cycle finds nothing playing";
    EXPECT_THAT(NextNumbers(m_sut, 7), ElementsAre(1, 1, 2, 2, 3, 3, 1));
}

TEST_F(ModulationTest, StartWhilePlayingBeginsAgainWithTheFirstSample)
{
    Play(3, false, 2);
    EXPECT_THAT(NextNumbers(m_sut, 3), ElementsAre(1, 1, 2));
    m_sut.Start(false, 2);
    EXPECT_THAT(NextNumbers(m_sut, 4), ElementsAre(1, 1, 2, 2)) << "the calls counted so far are forgotten, too";
}

TEST_F(ModulationTest, StartOfAnEmptyModulationWarnsAndTheIdleSampleGoesOn)
{
    std::vector<std::string> lines;
    const std::string output = Output([&] { lines = DebugLines([&] { m_sut.Start(true, 3); }); });
    EXPECT_THAT(output, MatchesRegex("[^ ]+ WARNING ravel/ravelcore/src/modulation\\.cpp:[0-9]+ "
                                     "No samples to play, start modulation tone ignored!\n"));
    EXPECT_THAT(lines, IsEmpty());
    EXPECT_FALSE(m_sut.IsPlaying());
    EXPECT_EQ(Next(m_sut), IDLE_STEP);
    EXPECT_THAT(DebugLines([&] { m_sut.Set(Samples(1)); }),
                ElementsAre("Set tone with 1 samples of 3 elements (loopback = 0)."))
        << "the loopback of the start that was ignored";
}

TEST_F(ModulationTest, StopEndsPlaybackAndSaysWhere)
{
    SaveMatrix(m_file, "tone", 3, 3, Samples(3));
    m_sut.Load(m_file);
    m_sut.Start(true, 2);
    EXPECT_THAT(NextNumbers(m_sut, 5), ElementsAre(1, 1, 2, 2, 3));
    EXPECT_THAT(DebugLines([&] { m_sut.Stop(); }), ElementsAre("Stopped playing modulation tone using file " + m_file +
                                                               " at sample 2 (loopback 1, decimation 2)."));
    EXPECT_FALSE(m_sut.IsPlaying());
    EXPECT_EQ(Next(m_sut), IDLE_STEP);
}

TEST_F(ModulationTest, StopEndsPlaybackBeforeItSaysSo)
{
    Play(3);
    Step meanwhile{0, {}};
    {
        const LogHook hook("ravelcore", log4cplus::DEBUG_LOG_LEVEL, [&](const std::string& /*message*/) {
            int number = UNWRITTEN;
            const float* const sample = m_sut.GetNextSample(number);
            meanwhile = {number, {sample, sample + 3}};
        });
        m_sut.Stop();
    }
    EXPECT_EQ(meanwhile, IDLE_STEP);
}

TEST_F(ModulationTest, StopOfAModulationThatDoesNotPlayLeavesItAlone)
{
    EXPECT_THAT(DebugLines([&] { m_sut.Stop(); }), IsEmpty());
    Play(3);
    m_sut.Stop();
    EXPECT_THAT(DebugLines([&] { m_sut.Stop(); }), IsEmpty());
}

TEST_F(ModulationTest, StoppedModulationPlaysFromTheFirstSampleWhenItIsStartedAgain)
{
    Play(3);
    EXPECT_THAT(NextNumbers(m_sut, 2), ElementsAre(1, 2));
    m_sut.Stop();
    m_sut.Start(false, 0);
    EXPECT_THAT(NextNumbers(m_sut, 3), ElementsAre(1, 2, 3));
}

// ---- GetNextSample -----------------------------------------------------------------------------------------------

TEST_F(ModulationTest, PlayedToTheEndWithoutLoopbackItPointsToFloatElementNumberOfSamplesMinusOne)
{
    Play(3);
    int number = UNWRITTEN;
    const float* const buffer = m_sut.GetNextSample(number);
    EXPECT_EQ(number, 1);
    EXPECT_THAT(NextNumbers(m_sut, 2), ElementsAre(2, 3));
    for (int call = 4; call < 20; ++call) {
        number = UNWRITTEN;
        EXPECT_EQ(m_sut.GetNextSample(number), buffer + 2) << "counted in floats: the middle of the first sample";
        EXPECT_EQ(number, 3);
    }
    EXPECT_TRUE(m_sut.IsPlaying());
    EXPECT_THAT(Next(m_sut).sample, ElementsAre(2.0F, 10.0F, 11.0F));
    EXPECT_THAT(DebugLines([&] { m_sut.Stop(); }),
                ElementsAre("Stopped playing modulation tone using file  at sample 3 (loopback 0, decimation 0)."));
}

TEST_F(ModulationTest, OfSamplesOfOneFloatTheLastOneStays)
{
    Modulation sut("scalar", 1, IDLE);
    sut.Set({5.0F, 6.0F, 7.0F});
    sut.Start(false, 0);
    std::vector<float> played;
    for (int call = 0; call < 5; ++call) {
        played.push_back(Next(sut).sample[0]);
    }
    EXPECT_THAT(played, ElementsAre(5.0F, 6.0F, 7.0F, 7.0F, 7.0F));
}

TEST_F(ModulationTest, FinishedModulationStartsAgain)
{
    Play(2);
    EXPECT_THAT(NextNumbers(m_sut, 2), ElementsAre(1, 2));
    Next(m_sut);
    m_sut.Start(true, 0);
    EXPECT_THAT(NextNumbers(m_sut, 3), ElementsAre(1, 2, 1));
}

TEST_F(ModulationTest, LoopbackGoesOnWithTheFirstSample)
{
    Play(3, true);
    EXPECT_THAT(NextNumbers(m_sut, 8), ElementsAre(1, 2, 3, 1, 2, 3, 1, 2));
}

TEST_F(ModulationTest, DecimationTwoHandsOutEachSampleTwice)
{
    Play(3, false, 2);
    EXPECT_THAT(NextNumbers(m_sut, 6), ElementsAre(1, 1, 2, 2, 3, 3));
    EXPECT_EQ(Next(m_sut).sample[0], 2.0F) << "all handed out";
}

TEST_F(ModulationTest, DecimationGoesOnOverTheLoopback)
{
    Play(2, true, 3);
    EXPECT_THAT(NextNumbers(m_sut, 14), ElementsAre(1, 1, 1, 2, 2, 2, 1, 1, 1, 2, 2, 2, 1, 1));
}

TEST_F(ModulationTest, DecimationZeroAndOneMoveOnWithEveryCall)
{
    for (const int decimation : {0, 1}) {
        m_sut.Stop();
        Play(3, true, decimation);
        EXPECT_THAT(NextNumbers(m_sut, 5), ElementsAre(1, 2, 3, 1, 2)) << "decimation " << decimation;
    }
}

TEST_F(ModulationTest, NegativeDecimationMovesOnWithEveryCallWhereARecorderRecordsNothing)
{
    for (const int decimation : {-1, -2, std::numeric_limits<int>::min()}) {
        m_sut.Stop();
        Play(3, true, decimation);
        EXPECT_THAT(NextNumbers(m_sut, 5), ElementsAre(1, 2, 3, 1, 2)) << "decimation " << decimation;
        Recorder recorder("rec");
        recorder.Init(5, 3);
        recorder.Start(false, decimation);
        for (int call = 0; call < 5; ++call) {
            recorder.AddSample(call, Samples(1).data());
        }
        EXPECT_EQ(recorder.GetIndex(), -1) << "decimation " << decimation;
    }
}

TEST_F(ModulationTest, LargestDecimationStaysOnTheFirstSample)
{
    Play(2, false, std::numeric_limits<int>::max());
    EXPECT_THAT(NextNumbers(m_sut, 1000), Each(1));
}

TEST_F(ModulationTest, ReturnsPointersIntoItsStorage)
{
    Play(3, true);
    int number = 0;
    const float* const first = m_sut.GetNextSample(number);
    EXPECT_EQ(m_sut.GetNextSample(number), first + 3);
    EXPECT_EQ(m_sut.GetNextSample(number), first + 6);
    EXPECT_EQ(m_sut.GetNextSample(number), first);
    m_sut.Stop();
    const float* const idle = m_sut.GetNextSample(number);
    EXPECT_EQ(m_sut.GetNextSample(number), idle) << "the idle sample is built once";
}

TEST_F(ModulationTest, GetNextSampleNeverAllocatesAndNeverLogs)
{
    Modulation looping("looping", 4788, 0.0F);
    looping.Set(std::vector<float>(10 * 4788, 1.0F));
    looping.Start(true, 3);
    Play(10);
    Modulation idle("idle", 4788, 0.0F);
    const LogCapture log("");
    const std::string output = Output([&] {
        int number = 0;
        const AllocationGuard guard;
        for (int cycle = 0; cycle < 1000; ++cycle) {
            looping.GetNextSample(number);
            m_sut.GetNextSample(number);
            idle.GetNextSample(number);
        }
        EXPECT_EQ(guard.GetCount(), 0);
    });
    EXPECT_THAT(log.Events(), IsEmpty()) << "not even with TRACE on";
    EXPECT_EQ(output, "");
}

class ModulationDeathTest : public ModulationTest
{
protected:
    ModulationDeathTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

TEST_F(ModulationDeathTest, PlayingWhatAFailedLoadHasLostEndsTheProcess)
{
    m_sut.Set(Samples(3));
    EXPECT_THROW(m_sut.Load("no such file"), brisk::Exception);
    EXPECT_EQ(m_sut.GetNumSamples(), 3) << "the number stays, the samples do not";
    m_sut.Start(false, 0);
    int number = 0;
    EXPECT_DEATH(m_sut.GetNextSample(number), "Assertion '__n < this->size\\(\\)' failed");
}

}  // namespace
}  // namespace lumo::ravelcore
