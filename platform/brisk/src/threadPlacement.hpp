#pragma once

#include <string>

namespace brisk {

/// Pins the calling thread to `cpu`; a negative one leaves it where the system likes.
/// Failure: what the system refuses is one WARN line in the name of `activity`, and the thread is as before.
void PinThread(const std::string& activity, int cpu);

/// Gives the calling thread SCHED_FIFO and `priority`; 0 and below leaves its scheduling alone.
/// Failure: as PinThread.
void PrioritizeThread(const std::string& activity, int priority);

}  // namespace brisk
