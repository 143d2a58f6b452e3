#include "support/testFolder.hpp"
#include "support/textFile.hpp"
#include "wholeFile.hpp"

#include <gtest/gtest.h>

#include <stdexcept>

namespace lumo::ravelctl {
namespace {

namespace fs = std::filesystem;

TEST(WholeFileTest, TheFileHasItsNameOnlyWhenItIsWhole)
{
    const test::TestFolder folder;
    const fs::path file = folder / "a.txt";
    WriteWhole(file, [&](const fs::path& part) {
        test::WriteBytes(part, "half");
        EXPECT_FALSE(fs::exists(file));
        EXPECT_EQ(part.parent_path(), file.parent_path()) << "a rename across file systems would copy";
        EXPECT_EQ(part.extension(), ".txt") << "it may say how to write";
        test::WriteBytes(part, "whole");
    });
    EXPECT_EQ(test::ReadBytes(file), "whole");
    EXPECT_EQ(folder.CountEntries(), 1U);
}

TEST(WholeFileTest, AnOldFileStaysWhenTheNewOneFailsAndNoPartIsLeft)
{
    const test::TestFolder folder;
    const fs::path file = folder / "a.txt";
    test::WriteBytes(file, "old");
    const auto fail = [](const fs::path& part) {
        test::WriteBytes(part, "half");
        throw std::runtime_error("disk full");
    };
    EXPECT_THROW(WriteWhole(file, fail), std::runtime_error);
    EXPECT_EQ(test::ReadBytes(file), "old");
    EXPECT_EQ(folder.CountEntries(), 1U);
}

TEST(WholeFileTest, AWriterThatMakesNoFileIsAFailure)
{
    const test::TestFolder folder;
    EXPECT_THROW(WriteWhole(folder / "a.txt", [](const fs::path&) {}), fs::filesystem_error);
    EXPECT_EQ(folder.CountEntries(), 0U);
}

}  // namespace
}  // namespace lumo::ravelctl
