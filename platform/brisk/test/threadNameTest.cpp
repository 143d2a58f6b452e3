#include "testActivity.hpp"

#include <brisk/threadBaseActivity.hpp>

#include <gtest/gtest.h>
#include <pthread.h>

#include <array>
#include <string>

namespace brisk {

using test::RunUntilStopped;
using test::TestActivity;

namespace {

std::string GetKernelName(pthread_t thread)
{
    std::array<char, 16> name{};
    EXPECT_EQ(pthread_getname_np(thread, name.data(), name.size()), 0);
    return name.data();
}

}  // namespace

TEST(ThreadNameTest, IdAndNameAreThoseOfTheConstruction)
{
    const TestActivity sut("worker", -1, 0, [](TestActivity&) {});
    EXPECT_EQ(sut.getId(), "worker");
    EXPECT_EQ(sut.GetName(), "worker");
}

TEST(ThreadNameTest, SetNameChangesTheNameAndLeavesTheId)
{
    TestActivity sut("worker", -1, 0, [](TestActivity&) {});
    sut.SetName("segments");
    EXPECT_EQ(sut.GetName(), "segments");
    EXPECT_EQ(sut.getId(), "worker");
}

TEST(ThreadNameTest, ThreadStartsUnderTheNameOfTheConstruction)
{
    std::string seen;
    TestActivity sut("worker", -1, 0, [&seen](TestActivity&) { seen = GetKernelName(pthread_self()); });
    sut.StartThread();
    sut.JoinThread();
    EXPECT_EQ(seen, "worker");
}

TEST(ThreadNameTest, NameSetBeforeTheStartIsTheThreads)
{
    std::string seen;
    TestActivity sut([&seen](TestActivity&) { seen = GetKernelName(pthread_self()); });
    sut.SetName("segments");
    sut.StartThread();
    sut.JoinThread();
    EXPECT_EQ(seen, "segments");
}

TEST(ThreadNameTest, ThreadMayRenameItself)
{
    std::string seen;
    TestActivity sut([&seen](TestActivity& activity) {
        activity.SetName("segments");
        seen = GetKernelName(pthread_self());
    });
    sut.StartThread();
    sut.JoinThread();
    EXPECT_EQ(seen, "segments");
    EXPECT_EQ(sut.GetName(), "segments");
}

TEST(ThreadNameTest, RunningThreadIsRenamedFromOutside)
{
    TestActivity sut(&RunUntilStopped);
    sut.StartThread();
    sut.SetName("segments");
    // Whether the thread had begun when the name was set or not: it carries it before Run() has read anything else.
    while (GetKernelName(sut.GetNativeHandle()) != "segments") {
        std::this_thread::yield();
    }
    EXPECT_EQ(sut.GetName(), "segments");
}

TEST(ThreadNameTest, LongNameIsKeptWholeAndCutOffAt15BytesForTheSystem)
{
    std::string seen;
    TestActivity sut([&seen](TestActivity& activity) {
        activity.SetName("a name of more than fifteen bytes");
        seen = GetKernelName(pthread_self());
    });
    sut.StartThread();
    sut.JoinThread();
    EXPECT_EQ(seen, "a name of more ");
    EXPECT_EQ(sut.GetName(), "a name of more than fifteen bytes");
}

TEST(ThreadNameTest, SetNameAfterTheEndOfTheThreadIsHarmless)
{
    TestActivity sut([](TestActivity&) {});
    sut.StartThread();
    sut.SetName("while it may be ending");
    sut.JoinThread();
    sut.SetName("after");
    EXPECT_EQ(sut.GetName(), "after");
}

}  // namespace brisk
