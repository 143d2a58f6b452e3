#include "passingFolder.hpp"
#include "support/testFolder.hpp"
#include "support/textFile.hpp"

#include <gtest/gtest.h>

namespace lumo::ravelctl {
namespace {

namespace fs = std::filesystem;

TEST(PassingFolderTest, ANameThatIsTakenGetsTheNextNumber)
{
    const test::TestFolder folder;
    const std::string stem = (folder / "run").string();
    EXPECT_EQ(MakeNewFolder(stem), fs::path(stem));
    EXPECT_EQ(MakeNewFolder(stem), fs::path(stem + "-2"));
    test::WriteBytes(stem + "-3", "not even a folder");
    EXPECT_EQ(MakeNewFolder(stem), fs::path(stem + "-4"));
    EXPECT_TRUE(fs::is_directory(stem + "-4"));
    EXPECT_EQ(folder.CountEntries(), 4U);
}

TEST(PassingFolderTest, WhereNoFolderCanBeMadeNoOtherNameIsTried)
{
    const test::TestFolder folder;
    EXPECT_EQ(MakeNewFolder((folder / "missing" / "run").string()), folder / "missing" / "run");
    EXPECT_EQ(folder.CountEntries(), 0U);
}

}  // namespace
}  // namespace lumo::ravelctl
