#pragma once

#include "cycleGate.hpp"
#include "ownThread.hpp"

#include <lumo/ravelcore/recorder.hpp>
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
/// It stands between worker and TaskEdc for four reasons: the worker hands its task a constant time stamp; the cycle
/// in which the loop closes is the application's decision, not the worker's first one; the gate makes every start
/// execute every task exactly once; and what the channels were given beside the measured modes is recorded, so that
/// they can be computed once more from a run's files.
class SliceTask : public ravelcore::Task
{
public:
    /// Loads matrices and gains into the freshly initialised task.
    using SetUp = std::function<void(ravelcore::TaskEdc&)>;

    /// Where the channels' references and anti-windup inputs of each cycle go; as large as the task's own recorders.
    struct Recorders
    {
        ravelcore::Recorder& ref;
        ravelcore::Recorder& arw;
    };

    /// All references must outlive the task. `set_up` runs in the worker's thread, so the storage is on its NUMA node
    /// (but for a matrix that was exchanged while the loop ran).
    SliceTask(ravelcore::TaskEdc& edc, const Recorders& recorders, CycleGate& gate, const CycleInput& input,
              SetUp set_up);

    void Initialize() override;
    void Configure(const std::map<std::string, std::string>& cfg) override;
    void Execute(double time_stamp, bool first) override;

    // Thread: a slow one. The place once the task is initialised, the faults once the group has been stopped.

    const GrantedPlace& GetPlace() const { return m_place; }

    /// Page faults of the worker's thread in its cycles; -1 where it was lost before their end.
    std::int64_t GetPageFaults() const { return m_page_faults; }

private:
    ravelcore::TaskEdc& m_edc;
    Recorders m_recorders;
    CycleGate& m_gate;
    const CycleInput& m_input;
    SetUp m_set_up;
    std::uint32_t m_cycle = 0;
    GrantedPlace m_place;
    std::int64_t m_faults_before = 0;
    std::int64_t m_page_faults = -1;
};

}  // namespace lumo::ravelctl
