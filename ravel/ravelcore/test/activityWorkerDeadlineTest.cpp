#include "support/handshakeController.hpp"
#include "support/lockWatch.hpp"
#include "support/logCapture.hpp"
#include "support/scriptedTask.hpp"

#include <lumo/ravelcore/activityWorker.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <ctime>
#include <vector>

// Until when, and by which clock, a worker waits for a start.

namespace {

using std::chrono::system_clock;

/// One wait on a condition variable with a deadline.
struct Wait
{
    clockid_t clock;
    system_clock::time_point deadline;
    bool is_locked;
};

std::vector<Wait> g_waits;
int* g_start_counter = nullptr;  // where the last of the waits puts a start
constexpr std::size_t NUM_WAITS = 3;

/// Returns at once: after the last of NUM_WAITS waits with a start, after the others as if woken by nobody.
int NoteWait(clockid_t clock, pthread_mutex_t* mutex, const timespec* deadline)
{
    const auto since_epoch = std::chrono::seconds(deadline->tv_sec) + std::chrono::nanoseconds(deadline->tv_nsec);
    g_waits.push_back({clock, system_clock::time_point(since_epoch), pthread_mutex_trylock(mutex) == EBUSY});
    if (g_waits.size() == NUM_WAITS) {
        *g_start_counter = 1;
    }
    return 0;
}

}  // namespace

// These stand in for the C library's functions in this whole program; nothing in it waits but the one worker.
extern "C" {
__attribute__((visibility("default"))) int pthread_cond_timedwait(pthread_cond_t* /*condition*/, pthread_mutex_t* mutex,
                                                                  const timespec* deadline)
{
    return NoteWait(CLOCK_REALTIME, mutex, deadline);
}

__attribute__((visibility("default"))) int pthread_cond_clockwait(pthread_cond_t* /*condition*/, pthread_mutex_t* mutex,
                                                                  clockid_t clock, const timespec* deadline)
{
    return NoteWait(clock, mutex, deadline);
}
}

namespace lumo::ravelcore {
namespace {

using test::HandshakeController;
using test::LockWatch;
using test::LogCapture;
using test::ScriptedTask;
using ::testing::AllOf;
using ::testing::Each;
using ::testing::Field;
using ::testing::Ge;
using ::testing::Le;
using ::testing::SizeIs;

TEST(ActivityWorkerDeadlineTest, StartIsAwaitedOnTheSystemClockFromWhenTheMutexIsHeldUntilOneDeadline)
{
    constexpr std::chrono::minutes TIMEOUT{5};
    constexpr std::chrono::milliseconds LOCK_DELAY{2};
    const LogCapture log("deadline", log4cplus::INFO_LOG_LEVEL);
    HandshakeController controller;
    const ActivityWorkerControl control = controller.Control();
    g_start_counter = control.startCounter;
    ScriptedTask task;
    const ActivityWorkerConfig config{"worker", 1, 0, -1, 0, -1, TIMEOUT, log4cplus::Logger::getInstance("deadline")};
    ActivityWorker sut(config, control, task);
    task.on_execute = [&](double /*time_stamp*/, bool /*first*/) {
        sut.stop(nullptr);
    };
    system_clock::time_point locked_after;
    {
        // The mutex is long in coming: what was read from a clock before that shows.
        const LockWatch watch([&](const void* lock) {
            if (lock == control.start_mutex->native_handle()) {
                const system_clock::time_point end = system_clock::now() + LOCK_DELAY;
                do {
                    locked_after = system_clock::now();
                } while (locked_after < end);
            }
        });
        sut.Run();
    }
    const system_clock::time_point end = system_clock::now();
    EXPECT_THAT(g_waits, SizeIs(NUM_WAITS));
    EXPECT_THAT(g_waits, Each(Field(&Wait::clock, CLOCK_REALTIME)));
    EXPECT_THAT(g_waits, Each(Field(&Wait::is_locked, true)));
    EXPECT_THAT(g_waits, Each(Field(&Wait::deadline, AllOf(Ge(locked_after + TIMEOUT), Le(end + TIMEOUT)))));
    EXPECT_THAT(g_waits, Each(Field(&Wait::deadline, g_waits.at(0).deadline)));
}

}  // namespace
}  // namespace lumo::ravelcore
