#include "error.hpp"
#include "matrixStore.hpp"
#include "support/testFolder.hpp"
#include "support/textFile.hpp"
#include "support/thrown.hpp"

#include <lumo/ravelcore/utils.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <limits>

namespace lumo::ravelctl {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

const fs::path SHARED = RAVELCTL_TEST_MATRICES;

/// A folder in which the shared matrices stand, but for the one that a test damages.
class MatrixStoreTest : public testing::Test
{
protected:
    MatrixStoreTest()
    {
        for (const char* name : {"P2EDC.fits", "PACT2MODES.fits", "MODES2PACT.fits"}) {
            fs::create_symlink(SHARED / name, m_folder / name);
        }
    }

    /// What is said about the damaged file.
    std::string Refusal(const std::string& name)
    {
        const std::string line = test::ThrownLine<RunError>([this] { Load(3); });
        EXPECT_THAT(line, HasSubstr((m_folder / name).string()));
        EXPECT_THAT(line, HasSubstr("remove that file to have it computed again"));
        return line;
    }

    mirrorsim::ControlModes Load(int num_modes)
    {
        return LoadOrComputeModes(m_geometry, m_folder.GetPath(), num_modes, [](const std::string& line) {
            ADD_FAILURE() << "nothing should take long: " << line;
        });
    }

    /// A file of its own under `name`, instead of the shared one.
    fs::path Replace(const std::string& name)
    {
        fs::remove(m_folder / name);
        return m_folder / name;
    }

    test::TestFolder m_folder;
    mirrorsim::Geometry m_geometry;
};

TEST_F(MatrixStoreTest, FewerModesAreTheFirstOnesInEveryMatrix)
{
    const mirrorsim::ControlModes many = Load(5);
    const mirrorsim::ControlModes few = Load(2);
    constexpr auto NUM_PACT = static_cast<std::size_t>(mirrorsim::NUM_PACT);
    constexpr auto NUM_ES = static_cast<std::size_t>(mirrorsim::NUM_ES);
    ASSERT_EQ(few.p2edc.size(), 2 * NUM_ES);
    ASSERT_EQ(few.pact2modes.size(), 2 * NUM_PACT);
    ASSERT_EQ(few.modes2pact.size(), 2 * NUM_PACT);
    EXPECT_TRUE(std::equal(few.p2edc.begin(), few.p2edc.end(), many.p2edc.begin()));
    EXPECT_TRUE(std::equal(few.pact2modes.begin(), few.pact2modes.end(), many.pact2modes.begin()));
    for (std::size_t i = 0; i < NUM_PACT; ++i) {
        ASSERT_EQ(few.modes2pact[2 * i], many.modes2pact[5 * i]);
        ASSERT_EQ(few.modes2pact[2 * i + 1], many.modes2pact[5 * i + 1]);
        ASSERT_EQ(few.modes2pact[2 * i], few.pact2modes[i]) << "orthonormal modes: one matrix is the other's transpose";
    }
}

TEST_F(MatrixStoreTest, AFileThatWasCutShortIsRefused)
{
    for (const std::uintmax_t size : {std::uintmax_t{0}, std::uintmax_t{2880}, std::uintmax_t{20'000'000}}) {
        const fs::path file = Replace("PACT2MODES.fits");
        fs::copy_file(SHARED / "PACT2MODES.fits", file);
        fs::resize_file(file, size);
        Refusal("PACT2MODES.fits");
    }
}

TEST_F(MatrixStoreTest, AFileThatHoldsSomethingElseIsRefused)
{
    test::WriteBytes(Replace("PACT2MODES.fits"), std::string(30'000'000, 'x'));
    Refusal("PACT2MODES.fits");
}

TEST_F(MatrixStoreTest, AMatrixOfAnotherShapeIsRefusedWithBothShapes)
{
    const fs::path file = Replace("PACT2MODES.fits");
    ravelcore::SaveMatrix(file.string(), "PACT2MODES", mirrorsim::NUM_PACT, mirrorsim::NUM_MODES,
                          std::vector<float>(static_cast<std::size_t>(mirrorsim::NUM_PACT) * mirrorsim::NUM_MODES));
    const std::string line = Refusal("PACT2MODES.fits");
    EXPECT_THAT(line, HasSubstr("[2394,2390]"));
    EXPECT_THAT(line, HasSubstr("expecting [2390,2394]"));
}

TEST_F(MatrixStoreTest, AMatrixWithAValueThatIsNotFiniteIsRefused)
{
    std::vector<float> values(static_cast<std::size_t>(mirrorsim::NUM_PACT) * mirrorsim::NUM_MODES, 0.01F);
    values[values.size() - 1] = std::numeric_limits<float>::quiet_NaN();
    const fs::path file = Replace("MODES2PACT.fits");
    ravelcore::SaveMatrix(file.string(), "MODES2PACT", mirrorsim::NUM_PACT, mirrorsim::NUM_MODES, values);
    EXPECT_THAT(Refusal("MODES2PACT.fits"), HasSubstr("expected finite values"));
}

TEST_F(MatrixStoreTest, AFolderThatCannotBeMadeIsRefusedBeforeAnythingIsComputed)
{
    test::WriteBytes(m_folder / "file", "x");
    const std::string line = test::ThrownLine<RunError>([this] {
        LoadOrComputeModes(m_geometry, m_folder / "file" / "below", 3,
                           [](const std::string& said) { ADD_FAILURE() << said; });
    });
    EXPECT_THAT(line, HasSubstr("cannot make the folder " + (m_folder / "file" / "below").string()));
    EXPECT_THAT(line, HasSubstr("--matrices"));
}

TEST_F(MatrixStoreTest, AFolderThatCannotBeLookedIntoIsRefusedWithTheRemedy)
{
    const auto refusal = [this](const fs::path& folder) {
        return test::ThrownLine<RunError>(
            [&] { LoadOrComputeModes(m_geometry, folder, 3, [](const std::string& said) { ADD_FAILURE() << said; }); });
    };
    const fs::path too_long = m_folder / std::string(300, 'x');  // for everybody, root included
    EXPECT_EQ(refusal(too_long), "cannot look for matrices in " + too_long.string() +
                                     ": File name too long; choose another folder with --matrices");
    fs::create_directory_symlink("loop", m_folder / "loop");
    EXPECT_THAT(refusal(m_folder / "loop"), HasSubstr("Too many levels of symbolic links; choose another folder"));
}

TEST(DefaultMatrixFolderTest, IsInTheUsersCache)
{
    const char* const home = getenv("HOME");
    const std::string old_home = home == nullptr ? "" : home;
    unsetenv("XDG_CACHE_HOME");
    setenv("HOME", "/home/somebody", 1);
    EXPECT_EQ(DefaultMatrixFolder(), "/home/somebody/.cache/ravelctl/mirror-1");
    setenv("XDG_CACHE_HOME", "/cache", 1);
    EXPECT_EQ(DefaultMatrixFolder(), "/cache/ravelctl/mirror-1");
    unsetenv("XDG_CACHE_HOME");
    setenv("HOME", old_home.c_str(), 1);
}

}  // namespace
}  // namespace lumo::ravelctl
