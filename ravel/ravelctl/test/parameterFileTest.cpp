#include "error.hpp"
#include "parameterFile.hpp"
#include "support/quietLog.hpp"
#include "support/testFolder.hpp"
#include "support/thrown.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

namespace lumo::ravelctl {
namespace {

class ParameterFileTest : public testing::Test
{
protected:
    ParameterFileTest() { test::QuietLog(); }

    std::string Refusal(const std::vector<float>& params) const
    {
        SaveGainsFile(m_file, params);
        return test::ThrownLine<InputError>([this] { LoadGainsFile(m_file, 2); });
    }

    const test::TestFolder m_folder;
    const std::filesystem::path m_file = m_folder / "gains.fits";
    std::vector<float> m_params = {0.5F, 200.0F, 0.0F, 50.0F, 1.0F, 0.02F, 10.0F, -9.0F, 9.0F, 30.0F,
                                   0.4F, 100.0F, 0.1F, 20.0F, 0.5F, 0.05F, 11.0F, -8.0F, 8.0F, 40.0F};
};

TEST_F(ParameterFileTest, GainsAreLoadedAsTheyWereSaved)
{
    SaveGainsFile(m_file, m_params);
    EXPECT_EQ(LoadGainsFile(m_file, 2), m_params);
    SaveGainsFile(m_file, std::vector<float>(m_params.begin(), m_params.begin() + 10));
    EXPECT_EQ(LoadGainsFile(m_file, 1).size(), 10U) << "the file was replaced";
    EXPECT_EQ(m_folder.CountEntries(), 1U);
}

TEST_F(ParameterFileTest, GainsOfAnotherNumberOfModesAreRefusedWithBoth)
{
    SaveGainsFile(m_file, m_params);
    EXPECT_EQ(test::ThrownLine<InputError>([this] { LoadGainsFile(m_file, 3); }),
              m_file.string() +
                  ": expected gains of the run's 3 modes but they are of 2; run with --modes 2, or use other gains");
    SaveGainsFile(m_file, std::vector<float>(20000));
    EXPECT_THAT(test::ThrownLine<InputError>([this] { LoadGainsFile(m_file, 3); }),
                testing::EndsWith("they are of 2000; run with --modes 2000, or use other gains"));
    SaveGainsFile(m_file, std::vector<float>(25000));
    EXPECT_THAT(test::ThrownLine<InputError>([this] { LoadGainsFile(m_file, 3); }),
                testing::EndsWith("they are of 2500; use other gains"))
        << "the mirror has not so many";
    SaveGainsFile(m_file, std::vector<float>(25));
    EXPECT_EQ(test::ThrownLine<InputError>([this] { LoadGainsFile(m_file, 2); }),
              "Matrix gains (" + m_file.string() + ") has dimension [1,25], expecting [1,20]");
}

TEST_F(ParameterFileTest, GainsWithWhichAChannelCannotWorkAreRefusedWithFileAndMode)
{
    m_params[16] = 0.0F;
    EXPECT_EQ(Refusal(m_params), m_file.string() + ": mode 1: n: expected more than 0 but got 0");
    m_params[16] = std::numeric_limits<float>::quiet_NaN();
    EXPECT_EQ(Refusal(m_params), m_file.string() + ": expected finite values but element 16 is nan");
}

TEST_F(ParameterFileTest, AFileThatCannotBeWrittenIsToldWithItsName)
{
    EXPECT_THAT(test::ThrownLine<RunError>([this] { SaveGainsFile(m_folder / "none" / "gains.fits", m_params); }),
                testing::StartsWith("cannot write " + (m_folder / "none" / "gains.fits").string() + ": "));
}

}  // namespace
}  // namespace lumo::ravelctl
