#include "error.hpp"
#include "makeModulation.hpp"
#include "modulationShape.hpp"
#include "resources.hpp"
#include "support/quietLog.hpp"
#include "support/testFolder.hpp"
#include "support/textFile.hpp"
#include "support/thrown.hpp"

#include <lumo/ravelcore/modulation.hpp>
#include <lumo/ravelcore/utils.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

namespace lumo::ravelctl {
namespace {

namespace fs = std::filesystem;
using test::ThrownLine;
using testing::HasSubstr;

/// A tenth of a second on mode 1 of 3.
ModulationOptions Small(const fs::path& output)
{
    ModulationOptions options;
    options.output = output;
    options.modes = 3;
    options.on = "1";
    options.duration_s = 0.1;
    return options;
}

/// What it says.
std::string Make(const ModulationOptions& options)
{
    std::ostringstream out;
    MakeModulationFile(options, out);
    return out.str();
}

std::string Refusal(const ModulationOptions& options)
{
    return ThrownLine<InputError>([&] { Make(options); });
}

class MakeModulationTest : public testing::Test
{
protected:
    MakeModulationTest() { test::QuietLog(); }

    const test::TestFolder m_folder;
};

TEST_F(MakeModulationTest, TheFileHoldsTheSamplesAndNothingElseIsLeft)
{
    const ModulationOptions options = Small(m_folder / "a.fits");
    Make(options);
    int rows = 50;
    int cols = 3;
    std::vector<float> values;
    ravelcore::LoadMatrix((m_folder / "a.fits").string(), "MODULATION", rows, cols, values);
    EXPECT_EQ(values, MakeModulation(options));
    EXPECT_EQ(m_folder.CountEntries(), 1U);
}

TEST_F(MakeModulationTest, OneModeAloneAndOneSampleAloneAreFilesToo)
{
    ModulationOptions options = Small(m_folder / "a.fits");
    options.shape = ModulationShape::Step;
    options.modes = 1;
    options.on = "0";
    options.duration_s = 0.002;
    EXPECT_THAT(Make(options), HasSubstr("a.fits: 1 sample of 1 mode, step of 0.1 um on mode 0, 0.002 s at 500 Hz ("));
    int rows = 1;
    int cols = 1;
    std::vector<float> values;
    ravelcore::LoadMatrix((m_folder / "a.fits").string(), "MODULATION", rows, cols, values);
    EXPECT_EQ(values, std::vector<float>{0.1F});
}

TEST_F(MakeModulationTest, ItPlaysInTheLoop)
{
    const ModulationOptions options = Small(m_folder / "a.fits");
    Make(options);
    ravelcore::Modulation sut("references", 3, 0.0F);
    sut.Load((m_folder / "a.fits").string());
    sut.Start(false, 0);
    const std::vector<float> expected = MakeModulation(options);
    for (int cycle = 0; cycle < 50; ++cycle) {
        int number = 0;
        const float* const sample = sut.GetNextSample(number);
        EXPECT_EQ(number, cycle + 1);
        EXPECT_EQ(std::vector<float>(sample, sample + 3),
                  std::vector<float>(expected.begin() + 3L * cycle, expected.begin() + 3L * (cycle + 1)));
    }
}

TEST_F(MakeModulationTest, AFileWhoseNameEndsSoIsCompressed)
{
    const ModulationOptions options = Small(m_folder / "a.fits.gz");
    Make(options);
    EXPECT_EQ(test::ReadBytes(options.output).substr(0, 2), "\x1f\x8b");
    ravelcore::Modulation sut("references", 3, 0.0F);
    sut.Load(options.output.string());
    EXPECT_EQ(sut.GetNumSamples(), 50);
    sut.Start(false, 0);
    int number = 0;
    sut.GetNextSample(number);
    EXPECT_EQ(sut.GetNextSample(number)[1], MakeModulation(options).at(4));
}

TEST_F(MakeModulationTest, ItSaysInOneLineWhatTheFileHoldsAndHowBigItIs)
{
    ModulationOptions options = Small(m_folder / "a.fits");
    options.overwrite = true;
    const std::string begin = options.output.string() + ": 50 samples of 3 modes, ";
    const auto end = [&] {
        return " at 500 Hz (" + FormatBytes(fs::file_size(options.output)) + ")\n";
    };
    std::string line = Make(options);
    EXPECT_EQ(line, begin + "sine 1 Hz of 0.1 um on mode 1, 0.1 s" + end());
    options.shape = ModulationShape::Chirp;
    options.on = "0-2";
    options.start_s = 0.05;
    line = Make(options);
    EXPECT_EQ(line, begin + "chirp 1 to 100 Hz of 0.1 um on modes 0-2 from 0.05 s, 0.1 s" + end());
    options.shape = ModulationShape::Noise;
    options.on = "2,0";
    options.amplitude_um = 0.025;
    line = Make(options);
    EXPECT_EQ(line, begin + "noise of seed 1 and 0.025 um rms on modes 0,2 from 0.05 s, 0.1 s" + end());
    options.shape = ModulationShape::Step;
    line = Make(options);
    EXPECT_EQ(line, begin + "step of 0.025 um on modes 0,2 from 0.05 s, 0.1 s" + end());
}

TEST_F(MakeModulationTest, AnExistingFileIsReplacedOnlyWhenAskedFor)
{
    ModulationOptions options = Small(m_folder / "a.fits");
    test::WriteBytes(options.output, "old");
    EXPECT_EQ(Refusal(options), "--output: " + options.output.string() +
                                    " exists already; choose another name, or replace that file with --overwrite");
    EXPECT_EQ(test::ReadBytes(options.output), "old");
    options.overwrite = true;
    Make(options);
    EXPECT_GT(fs::file_size(options.output), 600U);
    EXPECT_EQ(m_folder.CountEntries(), 1U);
}

TEST_F(MakeModulationTest, NamesThatNoFileCanHaveAreRefusedEvenToOverwrite)
{
    ModulationOptions options = Small("");
    options.overwrite = true;
    EXPECT_EQ(Refusal(options), "--output: expected the name of a file but got an empty one");
    options.output = m_folder.GetPath();
    EXPECT_EQ(Refusal(options), "--output: expected the name of a file but got " + m_folder.GetPath().string());
    options.output = m_folder / "new/";
    EXPECT_EQ(Refusal(options), "--output: expected the name of a file but got " + (m_folder / "new/").string());
    options.output = m_folder / "missing" / "a.fits";
    EXPECT_EQ(Refusal(options), "--output: expected a folder that exists but got " + (m_folder / "missing").string());
    options.output = "/dev/null";
    EXPECT_EQ(Refusal(options), "--output: expected a file or a new name but /dev/null is something else");
    EXPECT_EQ(m_folder.CountEntries(), 0U);
}

TEST_F(MakeModulationTest, BadOptionsAreRefusedBeforeTheFileIsTouched)
{
    ModulationOptions options = Small(m_folder / "a.fits");
    options.on = "3";
    EXPECT_EQ(Refusal(options), "--on: expected modes 0 to 2 but got 3");
    EXPECT_EQ(m_folder.CountEntries(), 0U);
}

TEST_F(MakeModulationTest, MoreThanTheMemoryHoldsIsRefusedWithBothFigures)
{
    ModulationOptions options = Small(m_folder / "a.fits");
    options.modes = 2000;
    options.rate_hz = 5000.0;
    options.duration_s = 200.0;
    if (AvailableMemory() == 0 || AvailableMemory() >= 32'000'000'000U) {
        GTEST_SKIP() << "this machine would make the file";
    }
    EXPECT_THAT(Refusal(options),
                HasSubstr("1000000 samples of 2000 modes need 32.0 GB of memory but the machine has "));
    EXPECT_EQ(m_folder.CountEntries(), 0U);
}

TEST_F(MakeModulationTest, AFileThatCannotBeWrittenIsNamed)
{
    // Not even root makes files there.
    const ModulationOptions options = Small("/proc/self/a.fits");
    const std::string line = ThrownLine<RunError>([&] { Make(options); });
    EXPECT_THAT(line, HasSubstr("cannot write /proc/self/a.fits: "));
    EXPECT_THAT(line, HasSubstr("--output"));
}

}  // namespace
}  // namespace lumo::ravelctl
