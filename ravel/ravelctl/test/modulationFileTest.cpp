#include "error.hpp"
#include "modulationFile.hpp"
#include "support/quietLog.hpp"
#include "support/testFolder.hpp"
#include "support/textFile.hpp"
#include "support/thrown.hpp"

#include <lumo/ravelcore/utils.hpp>

#include <fmt/core.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>

namespace lumo::ravelctl {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

constexpr int SAMPLE_SIZE = 4;

class ModulationFileTest : public testing::Test
{
protected:
    ModulationFileTest() { test::QuietLog(); }

    /// A file of `rows` rows of `cols` values, counted through from 1.
    std::filesystem::path Make(const std::string& name, int rows, int cols = SAMPLE_SIZE) const
    {
        std::vector<float> values(static_cast<std::size_t>(rows) * static_cast<std::size_t>(cols));
        for (std::size_t i = 0; i < values.size(); ++i) {
            values[i] = static_cast<float>(i + 1);
        }
        ravelcore::SaveMatrix((m_folder / name).string(), "M", rows, cols, values);
        return m_folder / name;
    }

    /// A file whose header says that it has `rows` rows; it has one.
    std::filesystem::path MakeFileThatClaims(std::int64_t rows) const
    {
        const std::filesystem::path file = Make("claims.fits", 1);
        std::string bytes = test::ReadBytes(file);
        const std::string one = fmt::format("NAXIS2  = {:>20}", 1);
        const std::size_t place = bytes.find(one);
        EXPECT_NE(place, std::string::npos);
        bytes.replace(place, one.size(), fmt::format("NAXIS2  = {:>20}", rows));
        test::WriteBytes(file, bytes);
        return file;
    }

    /// A file of zeros that takes no space.
    std::filesystem::path MakeHole(std::uintmax_t bytes) const
    {
        test::WriteBytes(m_folder / "hole.fits", "");
        std::filesystem::resize_file(m_folder / "hole.fits", bytes);
        return m_folder / "hole.fits";
    }

    void Load(const std::filesystem::path& file)
    {
        LoadModulation(m_modulation, file, "--inject", [this](const std::string& line) { m_said.push_back(line); });
    }

    std::string Refusal(const std::filesystem::path& file)
    {
        return test::ThrownLine<InputError>([&] { Load(file); });
    }

    std::vector<float> Next()
    {
        int number = 0;
        const float* sample = m_modulation.GetNextSample(number);
        return {sample, sample + SAMPLE_SIZE};
    }

