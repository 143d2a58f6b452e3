#include "support/handshakeController.hpp"
#include "support/logCapture.hpp"
#include "support/logHook.hpp"
#include "support/scriptedTask.hpp"

#include <lumo/ravelcore/activityWorker.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <array>
#include <chrono>
#include <mutex>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

namespace {

/// What a worker did, in order, in which thread, and by which name that thread went in the system then.
struct Step
{
    std::string what;
    std::thread::id thread;
    std::string thread_name;
};

/// How a failed expectation shows it.
void PrintTo(const Step& step, std::ostream* out)
{
    *out << step.thread_name << ": " << step.what;
}

std::mutex g_steps_mutex;
std::vector<Step> g_steps;  // guarded by g_steps_mutex
int g_numa_available = 0;   // what numa_available answers

void Note(const std::string& what)
{
    std::array<char, 16> name{};
    pthread_getname_np(pthread_self(), name.data(), name.size());
    const std::lock_guard<std::mutex> lock(g_steps_mutex);
    g_steps.push_back({what, std::this_thread::get_id(), name.data()});
}

}  // namespace

// These stand in for the functions of the two libraries in this whole program.
extern "C" {
__attribute__((visibility("default"))) int numa_available()
{
    return g_numa_available;
}

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
using test::LogHook;
using test::ScriptedTask;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::Field;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;

const std::string LOGGER = "placement";

/// A step in a thread that the system knows by this name.
auto Did(const std::string& thread_name, const testing::Matcher<std::string>& what)
{
    return AllOf(Field(&Step::thread_name, thread_name), Field(&Step::what, what));
}

class ActivityWorkerPlacementTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        g_steps.clear();
        g_numa_available = 0;
    }

    /// What a worker with this node does until its end after one cycle, log lines included. It is an activity with the
    /// id "worker" whose thread begins as "another".
    std::vector<Step> StepsOfAWorker(int numa_node)
    {
        HandshakeController controller;
        ScriptedTask task;
        const ActivityWorkerConfig config{
            "worker", 1, 0, -1, 0, numa_node, std::chrono::minutes(5), log4cplus::Logger::getInstance(LOGGER)};
        ActivityWorker sut(config, controller.Control(), task);
        sut.SetName("another");
        task.on_initialize = [] {
            Note("Initialize");
        };
        task.on_execute = [&](double /*time_stamp*/, bool /*first*/) {
            Note("Execute");
            sut.stop(nullptr);
        };
        controller.SetStartCounter(1);
        const LogHook hook(LOGGER, log4cplus::TRACE_LOG_LEVEL, Note);
        sut.StartThread();
        sut.JoinThread();
        for (const Step& step : g_steps) {
            EXPECT_NE(step.thread, std::this_thread::get_id()) << step.what;
            EXPECT_EQ(step.thread, g_steps.front().thread) << step.what;
        }
        return g_steps;
    }

    const testing::Matcher<std::string> m_entry_of_run =
        MatchesRegex("ravel/ravelcore/src/activityWorker\\.cpp Run [0-9]+");
    const std::vector<testing::Matcher<Step>> m_cycle = {
        Did("worker", "Initialize"),
        Did("worker", "Activity worker ready to start (readyCounter = 1)"),
        Did("worker", "Activity worker all threads received signal to start, reset start_counter = 0"),
        Did("worker", "Activity worker working on task ScriptedTask"),
        Did("worker", "Execute"),
        Did("worker", "Activity worker terminated.")};

    /// These steps, then those that follow for every worker.
    auto AndItsCycle(std::vector<testing::Matcher<Step>> steps) const
    {
        steps.insert(steps.end(), m_cycle.begin(), m_cycle.end());
        return testing::ElementsAreArray(steps);
    }
};

TEST_F(ActivityWorkerPlacementTest, EntryLineThenOneThreadForTheBlasThenTheNodeThenTheNameThenItsLineThenTheTask)
{
    EXPECT_THAT(
        StepsOfAWorker(2),
        AndItsCycle({Did("another", m_entry_of_run), Did("another", "openblas_set_num_threads(1)"),
                     Did("another", "numa_set_preferred(2)"),
                     Did("worker", "Activity worker running (Thread name worker, CPU -1, NUMA 2, Priority 0).")}));
}

TEST_F(ActivityWorkerPlacementTest, NodeZeroIsANodeLikeAnyOther)
{
    EXPECT_THAT(
        StepsOfAWorker(0),
        AndItsCycle({Did("another", m_entry_of_run), Did("another", "openblas_set_num_threads(1)"),
                     Did("another", "numa_set_preferred(0)"),
                     Did("worker", "Activity worker running (Thread name worker, CPU -1, NUMA 0, Priority 0).")}));
}

TEST_F(ActivityWorkerPlacementTest, NegativeNodeLeavesTheMemoryPolicyAloneAlsoWithoutNuma)
{
    for (const int available : {0, -1}) {
        g_steps.clear();
        g_numa_available = available;
        EXPECT_THAT(
            StepsOfAWorker(-1),
            AndItsCycle({Did("another", m_entry_of_run), Did("another", "openblas_set_num_threads(1)"),
                         Did("worker", "Activity worker running (Thread name worker, CPU -1, NUMA -1, Priority 0).")}));
    }
}

TEST_F(ActivityWorkerPlacementTest, NodeOnASystemWithoutNumaIsAWarningAndTheWorkerGoesOn)
{
    g_numa_available = -1;
    const std::string warning =
        "Activity worker cannot prefer NUMA node 2: the system has no NUMA support; configure node -1";
    const LogCapture log(LOGGER);
    EXPECT_THAT(
        StepsOfAWorker(2),
        AndItsCycle({Did("another", m_entry_of_run), Did("another", "openblas_set_num_threads(1)"),
                     Did("another", warning),
                     Did("worker", "Activity worker running (Thread name worker, CPU -1, NUMA 2, Priority 0).")}));
    EXPECT_THAT(log.Messages(log4cplus::WARN_LOG_LEVEL), ElementsAre(warning));
}

TEST_F(ActivityWorkerPlacementTest, NodeOnASystemWithNumaIsNoWarning)
{
    const LogCapture log(LOGGER);
    StepsOfAWorker(2);
    EXPECT_THAT(log.Messages(log4cplus::WARN_LOG_LEVEL), IsEmpty());
}

}  // namespace
}  // namespace lumo::ravelcore
