#pragma once

#include <lumo/ravelcore/export.hpp>

#include <log4cplus/logger.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <map>
#include <string>

namespace lumo::ravelcore {

/// A piece of real-time work: initialised once, then executed once per cycle by an ActivityWorker.
/// Owned by the application, which keeps it alive until its worker has been joined.
class RAVELCORE_API Task
{
public:
    virtual ~Task();

    Task(const Task&) = delete;
    Task& operator=(const Task&) = delete;

    /// Allocates and zeroes the working storage for the current sizes.
    /// Thread:    the worker's, before its first cycle, or the owner's while no cycle runs.
    /// Real time: no.
    virtual void Initialize() = 0;

    /// Takes the keys that concern the task and ignores all others; an absent key leaves its value as it was.
    /// Thread:    the owner's, while no cycle runs.
    /// Real time: no.
    /// Failure:   std::invalid_argument or std::out_of_range of std::stoi for a value that is no int.
    virtual void Configure(const std::map<std::string, std::string>& cfg) = 0;

    /// One cycle of work.
    /// Thread:    the worker's.
    /// Real time: yes: no allocation, no lock, no file; text only where the log level is on.
    /// Data:      `time_stamp` in seconds; `first` is true on the first call after the worker has started only.
    virtual void Execute(double time_stamp, bool first) = 0;

    /// The name given at construction. Thread: any. Real time: yes.
    const std::string& GetName() const;

    /// Duration of the most recent Execute; 0 before the first. Thread: any. Real time: yes.
    std::chrono::nanoseconds GetExecTime() const;

    /// Longest Execute since construction. Thread: any. Real time: yes.
    std::chrono::nanoseconds GetMaxExecTime() const;

protected:
    explicit Task(const std::string& name);

    /// Books the duration of an Execute that began at `start` and ends now. Every Execute that completes calls it last.
    /// Thread: the worker's. Real time: yes.
    void UpdateExecTime(std::chrono::steady_clock::time_point start);

    std::string m_name;
    log4cplus::Logger m_logger;

private:
    std::atomic<std::int64_t> m_exec_time;      // ns
    std::atomic<std::int64_t> m_max_exec_time;  // ns

    static_assert(std::atomic<std::int64_t>::is_always_lock_free);
};

}  // namespace lumo::ravelcore
