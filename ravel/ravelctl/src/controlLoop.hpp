#pragma once

#include "commandLimiter.hpp"
#include "cycleClock.hpp"
#include "cycleRequests.hpp"
#include "durations.hpp"
#include "liveParameters.hpp"
#include "recordings.hpp"
#include "referenceInjection.hpp"
#include "runOptions.hpp"
#include "simulatedFrontEnd.hpp"
#include "sliceSet.hpp"
#include "surfaceLog.hpp"
#include "workerGroup.hpp"

#include <atomic>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

namespace lumo::ravelctl {

/// What other threads may look at while the loop runs. Each figure is whole; they may be of different cycles.
struct LoopProgress
{
    std::atomic<std::int64_t> cycles_done{0};
    std::atomic<std::int64_t> missed{0};
    std::atomic<double> cycle_time_us{0.0};      // of the last cycle
    std::atomic<double> max_cycle_time_us{0.0};  // of all
    std::atomic<double> residual_nm{0.0};        // rms of the controlled modes as measured, over the surface
    std::atomic<bool> closed{false};

    static_assert(std::atomic<double>::is_always_lock_free && std::atomic<std::int64_t>::is_always_lock_free);
};

/// What a loop may also be given; nothing is owned, everything outlives the loop.
struct LoopExtras
{
    Recordings* recordings = nullptr;         // is told every cycle
    ReferenceInjection* injection = nullptr;  // is added to the references once they have been led to 0
    LiveParameters* parameters = nullptr;     // its references are added
    CycleRequests* requests = nullptr;        // is asked between cycles
};

/// The cycle thread's work: paces the cycles, exchanges with the front end, starts the workers, combines, limits and
/// sends what they computed.
///
/// The loop is open at first: the commands are held where the actuators stand, the modes are measured and recorded.
/// When it closes, the measured modes become the references, which are then led to 0 on half a cosine; what the extras
/// give is added. The part of the actuators' positions that no controlled mode describes is held for the whole run.
class ControlLoop
{
public:
    /// The references must outlive the loop. Takes all memory that the cycles need.
    ControlLoop(const LoopPlan& plan, const mirrorsim::ControlModes& modes, SimulatedFrontEnd& front_end,
                SliceSet& slices, WorkerGroup& workers, const LoopExtras& extras = {});

    /// Runs the planned cycles, or until `is_stopped` says so. The workers must be ready.
    /// Thread:    the cycle's.
    /// Real time: yes, with the loop closed as well as open: no allocation, no lock but the handshake's.
    /// Failure:   RunError for a lost worker.
    void Run(const std::function<bool()>& is_stopped);

    const LoopProgress& GetProgress() const { return m_progress; }

    // Thread: a slow one, after Run.

    const Durations& GetCycleTimes() const { return m_cycle_times; }
    const Durations& GetExecTimes() const { return m_exec_times; }
    const SurfaceLog& GetSurfaceLog() const { return m_surface_log; }
    const CommandLimiter& GetLimiter() const { return m_limiter; }

    /// For each missed instant the cycle that came after it, ascending; a cycle stands there as often as it was late.
    const std::vector<std::int64_t>& GetMissedBefore() const { return m_missed_before; }

    /// Each cycle's rms, nm: of the controlled modes as measured, over the surface; of the edge sensors' readings.
    const std::vector<float>& GetResidualsNm() const { return m_residuals_nm; }
    const std::vector<float>& GetEsRmsNm() const { return m_es_rms_nm; }

    /// Rms of the edge sensors' readings, um, over existing sensors and the cycles of the open loop, or those judged;
    /// none where there was no such cycle.
    std::optional<double> GetOpenEsRms() const { return m_open_es.ComputeRms(); }
    std::optional<double> GetJudgedEsRms() const { return m_judged_es.ComputeRms(); }

private:
    struct EsSquares
    {
        double sum = 0.0;
        std::int64_t cycles = 0;

        void Add(const EsSquares& other);
        std::optional<double> ComputeRms() const;
    };

    void RunCycle(std::int64_t cycle);
    void Command(std::int64_t cycle);
    void SetReferences(std::int64_t cycle);
    float LeadFraction(std::int64_t since_closing) const;
    bool AddOffsets(bool is_led);
    void Observe(std::int64_t cycle);
    void Book(std::int64_t cycle, CycleClock::Clock::time_point instant);

    const LoopPlan m_plan;
    SimulatedFrontEnd& m_front_end;
    SliceSet& m_slices;
    WorkerGroup& m_workers;
    const LoopExtras m_extras;
    CycleClock m_clock;
    std::vector<float> m_start_um;    // commands while the loop is open
    std::vector<float> m_held_um;     // what no controlled mode describes of them
    std::vector<float> m_wanted_um;   // commands before they are limited
    std::vector<float> m_offsets_um;  // added to the references
    bool m_has_offsets = false;
    CommandLimiter m_limiter;
    std::vector<std::int64_t> m_missed_before;
    Durations m_cycle_times;
    Durations m_exec_times;
    SurfaceLog m_surface_log;
    std::vector<float> m_residuals_nm;
    std::vector<float> m_es_rms_nm;
    EsSquares m_open_es;
    EsSquares m_judged_es;
    LoopProgress m_progress;
};

}  // namespace lumo::ravelctl
