#include "matrixStore.hpp"
#include "support/testFolder.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

// Runs before the tests that need the matrices, and leaves them in the build folder: they are computed once per test
// run.

namespace lumo::ravelctl {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;

TEST(MatrixFixtureTest, MatricesThatAreMissingAreComputedStoredAndThenFound)
{
    const fs::path folder = RAVELCTL_TEST_MATRICES;
    fs::remove_all(folder);
    std::vector<std::string> said;
    const auto say = [&said](const std::string& line) {
        said.push_back(line);
    };
    const mirrorsim::Geometry geometry;
    const mirrorsim::ControlModes computed = LoadOrComputeModes(geometry, folder, 30, say);
    ASSERT_THAT(said, ElementsAre(HasSubstr("computing all 2390 control modes"), HasSubstr("computed and stored")));
    EXPECT_THAT(said[0], HasSubstr(folder.string()));
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder)) {
        names.push_back(entry.path().filename().string());
    }
    EXPECT_THAT(names, testing::UnorderedElementsAre("P2EDC.fits", "PACT2MODES.fits", "MODES2PACT.fits"));

    said.clear();
    const mirrorsim::ControlModes found = LoadOrComputeModes(geometry, folder, 30, say);
    EXPECT_TRUE(said.empty());
    EXPECT_EQ(found.num_modes, 30);
    EXPECT_EQ(found.p2edc, computed.p2edc);
    EXPECT_EQ(found.pact2modes, computed.pact2modes);
    EXPECT_EQ(found.modes2pact, computed.modes2pact);
}

}  // namespace
}  // namespace lumo::ravelctl
