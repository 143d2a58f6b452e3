#pragma once

#include <brisk/export.hpp>
#include <chartkit/activity.hpp>
#include <chartkit/context.hpp>

#include <pthread.h>

#include <atomic>
#include <mutex>
#include <string>

namespace brisk {

/// An activity that has a thread: what is common to all of them is the request to stop and the thread's name.
class BRISK_API ThreadBaseActivity : public chartkit::Activity
{
public:
    ~ThreadBaseActivity() override;

    /// Starts the activity's thread if it is not running. `context` may be null; it is not kept.
    virtual void start(chartkit::Context* context) = 0;

    /// Asks the activity to end, and returns; it does not wait for the thread.
    /// A request made before the first start, or between a join and the next start, holds for the run that follows.
    /// Thread:    any, also while no thread runs.
    /// Real time: yes.
    /// Data:      `context` may be null; it is not used.
    virtual void stop(chartkit::Context* context);

    /// Whether the activity has been asked to end. Stays true after the end, until the next start.
    /// Thread: any; Run() polls it. Real time: yes.
    bool IsStopRequested() const noexcept;

    /// What GetName returns from now on; at first it is the id. A running thread is renamed at once, another when it
    /// starts. The system's own name of a thread (as in top and gdb) is cut off after 15 bytes.
    /// Thread:    any, the activity's own included.
    /// Real time: no (lock, system call).
    /// Failure:   a name that the system refuses is one WARN line on log4cplus logger "brisk".
    void SetName(const std::string& name);

    /// Thread: any. Real time: no (lock, copy).
    std::string GetName() const;

protected:
    explicit ThreadBaseActivity(const std::string& name);

    /// First and last thing that the activity's thread does; between the two, SetName reaches it.
    void BeginThread();
    void EndThread() noexcept;

    /// A stop request ends with the thread that it was made for: the join makes it old, the next start forgets it.
    void AgeStopRequest() noexcept;
    void ForgetOldStopRequest() noexcept;

private:
    enum class StopRequest
    {
        None,
        Pending,
        Old  // of a thread that has been joined
    };

    int NameThread() const;
    void ReportRefusedName(int error, const std::string& name) const;

    std::atomic<StopRequest> m_stop_request{StopRequest::None};
    mutable std::mutex m_name_mutex;  // guards all below
    std::string m_name;
    bool m_has_thread = false;
    pthread_t m_thread{};  // valid while m_has_thread

    static_assert(decltype(m_stop_request)::is_always_lock_free);
};

}  // namespace brisk
