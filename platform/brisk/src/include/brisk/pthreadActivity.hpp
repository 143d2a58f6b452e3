#pragma once

#include <brisk/export.hpp>
#include <brisk/threadBaseActivity.hpp>

#include <pthread.h>

#include <atomic>
#include <exception>
#include <mutex>
#include <string>
#include <vector>

namespace brisk {

/// An activity whose Run() is the body of a POSIX thread.
///
/// The order of the virtual operations is fixed; new ones go after the last.
///
/// Life: construct, start, stop, join, destroy; after the join it may start again. Whoever owns the activity stops and
/// joins it before its destruction begins, because the thread runs code of the derived class. If that was forgotten,
/// the destructor of this class says so (ERROR on log4cplus logger "brisk"), asks the thread to stop and waits for it,
/// so that no thread outlives its activity. That is a last resort: it saves a Run() that has begun and uses nothing of
/// the derived class any more; it cannot save one that does, and it waits as long as Run() takes. An activity that is
/// destroyed in its own thread ends the process.
class BRISK_API PthreadActivity : public ThreadBaseActivity
{
public:
    /// Starts no thread. `name` is the id for good, and the thread's name until SetName. Real time: no.
    explicit PthreadActivity(const std::string& name);
    ~PthreadActivity() override;

    /// As StartThread. `context` may be null; it is not used.
    void start(chartkit::Context* context) override;

    /// The thread's handle from the start to the join, otherwise 0. Thread: any. Real time: yes.
    virtual pthread_t GetNativeHandle() const;

    /// Whether there is no thread left to join: before the first start and after each join. A thread whose Run() has
    /// returned still is to be joined.
    /// Thread: any. Real time: yes.
    virtual bool IsThreadJoined() const;

    /// Starts the thread, unless it is running already. One that has ended but was not joined is joined first.
    /// Forgets the exception of the run before, and the stop request that was made for it.
    /// Thread:    any.
    /// Real time: no.
    /// Failure:   brisk::Exception when the system gives no thread; none is running then, and it may be tried again.
    virtual void StartThread();

    /// Waits until the thread has ended. Without a thread, or when it has been joined already, returns at once.
    /// Thread:    any but the activity's own; several may wait at the same time.
    /// Real time: no.
    /// Failure:   brisk::Exception when the thread is told to wait for its own end.
    virtual void JoinThread();

    /// The body of the thread. A long one polls IsStopRequested(). An exception that leaves it ends the thread, not the
    /// process: it is logged at ERROR on log4cplus logger "brisk" and kept for GetThreadException().
    virtual void Run() = 0;

    /// For the application, to prepare the activity before its start. Nothing here calls it; does nothing by default.
    virtual void Initialize();

    /// For the application, to hand in arguments before the start. Nothing here calls it; does nothing by default.
    virtual void Configure(const std::vector<std::string>& args);

    /// The exception that left Run(), otherwise null. Kept until the next start.
    /// Thread: any; it is final once the thread has been joined. Real time: no (lock).
    std::exception_ptr GetThreadException() const;

protected:
    /// What is asked of the system for the thread before Run() is called; as in ConfigurablePthreadActivity.
    struct Placement
    {
        int cpu = -1;
        int priority = 0;
    };

    PthreadActivity(const std::string& name, const Placement& placement);

private:
    static void* ThreadMain(void* activity);
    void RunGuarded();
    void KeepCurrentException() noexcept;
    int Reap();
    void ReapOrThrow();
    bool IsOwnThread() const;

    const Placement m_placement;
    std::mutex m_life_mutex;               // one start or join at a time; never taken by the activity's own thread
    std::atomic<bool> m_running{false};    // from the start until Run() has returned
    std::atomic<bool> m_joined{true};      // there is no thread to join
    std::atomic<pthread_t> m_handle{};     // 0 when m_joined
    mutable std::mutex m_exception_mutex;  // guards m_exception
    std::exception_ptr m_exception;

    static_assert(std::atomic<bool>::is_always_lock_free && std::atomic<pthread_t>::is_always_lock_free);
};

}  // namespace brisk
