#pragma once

#include "handshakeController.hpp"
#include "scriptedTask.hpp"
#include "startGate.hpp"

#include <lumo/ravelcore/activityWorker.hpp>

#include <log4cplus/logger.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace lumo::ravelcore::test {

/// A group of workers with one counting task each, the gate and the controller's side of the handshake.
/// Thread: one controller thread.
class WorkerGroup
{
public:
    /// `work` is what task number i does in each cycle besides passing the gate; may be empty.
    WorkerGroup(int num_workers, const log4cplus::Logger& logger, const std::function<void(int i)>& work = {})
        : m_gate(num_workers), m_counts(static_cast<std::size_t>(num_workers), Count{})
    {
        for (int i = 0; i < num_workers; ++i) {
            m_tasks.push_back(std::make_unique<ScriptedTask>());
            m_tasks.back()->on_execute = [this, i, work](double /*time_stamp*/, bool /*first*/) {
                m_gate.Pass();
                if (work) {
                    work(i);
                }
                ++m_counts[static_cast<std::size_t>(i)].executed;
            };
            const ActivityWorkerConfig config{"worker" + std::to_string(i), num_workers, i, -1, 0, -1,
                                              std::chrono::minutes(5),      logger};
            m_workers.push_back(std::make_unique<ActivityWorker>(config, m_controller.Control(), *m_tasks.back()));
        }
    }

    ~WorkerGroup() { Stop(); }

    WorkerGroup(const WorkerGroup&) = delete;
    WorkerGroup& operator=(const WorkerGroup&) = delete;

    void Start()
    {
        for (const auto& worker : m_workers) {
            worker->StartThread();
        }
        m_running = true;
    }

    [[nodiscard]] bool AwaitReady() { return m_controller.AwaitReady(GetNumWorkers()); }
    void GiveStart() { m_controller.GiveStart(); }

    /// Ends the workers by a last start, in which each executes its task once more, and joins them. All must be ready.
    void Stop()
    {
        if (!m_running) {
            return;
        }
        m_running = false;
        for (const auto& worker : m_workers) {
            worker->stop(nullptr);
        }
        GiveStart();
        for (const auto& worker : m_workers) {
            worker->JoinThread();
        }
    }

    HandshakeController& Controller() { return m_controller; }
    int GetNumWorkers() const { return static_cast<int>(m_workers.size()); }

    /// How often task i has been executed; while the group runs, to be read between AwaitReady and GiveStart.
    std::int64_t GetCount(int i) const { return m_counts[static_cast<std::size_t>(i)].executed; }

private:
    struct alignas(64) Count  // a cache line each: the workers do not disturb one another
    {
        std::int64_t executed = 0;
    };

    HandshakeController m_controller;
    StartGate m_gate;
    std::vector<Count> m_counts;
    std::vector<std::unique_ptr<ScriptedTask>> m_tasks;
    std::vector<std::unique_ptr<ActivityWorker>> m_workers;
    bool m_running = false;
};

}  // namespace lumo::ravelcore::test
