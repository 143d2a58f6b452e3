#pragma once

#include <signal.h>

#include <condition_variable>
#include <mutex>
#include <thread>

namespace lumo::ravelctl {

/// From now on output that nobody reads and a file beyond the size limit are errors of the write, not the end of the
/// process.
void SurviveFailedWrites();

/// From now on output that nobody reads ends the process, quietly: the custom of what stands before a pipe.
void EndWhenNobodyReads();

/// Ctrl-C, the polite kill and a closed terminal as something that leaves no half-written file. A signal that the
/// parent process had ignored, as nohup does, stays ignored. Failed writes are survived as well.
///
/// One per process. Construct it before the application starts any thread: the signals are then blocked in all of
/// these. Threads of libraries are older, they may take a signal; what they then do is to note it.
class StopSignals
{
public:
    enum class Effect
    {
        EndProcess,  // at once, with EXIT_INTERRUPTED and without what is unfinished
        Note,        // Await tells; nothing breaks in and takes recorded data with it
    };

    explicit StopSignals(Effect effect);
    ~StopSignals();

    StopSignals(const StopSignals&) = delete;
    StopSignals& operator=(const StopSignals&) = delete;

    /// What a signal does from now on. One that has come before has had its effect. Thread: a slow one.
    void SetEffect(Effect effect);

    /// Waits up to 100 ms for one of the signals to be noted; true once one has been. Thread: one slow one.
    bool Await();

private:
    void Watch();

    sigset_t m_signals{};
    std::mutex m_mutex;
    std::condition_variable m_changed;
    Effect m_effect;
    bool m_noted = false;
    bool m_over = false;
    std::thread m_watcher;
};

}  // namespace lumo::ravelctl
