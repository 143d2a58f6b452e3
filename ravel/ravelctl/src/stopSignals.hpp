#pragma once

#include <signal.h>

namespace lumo::ravelctl {

/// From now on output that nobody reads and a file beyond the size limit are errors of the write, not the end of the
/// process.
void SurviveFailedWrites();

/// Ctrl-C, the polite kill and a closed terminal as something to ask for, instead of something that breaks in and takes
/// the recorded data with it. A signal that the parent process had ignored, as nohup does, stays ignored. Failed
/// writes are survived as well.
///
/// One per process. Construct it before the application starts any thread: the signals are then blocked in all of
/// these. Threads of libraries are older, they may take a signal; what they then do is to note it.
class StopSignals
{
public:
    StopSignals();

    /// Waits up to 100 ms for one of the signals; true once one has come. Thread: one slow one.
    bool Await();

private:
    sigset_t m_signals;
};

}  // namespace lumo::ravelctl
