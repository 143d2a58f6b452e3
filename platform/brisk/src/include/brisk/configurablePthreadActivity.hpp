#pragma once

#include <brisk/export.hpp>
#include <brisk/pthreadActivity.hpp>

#include <string>

namespace brisk {

/// A thread activity with a place of its own: both wishes are put to the system on the new thread before Run() is
/// called. What the system refuses (no such CPU, no permission) is one WARN line each on log4cplus logger "brisk", and
/// the thread runs on without it.
class BRISK_API ConfigurablePthreadActivity : public PthreadActivity
{
public:
    /// `cpu` >= 0 pins the thread to that CPU, a negative one does not. `priority` > 0 asks for SCHED_FIFO with it, any
    /// other leaves the scheduling alone. Starts no thread. Real time: no.
    ConfigurablePthreadActivity(const std::string& name, int cpu, int priority);
    ~ConfigurablePthreadActivity() override;

    /// What was asked for, whether or not the system granted it. Thread: any. Real time: yes.
    int GetCPU() const noexcept;
    int GetPriority() const noexcept;

private:
    const int m_cpu;
    const int m_priority;
};

}  // namespace brisk