    test::TestFolder m_folder;
    ravelcore::Modulation m_modulation{"references", SAMPLE_SIZE, 0.0F};
    std::vector<std::string> m_said;
};

TEST_F(ModulationFileTest, RowsBecomeSamples)
{
    for (const char* name : {"plain.fits", "compressed.fits.gz", "brackets[1].fits"}) {
        Load(Make(name, 2));
        EXPECT_EQ(m_modulation.GetNumSamples(), 2) << name;
        m_modulation.Start(false, 1);
        EXPECT_THAT(Next(), ElementsAre(1.0F, 2.0F, 3.0F, 4.0F)) << name;
        EXPECT_THAT(Next(), ElementsAre(5.0F, 6.0F, 7.0F, 8.0F)) << name;
        m_modulation.Stop();
    }
    EXPECT_THAT(m_said, IsEmpty()) << "nothing took long";
}

TEST_F(ModulationFileTest, TimeStampsAreLeftAside)
{
    const std::string file = (m_folder / "recorded.fits").string();
    const std::vector<float> values = {1.0F, 2.0F, 3.0F, 4.0F};
    ravelcore::SaveMatrixWithTimestamps(file, "M", 1, SAMPLE_SIZE, values, {77.0});
    Load(file);
    m_modulation.Start(false, 1);
    EXPECT_EQ(Next(), values);
}

TEST_F(ModulationFileTest, ARelativeNameIsLookedForWhereDataAreKept)
{
    Make("kept-with-the-data.fits", 3);
    ASSERT_EQ(setenv("BRISK_DATA_PATH", m_folder.GetPath().c_str(), 1), 0);
    Load("kept-with-the-data.fits");
    unsetenv("BRISK_DATA_PATH");
    EXPECT_EQ(m_modulation.GetNumSamples(), 3);
}

TEST_F(ModulationFileTest, WithoutAFileTheNameAndTheOptionAreTold)
{
    const std::filesystem::path missing = m_folder / "missing.fits";
    EXPECT_EQ(Refusal(missing), "--inject: expected a FITS file but there is no " + missing.string());
    const std::filesystem::path folder = m_folder.GetPath();
    EXPECT_EQ(Refusal(folder), "--inject: expected a FITS file but there is no " + folder.string());
}

TEST_F(ModulationFileTest, WhatIsNoFitsFileIsRefused)
{
    const std::filesystem::path file = m_folder / "text.fits";
    for (const char* text : {"", "x", "SIMPLE  =                    T", "not a FITS file at all\n"}) {
        test::WriteBytes(file, text);
        EXPECT_THAT(Refusal(file),
                    StartsWith("--inject: expected a FITS table of rows of 4 values: " + file.string() + ": "))
            << text;
    }
}

TEST_F(ModulationFileTest, AFileThatBreaksOffIsRefused)
{
    const std::filesystem::path file = Make("broken.fits", 2000);
    for (const std::uintmax_t bytes : {2880U, 4000U, 5760U, 20000U}) {
        Make("broken.fits", 2000);
        std::filesystem::resize_file(file, bytes);
        EXPECT_THAT(Refusal(file), StartsWith("--inject: expected a FITS table of rows of 4 values: ")) << bytes;
    }
}

TEST_F(ModulationFileTest, RowsOfAnotherLengthAreRefusedWithBothLengths)
{
    for (const int cols : {1, 3, 5}) {
        const std::filesystem::path file = Make("other.fits", 3, cols);
        EXPECT_THAT(Refusal(file), AllOf(StartsWith("--inject: expected a FITS table of rows of 4 values: "),
                                         HasSubstr(fmt::format("while loading {} expecting 4 elements per sample but "
                                                               "read {}",
                                                               file.string(), cols))));
    }
}

TEST_F(ModulationFileTest, ATableWithoutRowsIsRefused)
{
    const std::filesystem::path file = MakeFileThatClaims(0);
    EXPECT_EQ(Refusal(file), "--inject: expected a FITS table of rows of 4 values: " + file.string() +
                                 ": expected a FITS table with rows but it has none");
}

TEST_F(ModulationFileTest, MoreValuesThanCanBeCountedAreRefused)
{
    const std::filesystem::path file = MakeFileThatClaims(536'870'912);  // 2^29 rows of 4: 2^31 values
    EXPECT_EQ(Refusal(file), "--inject: expected a FITS table of rows of 4 values: " + file.string() +
                                 " has 536870912 rows, more than the 536870911 that can be played");
}

TEST_F(ModulationFileTest, MoreThanTheMachineHasMemoryForIsRefusedBeforeItIsRead)
{
    const std::filesystem::path file = MakeHole(4'000'000'000'000U);
    EXPECT_THAT(Refusal(file), AllOf(StartsWith("--inject: the samples of " + file.string() +
                                                " need 16.0 TB of memory but the machine has "),
                                     HasSubstr(" to spare")));
    EXPECT_THAT(m_said, IsEmpty());
}

TEST_F(ModulationFileTest, WhatTakesLongIsTold)
{
    Refusal(MakeHole(100'000'000));
    EXPECT_THAT(m_said, IsEmpty());
    const std::filesystem::path file = MakeHole(100'000'001);
    Refusal(file);
    EXPECT_THAT(m_said, ElementsAre("reading " + file.string() + " (100.0 MB)"));
}

}  // namespace
}  // namespace lumo::ravelctl
