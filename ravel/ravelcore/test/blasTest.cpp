#include "support/edcRig.hpp"
#include "support/handshakeController.hpp"
#include "support/logCapture.hpp"

#include <lumo/ravelcore/activityWorker.hpp>
#include <lumo/ravelcore/names.hpp>
#include <lumo/ravelcore/taskSgemv.hpp>

#include <cblas.h>
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <deque>
#include <memory>
#include <string>

// What the library makes of the BLAS that it finds: a build without threads, and its work buffers.

namespace {

std::atomic<int> g_parallel = OPENBLAS_THREAD;

// Buffers of the BLAS that this thread holds, and the most that it has held since the test looked.
constinit thread_local int t_held = 0;
constinit thread_local int t_most_held = 0;

template <typename Function>
Function* Real(const char* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

// These stand in for the BLAS's functions in this whole program, for its own calls too: the buffers are those of the
// BLAS. A build of it that has no such functions never sees a buffer of ours.
extern "C" {
__attribute__((visibility("default"))) int openblas_get_parallel()
{
    return g_parallel;
}

__attribute__((visibility("default"))) void* blas_memory_alloc(int purpose)
{
    constexpr std::size_t MORE_THAN_IS_TOUCHED = std::size_t{1} << 20U;
    static auto* const real = Real<void*(int)>("blas_memory_alloc");
    t_most_held = std::max(t_most_held, ++t_held);
    return real != nullptr ? real(purpose) : std::malloc(MORE_THAN_IS_TOUCHED);
}

__attribute__((visibility("default"))) void blas_memory_free(void* buffer)
{
    static auto* const real = Real<void(void*)>("blas_memory_free");
    --t_held;
    real != nullptr ? real(buffer) : std::free(buffer);
}
}

namespace lumo::ravelcore {
namespace {

using test::EdcRig;
using test::HandshakeController;
using test::LogCapture;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

// ---- a BLAS without threads ----------------------------------------------------------------------------------------

/// Starts a worker that ends before its first cycle.
void PrepareAWorker()
{
    const LogCapture log("blasTest");
    HandshakeController controller;
    TaskSgemv task(1, 1);
    const ActivityWorkerConfig config{
        "worker", 2, 0, -1, 0, -1, std::chrono::minutes(5), log4cplus::Logger::getInstance("blasTest")};
    ActivityWorker worker(config, controller.Control(), task);
    worker.stop(nullptr);
    worker.Run();
}

TEST(BlasTest, OneBuiltWithoutThreadsIsWarnedOfOnceInTheProcessAndOneWithThreadsNever)
{
    const LogCapture log(LOGGER_RAVELCORE);
    for (const int parallel : {OPENBLAS_THREAD, OPENBLAS_OPENMP}) {
        g_parallel = parallel;
        PrepareAWorker();
    }
    EXPECT_THAT(log.Messages(log4cplus::WARN_LOG_LEVEL), IsEmpty());
    g_parallel = OPENBLAS_SEQUENTIAL;
    PrepareAWorker();
    PrepareAWorker();
    EXPECT_THAT(log.Messages(log4cplus::WARN_LOG_LEVEL),
                ElementsAre("Expected a BLAS built with threads but found " + std::string(openblas_get_config()) +
                            ": products of two workers at once can be wrong. Install one with threads."));
    g_parallel = OPENBLAS_THREAD;
}

// ---- its work buffers ----------------------------------------------------------------------------------------------

/// How many of the BLAS's buffers this thread holds at once, at most, while the task is initialised.
int BuffersToInitialize(Task& task)
{
    t_most_held = 0;
    task.Initialize();
    EXPECT_EQ(t_held, 0) << "buffers that were not given back";
    return t_most_held;
}

TEST(BlasBuffersTest, EachTaskThatIsAliveTakesOneMore)
{
    std::deque<TaskSgemv> tasks;  // a task stays where it was made
    for (int alive = 1; alive <= 5; ++alive) {
        EXPECT_EQ(BuffersToInitialize(tasks.emplace_back(2, 3)), alive);
    }
    EdcRig rig(4, 5, 3);
    EXPECT_EQ(BuffersToInitialize(tasks.emplace_back(2, 3)), 7) << "a task of the other kind is one like any";
}

TEST(BlasBuffersTest, TaskThatIsInitialisedAgainTakesNoMore)
{
    TaskSgemv sut(2, 3);
    EXPECT_EQ(BuffersToInitialize(sut), 1);
    EXPECT_EQ(BuffersToInitialize(sut), 1);
    EdcRig rig(4, 5, 3);
    EXPECT_EQ(BuffersToInitialize(rig.sut), 2);
    EXPECT_EQ(BuffersToInitialize(sut), 2);
}

TEST(BlasBuffersTest, DestroyedTasksGiveTheirsBack)
{
    for (int round = 0; round < 3; ++round) {
        TaskSgemv one(2, 3);
        EXPECT_EQ(BuffersToInitialize(one), 1);
        auto rig = std::make_unique<EdcRig>(4, 5, 3);
        EXPECT_EQ(BuffersToInitialize(rig->sut), 2);
        rig.reset();
        EXPECT_EQ(BuffersToInitialize(one), 1);
    }
}

TEST(BlasBuffersTest, TaskThatWasNeverInitialisedTakesNone)
{
    const TaskSgemv idle(2, 3);
    TaskSgemv sut(2, 3);
    EXPECT_EQ(BuffersToInitialize(sut), 1);
}

TEST(BlasBuffersTest, TakeNoMoreThanTheBlasHasRoomFor)
{
    constexpr int MOST = 64;
    std::deque<TaskSgemv> tasks;
    for (int alive = 1; alive < MOST; ++alive) {
        tasks.emplace_back(2, 3).Initialize();
    }
    EXPECT_EQ(BuffersToInitialize(tasks.emplace_back(2, 3)), MOST);
    EXPECT_EQ(BuffersToInitialize(tasks.emplace_back(2, 3)), MOST);
}

}  // namespace
}  // namespace lumo::ravelcore
