#pragma once

#include <brisk/configurablePthreadActivity.hpp>

#include <functional>
#include <string>
#include <thread>
#include <utility>

namespace brisk::test {

/// An activity whose Run() is a function of the test. Stops and joins its thread before it is destroyed, as it should
/// be.
class TestActivity : public ConfigurablePthreadActivity
{
public:
    using Body = std::function<void(TestActivity&)>;

    explicit TestActivity(Body body) : TestActivity("sut", -1, 0, std::move(body)) {}

    TestActivity(const std::string& name, int cpu, int priority, Body body)
        : ConfigurablePthreadActivity(name, cpu, priority), m_body(std::move(body))
    {
    }

    ~TestActivity() override
    {
        TestActivity::stop(nullptr);
        TestActivity::JoinThread();
    }

    void Run() override { m_body(*this); }

private:
    Body m_body;
};

/// A Run() that goes on until it is told to stop.
inline void RunUntilStopped(const ThreadBaseActivity& activity)
{
    while (!activity.IsStopRequested()) {
        std::this_thread::yield();
    }
}

}  // namespace brisk::test
