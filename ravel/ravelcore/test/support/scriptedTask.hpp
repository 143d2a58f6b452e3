#pragma once

#include <lumo/ravelcore/task.hpp>

#include <functional>
#include <map>
#include <string>

namespace lumo::ravelcore::test {

/// A task that does what the test says. The hooks are set before a worker runs; an empty one does nothing.
class ScriptedTask : public Task
{
public:
    explicit ScriptedTask(const std::string& name = "ScriptedTask") : Task(name) {}

    void Initialize() override
    {
        if (on_initialize) {
            on_initialize();
        }
    }

    void Configure(const std::map<std::string, std::string>& /*cfg*/) override
    {
        if (on_configure) {
            on_configure();
        }
    }

    void Execute(double time_stamp, bool first) override
    {
        if (on_execute) {
            on_execute(time_stamp, first);
        }
    }

    std::function<void()> on_initialize;
    std::function<void()> on_configure;
    std::function<void(double time_stamp, bool first)> on_execute;
};

}  // namespace lumo::ravelcore::test
