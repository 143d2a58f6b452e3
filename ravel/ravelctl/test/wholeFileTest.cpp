#include "support/testFolder.hpp"
#include "support/textFile.hpp"
#include "wholeFile.hpp"

#include <gtest/gtest.h>

#include <stdexcept>
#include <system_error>

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
        EXPECT_EQ(part.parent_path().parent_path(), file.parent_path())
            << "another file system could not be renamed to";
        EXPECT_EQ(part.filename(), "a.txt") << "it may say how to write";
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
    EXPECT_THROW(WriteWhole(folder / "a.txt", [](const fs::path&) {}), std::system_error);
    EXPECT_EQ(folder.CountEntries(), 0U);
}

TEST(WholeFileTest, WhatTheWriterLeavesBesidesIsRemoved)
{
    const test::TestFolder folder;
    WriteWhole(folder / "a.txt", [](const fs::path& part) {
        test::WriteBytes(part, "whole");
        test::WriteBytes(part.parent_path() / "passing", "half");
    });
    EXPECT_EQ(folder.CountEntries(), 1U);
}

TEST(WholeFileTest, AFolderThatIsNotThereIsNamed)
{
    const test::TestFolder folder;
    try {
        WriteWhole(folder / "missing" / "a.txt", [](const fs::path&) { FAIL() << "there is nowhere to write to"; });
        FAIL() << "nothing was thrown";
    } catch (const std::system_error& e) {
        EXPECT_EQ(std::string(e.what()),
                  "no file can be made in " + (folder / "missing").string() + ": No such file or directory");
    }
}

}  // namespace
}  // namespace lumo::ravelctl
