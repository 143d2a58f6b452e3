#include "support/handshakeController.hpp"
#include "support/logCapture.hpp"
#include "support/scriptedTask.hpp"

#include <lumo/ravelcore/activityWorker.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace {

/// What a worker did, in order, and in which thread.
struct Step
{
    std::string what;
    std::thread::id thread = std::this_thread::get_id();
};

std::mutex g_steps_mutex;
std::vector<Step> g_steps;  // guarded by g_steps_mutex

void Note(const std::string& what)
{
    const std::lock_guard<std::mutex> lock(g_steps_mutex);
    g_steps.push_back({what});
}

}  // namespace

// These stand in for the functions of the two libraries in this whole program.
extern "C" {
__attribute__((visibility("default"))) void numa_set_preferred(int node)
{
    Note("numa_set_preferred(" + std::to_string(node) + ")");
}

__attribute__((visibility("default"))) void openblas_set_num_threads(int num_threads)
{
    Note("openblas_set_num_threads(" + std::to_string(num_threads) + ")");
}
}

namespace lumo::ravelcore {
namespace {

using test::HandshakeController;
using test::LogCapture;
using test::ScriptedTask;
using ::testing::ElementsAre;

class ActivityWorkerPlacementTest : public ::testing::Test
{
protected:
    /// What a worker with this node does until its first cycle has ended, in its own thread. Log lines are noted too.
    std::vector<std::string> StepsOfAWorker(int numa_node)
    {
        g_steps.clear();
        HandshakeController controller;
        ScriptedTask task;
        const ActivityWorkerConfig config{
            "worker", 1, 0, -1, 0, numa_node, std::chrono::minutes(5), log4cplus::Logger::getInstance("placement")};
        const LogCapture log("placement", log4cplus::INFO_LOG_LEVEL);
        ActivityWorker sut(config, controller.Control(), task);
        task.on_initialize = [&] {
            Note("Initialize after " + log.Messages(log4cplus::INFO_LOG_LEVEL).at(0));
        };
        task.on_execute = [&](double /*time_stamp*/, bool /*first*/) {
            Note("Execute");
            sut.stop(nullptr);
        };
        controller.SetStartCounter(1);
        sut.StartThread();
        const std::thread::id here = std::this_thread::get_id();
        sut.JoinThread();
        std::vector<std::string> names;
        for (const Step& step : g_steps) {
            EXPECT_NE(step.thread, here) << step.what;
            EXPECT_EQ(step.thread, g_steps.front().thread) << step.what;
            names.push_back(step.what);
        }
        return names;
    }
};

TEST_F(ActivityWorkerPlacementTest, BlasIsMadeSingleThreadedThenTheNodePreferredThenTheTaskInitialised)
{
    EXPECT_THAT(
        StepsOfAWorker(2),
        ElementsAre("openblas_set_num_threads(1)", "numa_set_preferred(2)",
                    "Initialize after Activity worker running (Thread name worker, CPU -1, NUMA 2, Priority 0).",
                    "Execute"));
}

TEST_F(ActivityWorkerPlacementTest, NodeZeroIsANodeLikeAnyOther)
{
    EXPECT_THAT(
        StepsOfAWorker(0),
        ElementsAre("openblas_set_num_threads(1)", "numa_set_preferred(0)",
                    "Initialize after Activity worker running (Thread name worker, CPU -1, NUMA 0, Priority 0).",
                    "Execute"));
}

TEST_F(ActivityWorkerPlacementTest, NegativeNodeLeavesTheMemoryPolicyAlone)
{
    EXPECT_THAT(
        StepsOfAWorker(-1),
        ElementsAre("openblas_set_num_threads(1)",
                    "Initialize after Activity worker running (Thread name worker, CPU -1, NUMA -1, Priority 0).",
                    "Execute"));
}

}  // namespace
}  // namespace lumo::ravelcore
