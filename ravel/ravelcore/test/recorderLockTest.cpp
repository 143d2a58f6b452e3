#include "support/logCapture.hpp"

#include <lumo/ravelcore/recorder.hpp>

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <mutex>
#include <shared_mutex>
#include <string>
#include <vector>

namespace {

// Initial-exec: the counter must never need a lock itself.
[[gnu::tls_model("initial-exec")]] constinit thread_local int t_locks = 0;

/// The C library's function that one of this program's stands before.
template <typename Function>
Function* Real(const char* name)
{
    return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

}  // namespace

// These stand before the C library's in this program and count what a thread locks, also where it does not have to
// wait.
#define RAVELCORE_COUNTS_LOCK(name, type)                                           \
    extern "C" __attribute__((visibility("default"))) int name(type* lock) noexcept \
    {                                                                               \
        static auto* const real = Real<int(type*)>(#name);                          \
        ++t_locks;                                                                  \
        return real(lock);                                                          \
    }
RAVELCORE_COUNTS_LOCK(pthread_mutex_lock, pthread_mutex_t)
RAVELCORE_COUNTS_LOCK(pthread_mutex_trylock, pthread_mutex_t)
RAVELCORE_COUNTS_LOCK(pthread_rwlock_rdlock, pthread_rwlock_t)
RAVELCORE_COUNTS_LOCK(pthread_rwlock_wrlock, pthread_rwlock_t)
#undef RAVELCORE_COUNTS_LOCK

namespace lumo::ravelcore {
namespace {

TEST(RecorderLockTest, LocksAreCounted)
{
    std::mutex mutex;
    std::shared_mutex shared_mutex;
    const int before = t_locks;
    {
        const std::lock_guard<std::mutex> lock(mutex);
    }
    EXPECT_TRUE(mutex.try_lock());
    mutex.unlock();
    {
        const std::shared_lock<std::shared_mutex> lock(shared_mutex);
    }
    {
        const std::unique_lock<std::shared_mutex> lock(shared_mutex);
    }
    EXPECT_EQ(t_locks - before, 4);
    const test::LogCapture log("ravelcore");
    const int before_line = t_locks;
    GetLogger().log(log4cplus::DEBUG_LOG_LEVEL, "a line");
    EXPECT_GT(t_locks, before_line) << "also those that a library takes";
}

TEST(RecorderLockTest, AddSampleTakesNoLock)
{
    const test::LogCapture log("ravelcore", log4cplus::DEBUG_LOG_LEVEL);
    const std::vector<float> sample(60, 1.0F);
    Recorder filling("filling");
    Recorder wrapping("wrapping");
    Recorder decimating("decimating");
    for (Recorder* const recorder : {&filling, &wrapping, &decimating}) {
        recorder->Init(10, 60);
        recorder->Start(recorder != &filling, recorder == &decimating ? 3 : 0);
    }
    const int before = t_locks;
    for (int call = 0; call < 100; ++call) {
        filling.AddSample(call, sample.data());
        wrapping.AddSample(call, sample.data());
        decimating.AddSample(call, sample.data());
    }
    EXPECT_EQ(t_locks, before);
    EXPECT_FALSE(filling.IsStarted());
    EXPECT_EQ(wrapping.GetIndex(), 9);
    EXPECT_EQ(decimating.GetIndex(), 2);  // 33 recorded, in slots 0 to 9 over and over
}

}  // namespace
}  // namespace lumo::ravelcore
