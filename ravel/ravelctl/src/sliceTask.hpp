#pragma once

#include "cycleGate.hpp"

#include <lumo/ravelcore/task.hpp>
#include <lumo/ravelcore/taskEdc.hpp>

#include <atomic>
#include <cstdint>
#include <functional>

namespace lumo::ravelctl {

/// What the cycle thread tells every slice for the coming cycle; written between cycles only, but for `idle`.
struct CycleInput
{
    double sync_time_s = 0.0;       // synchronisation time, the recordings' time stamp
    bool first = false;             // the loop closes in this cycle: take the measured modes as references
    std::atomic<bool> idle{false};  // do nothing: the group is being stopped, perhaps in the middle of a cycle
};

/// Runs one TaskEdc over a slice of the modes with the cycle's synchronisation time.
///
/// It stands between worker and TaskEdc for three reasons: the worker hands its task a constant time stamp; the cycle
/// in which the loop closes is the application's decision, not the worker's first one; and the gate makes every start
/// execute every task exactly once.
class SliceTask : public ravelcore::Task
{
public:
    /// Loads matrices and gains into the freshly initialised task.
    using SetUp = std::function<void(ravelcore::TaskEdc&)>;

    /// All references must outlive the task. `set_up` runs in the worker's thread, so the storage is on its NUMA node.
    SliceTask(ravelcore::TaskEdc& edc, CycleGate& gate, const CycleInput& input, SetUp set_up);

    void Initialize() override;
    void Configure(const std::map<std::string, std::string>& cfg) override;
    void Execute(double time_stamp, bool first) override;

private:
    ravelcore::TaskEdc& m_edc;
    CycleGate& m_gate;
    const CycleInput& m_input;
    SetUp m_set_up;
    std::uint32_t m_cycle = 0;
};

}  // namespace lumo::ravelctl
