#include "stopSignals.hpp"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <thread>

namespace lumo::ravelctl {
namespace {

/// Signals belong to the process: each case runs in one of its own, which exits 0 when the claim holds.
template <typename Claim>
void ExpectInChild(const Claim& claim)
{
    EXPECT_EXIT(std::exit(claim() ? 0 : 1), testing::ExitedWithCode(0), "");
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

TEST_F(StopSignalsTest, EachStopSignalIsNotedInsteadOfEndingTheProcess)
{
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        ExpectInChild([signal] {
            SetDefaults();
            StopSignals sut;
            const bool before = sut.Await();
            kill(getpid(), signal);
            return !before && sut.Await();
        });
    }
}

TEST_F(StopSignalsTest, ASignalThatAnOlderThreadTakesIsNotedAsWell)
{
    ExpectInChild([] {
        SetDefaults();
        std::atomic<bool> done{false};
        std::thread older([&done] { done.wait(false); });  // as a library's threads: nothing blocked
        StopSignals sut;
        kill(getpid(), SIGINT);
        const bool noted = sut.Await();
        done.store(true);
        done.notify_one();
        older.join();
        return noted;
    });
}

TEST_F(StopSignalsTest, WhatHasComeStays)
{
    ExpectInChild([] {
        SetDefaults();
        StopSignals sut;
        kill(getpid(), SIGINT);
        return sut.Await() && sut.Await();
    });
}

TEST_F(StopSignalsTest, ASignalThatTheParentHadIgnoredStaysIgnored)
{
    ExpectInChild([] {
        SetDefaults();
        signal(SIGHUP, SIG_IGN);
        StopSignals sut;
        kill(getpid(), SIGHUP);
        return !sut.Await();
    });
}

TEST_F(StopSignalsTest, OutputThatNobodyReadsIsAnErrorOfTheWriteOnly)
{
    ExpectInChild([] {
        SetDefaults();
        const StopSignals sut;
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
        const StopSignals sut;
        const rlimit limit{0, RLIM_INFINITY};
        setrlimit(RLIMIT_FSIZE, &limit);
        std::FILE* file = std::tmpfile();
        return file != nullptr && write(fileno(file), "x", 1) == -1;
    });
}

}  // namespace
}  // namespace lumo::ravelctl
