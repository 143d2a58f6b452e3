#include "error.hpp"
#include "stopSignals.hpp"
#include "support/testFolder.hpp"
#include "support/textFile.hpp"
#include "wholeFile.hpp"

#include <gtest/gtest.h>
#include <pthread.h>
#include <semaphore.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdlib>
#include <optional>
#include <thread>

namespace lumo::ravelctl {
namespace {

/// Signals belong to the process: each case runs in one of its own, which exits 0 when the claim holds.
template <typename Claim>
void ExpectInChild(const Claim& claim)
{
    EXPECT_EXIT(std::exit(claim() ? 0 : 1), testing::ExitedWithCode(0), "");
}

/// For the signal to end.
[[noreturn]] void WaitForever()
{
    for (;;) {
        pause();
    }
}

class StopSignalsTest : public testing::Test
{
protected:
    StopSignalsTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }

    /// Whatever the process was started with.
    static void SetDefaults()
    {
        for (const int stop : {SIGINT, SIGTERM, SIGHUP, SIGPIPE, SIGXFSZ}) {
            signal(stop, SIG_DFL);
        }
    }
};

/// Returns once a signal has been noted; the test's time limit is the only one.
void AwaitNote(StopSignals& sut)
{
    while (!sut.Await()) {
    }
}

TEST_F(StopSignalsTest, EachStopSignalIsNotedInsteadOfEndingTheProcess)
{
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        ExpectInChild([signal] {
            SetDefaults();
            StopSignals sut(StopSignals::Effect::Note);
            const bool before = sut.Await();
            kill(getpid(), signal);
            AwaitNote(sut);
            return !before;
        });
    }
}

TEST_F(StopSignalsTest, ASignalThatAnOlderThreadTakesIsNotedAsWell)
{
    ExpectInChild([] {
        SetDefaults();
        // As a library's threads: nothing blocked. Under the thread sanitizer a handler runs at once in some calls
        // only; read() is none of these, sem_wait() is one.
        sem_t over;
        sem_init(&over, 0, 0);
        std::thread older([&over] {
            while (sem_wait(&over) != 0) {  // a handler in this very thread woke it
            }
        });
        StopSignals sut(StopSignals::Effect::Note);
        pthread_kill(older.native_handle(), SIGINT);
        AwaitNote(sut);
        sem_post(&over);
        older.join();
        return true;
    });
}

TEST_F(StopSignalsTest, WhatHasComeStays)
{
    ExpectInChild([] {
        SetDefaults();
        StopSignals sut(StopSignals::Effect::Note);
        kill(getpid(), SIGINT);
        AwaitNote(sut);
        return sut.Await() && sut.Await();
    });
}

TEST_F(StopSignalsTest, ASignalThatTheParentHadIgnoredStaysIgnored)
{
    ExpectInChild([] {
        SetDefaults();
        signal(SIGHUP, SIG_IGN);
        StopSignals sut(StopSignals::Effect::Note);
        kill(getpid(), SIGHUP);
        return !sut.Await();
    });
}

TEST_F(StopSignalsTest, EachStopSignalEndsTheProcessWithItsStatusAndALineWhereNobodyAsksForIt)
{
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        EXPECT_EXIT(
            {
                SetDefaults();
                const StopSignals sut(StopSignals::Effect::EndProcess);
                kill(getpid(), signal);
                WaitForever();
            },
            testing::ExitedWithCode(EXIT_INTERRUPTED), "^ravelctl: interrupted; no half-written file is left\n$");
    }
}

TEST_F(StopSignalsTest, FromWhenTheEffectIsSetTheSignalIsNoted)
{
    ExpectInChild([] {
        SetDefaults();
        StopSignals sut(StopSignals::Effect::EndProcess);
        sut.SetEffect(StopSignals::Effect::Note);
        kill(getpid(), SIGINT);
        AwaitNote(sut);
        return true;
    });
}

TEST_F(StopSignalsTest, AnEndInTheMiddleOfAFileLeavesTheOldOneAndNoPart)
{
    // The child process comes this way once more: it is told where the folder of this one is.
    constexpr const char* TOLD = "RAVELCTL_TEST_FOLDER";
    const bool is_child = std::getenv(TOLD) != nullptr;
    std::optional<test::TestFolder> folder;
    if (!is_child) {
        folder.emplace();
        setenv(TOLD, folder->GetPath().c_str(), 1);
        test::WriteBytes(*folder / "a.fits", "old");
    }
    EXPECT_EXIT(
        {
            SetDefaults();
            const StopSignals sut(StopSignals::Effect::EndProcess);
            WriteWhole(std::filesystem::path(std::getenv(TOLD)) / "a.fits", [](const std::filesystem::path& part) {
                test::WriteBytes(part, "half");
                test::WriteBytes(part.parent_path() / ".passing", "half");  // as the core's file layer does
                kill(getpid(), SIGINT);
                WaitForever();
            });
        },
        testing::ExitedWithCode(EXIT_INTERRUPTED), "");
    unsetenv(TOLD);
    ASSERT_TRUE(folder);
    EXPECT_EQ(test::ReadBytes(*folder / "a.fits"), "old");
    EXPECT_EQ(folder->CountEntries(), 1U);
}

TEST_F(StopSignalsTest, OutputThatNobodyReadsIsAnErrorOfTheWriteOnly)
{
    ExpectInChild([] {
        SetDefaults();
        const StopSignals sut(StopSignals::Effect::Note);
        int ends[2] = {};
        if (pipe(ends) != 0) {
            return false;
        }
        close(ends[0]);
        return write(ends[1], "x", 1) == -1;
    });
}

TEST_F(StopSignalsTest, AFileBeyondTheSizeLimitIsAnErrorOfTheWriteOnly)
{
    ExpectInChild([] {
        SetDefaults();
        const StopSignals sut(StopSignals::Effect::Note);
        const rlimit limit{0, RLIM_INFINITY};
        setrlimit(RLIMIT_FSIZE, &limit);
        std::FILE* file = std::tmpfile();
        return file != nullptr && write(fileno(file), "x", 1) == -1;
    });
}

}  // namespace
}  // namespace lumo::ravelctl
