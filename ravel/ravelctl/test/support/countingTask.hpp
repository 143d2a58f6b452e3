#pragma once

#include "cycleGate.hpp"
#include "workerGroup.hpp"

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace lumo::ravelctl::test {

/// Does nothing but pass the gate and count; throws where it is told to.
class CountingTask : public ravelcore::Task
{
public:
    CountingTask(CycleGate& gate, const std::string& name) : Task(name), m_gate(gate) {}

    void Initialize() override
    {
        if (fails_in_initialize) {
            throw std::runtime_error("no memory for " + GetName());
        }
    }

    void Configure(const std::map<std::string, std::string>& /*cfg*/) override {}

    void Execute(double /*time_stamp*/, bool /*first*/) override
    {
        ++executions;
        m_gate.Enter();
        if (executions == fails_in_execution) {
            throw std::runtime_error("sensor lost by " + GetName());
        }
        m_gate.AwaitAll(static_cast<std::uint32_t>(executions));
    }

    std::int64_t executions = 0;
    std::int64_t fails_in_execution = -1;
    bool fails_in_initialize = false;

private:
    CycleGate& m_gate;
};

/// Tasks with their gate.
struct Tasks
{
    explicit Tasks(int count) : gate(count)
    {
        for (int i = 0; i < count; ++i) {
            all.push_back(std::make_unique<CountingTask>(gate, "task" + std::to_string(i)));
        }
    }

    std::vector<ravelcore::Task*> Get() const
    {
        std::vector<ravelcore::Task*> tasks;
        for (const auto& task : all) {
            tasks.push_back(task.get());
        }
        return tasks;
    }

    CycleGate gate;
    std::vector<std::unique_ptr<CountingTask>> all;
};

inline std::unique_ptr<WorkerGroup> MakeGroup(const std::vector<ravelcore::Task*>& tasks,
                                              std::chrono::milliseconds timeout)
{
    return std::make_unique<WorkerGroup>(tasks, std::vector<Placement>(tasks.size()), timeout,
                                         log4cplus::Logger::getInstance("workerGroupTest"));
}

}  // namespace lumo::ravelctl::test
