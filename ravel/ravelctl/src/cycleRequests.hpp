#pragma once

#include "liveParameters.hpp"
#include "recordings.hpp"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <limits>

namespace lumo::ravelctl {

/// What a slow thread asks of the cycle thread, which does it between two cycles: to take parameters over, to stop or
/// to start recording.
///
/// A request is announced with the cycle before which it is to be done, then prepared (files are loaded, buffers
/// filled), then armed. A paced loop never waits for it: what is armed late is done late. A loop that is not paced
/// waits, so that its result does not depend on how fast the slow thread was.
class CycleRequests
{
public:
    enum class Kind : int
    {
        None,
        TakeParameters,
        StopRecording,
        StartRecording
    };

    /// For Announce: there are no more requests.
    static constexpr std::int64_t NEVER = std::numeric_limits<std::int64_t>::max();

    /// What became of a request.
    struct Outcome
    {
        std::int64_t cycle = 0;                // before which it was done
        std::chrono::nanoseconds duration{0};  // for which it kept the cycle thread
    };

    /// The references must outlive this.
    CycleRequests(LiveParameters& parameters, Recordings& recordings, bool paced);

    // Thread: one slow one.

    /// Before which cycle the next request is to be done. Only when none is armed; the first before the cycle runs.
    void Announce(std::int64_t cycle);

    /// The request is ready; nothing of it may be touched until it is done.
    void Arm(Kind kind);

    /// Whether the armed request is done; what the cycle wrote is then visible here.
    bool IsDone() const { return m_armed.load(std::memory_order_acquire) == Kind::None; }

    /// Of the last request that is done.
    const Outcome& GetOutcome() const { return m_outcome; }

    /// The cycle that comes next, as the cycle thread has said it last. Thread: any.
    std::int64_t GetCycle() const { return m_cycle.load(std::memory_order_relaxed); }

    // Thread: the cycle's.

    /// Between two cycles: does what is due before `cycle`, and brings matrices nearer that are not due yet.
    /// `is_stopped` ends the waiting of a loop that is not paced.
    /// Real time: yes.
    void BeforeCycle(std::int64_t cycle, const std::function<bool()>& is_stopped);

private:
    Kind AwaitDue(std::int64_t cycle, const std::function<bool()>& is_stopped) const;
    bool Do(Kind kind);

    LiveParameters& m_parameters;
    Recordings& m_recordings;
    const bool m_paced;
    std::atomic<std::int64_t> m_cycle{0};
    std::atomic<std::int64_t> m_due{NEVER};
    std::atomic<Kind> m_armed{Kind::None};
    Outcome m_outcome;

    static_assert(std::atomic<std::int64_t>::is_always_lock_free && std::atomic<Kind>::is_always_lock_free);
};

}  // namespace lumo::ravelctl
