#include "passingFolder.hpp"
#include "support/testFolder.hpp"
#include "support/textFile.hpp"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <stop_token>
#include <thread>

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

TEST(PassingFolderTest, WhatADeadProcessLeftGoesAndWhatLivesStays)
{
    const test::TestFolder folder;
    const pid_t child = fork();
    if (child == 0) {
        const PassingFolder killed(folder.GetPath());
        test::WriteBytes(killed.GetPath() / "half", "x");
        raise(SIGKILL);
    }
    ASSERT_GT(child, 0);
    ASSERT_EQ(waitpid(child, nullptr, 0), child);
    ASSERT_EQ(folder.CountEntries(), 1U);

    const PassingFolder living(folder.GetPath());
    fs::create_directory(folder / ".ravelctl-notes");
    fs::create_directory(folder / "ravelctl-abcdefg");
    test::WriteBytes(folder / ".ravelctl-abcdef", "not a folder");
    const test::TestFolder elsewhere;
    test::WriteBytes(elsewhere / "kept", "x");
    fs::create_directory_symlink(elsewhere.GetPath(), folder / ".ravelctl-abcdeg");
    RemoveDeadPassingFolders(folder.GetPath());
    EXPECT_TRUE(fs::exists(living.GetPath()));
    EXPECT_TRUE(fs::is_symlink(folder / ".ravelctl-abcdeg")) << "what it names is nobody's passing folder";
    EXPECT_EQ(test::ReadBytes(elsewhere / "kept"), "x");
    EXPECT_EQ(folder.CountEntries(), 5U);
}

TEST(PassingFolderTest, OneThatIsBeingMadeIsNotTakenForADeadOnes)
{
    const test::TestFolder folder;
    std::jthread cleaner([&folder](const std::stop_token& stop) {
        while (!stop.stop_requested()) {
            RemoveDeadPassingFolders(folder.GetPath());
        }
    });
    for (int i = 0; i < 2000; ++i) {
        const PassingFolder living(folder.GetPath());
        test::WriteBytes(living.GetPath() / "half", "x");
        EXPECT_EQ(test::ReadBytes(living.GetPath() / "half"), "x") << i;
    }
    cleaner.request_stop();
    cleaner.join();
    EXPECT_EQ(folder.CountEntries(), 0U);
}

}  // namespace
}  // namespace lumo::ravelctl
