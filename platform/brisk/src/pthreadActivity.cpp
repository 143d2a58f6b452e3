#include "exceptionText.hpp"
#include "log.hpp"
#include "threadPlacement.hpp"

#include <brisk/exception.hpp>
#include <brisk/pthreadActivity.hpp>

#include <cxxabi.h>

#include <system_error>
#include <utility>

namespace brisk {

namespace {

void LogError(const std::string& message)
{
    auto logger = GetLogger();
    LOG4CPLUS_ERROR(logger, message);
}

}  // namespace

PthreadActivity::PthreadActivity(const std::string& name) : PthreadActivity(name, Placement{})
{
}

PthreadActivity::PthreadActivity(const std::string& name, const Placement& placement)
    : ThreadBaseActivity(name), m_placement(placement)
{
}

PthreadActivity::~PthreadActivity()
{
    if (m_running.load(std::memory_order_acquire)) {
        LogError(
            "Activity " + getId() +
            " is being destroyed while its thread is still running; waiting for the thread to end. Stop and join the "
            "activity before it is destroyed.");
        ThreadBaseActivity::stop(nullptr);
    }
    // A thread that cannot be joined would run on in a destroyed object.
    if (const int error = Reap(); error != 0) {
        LogError("Activity " + getId() + " is being destroyed and its thread cannot be joined: the system answered \"" +
                 std::generic_category().message(error) + "\". The process ends here.");
        std::terminate();
    }
}

void PthreadActivity::start(chartkit::Context* /*context*/)
{
    StartThread();
}

pthread_t PthreadActivity::GetNativeHandle() const
{
    return m_handle.load(std::memory_order_acquire);
}

bool PthreadActivity::IsThreadJoined() const
{
    return m_joined.load(std::memory_order_acquire);
}

void PthreadActivity::StartThread()
{
    // Before the lock: the activity's own thread may ask too, while somebody waits for its end and holds the lock.
    if (m_running.load(std::memory_order_acquire)) {
        return;
    }
    const std::lock_guard lock(m_life_mutex);
    if (m_running.load(std::memory_order_acquire)) {
        return;
    }
    ReapOrThrow();
    ForgetOldStopRequest();
    {
        const std::lock_guard exception_lock(m_exception_mutex);
        m_exception = nullptr;
    }

    m_running.store(true, std::memory_order_release);
    m_joined.store(false, std::memory_order_release);
    pthread_t handle{};
    const int error = pthread_create(&handle, nullptr, &PthreadActivity::ThreadMain, this);
    if (error != 0) {
        m_joined.store(true, std::memory_order_release);
        m_running.store(false, std::memory_order_release);
        throw Exception("Activity " + getId() + " asked for a thread and the system answered \"" +
                        std::generic_category().message(error) +
                        "\". Check the limits on threads (ulimit -u, pids.max) and on memory.");
    }
    m_handle.store(handle, std::memory_order_release);
}

void PthreadActivity::JoinThread()
{
    if (IsOwnThread()) {
        throw Exception("Activity " + getId() +
                        " was told to join its own thread, which would wait for ever. Join it from another thread.");
    }
    const std::lock_guard lock(m_life_mutex);
    ReapOrThrow();
}

void PthreadActivity::Initialize()
{
}

void PthreadActivity::Configure(const std::vector<std::string>& /*args*/)
{
}

std::exception_ptr PthreadActivity::GetThreadException() const
{
    const std::lock_guard lock(m_exception_mutex);
    return m_exception;
}

void* PthreadActivity::ThreadMain(void* activity)
{
    static_cast<PthreadActivity*>(activity)->RunGuarded();
    return nullptr;
}

// no_sanitize: a forced unwind has no C++ object behind the reference by which it is caught, and the handler uses none.
__attribute__((no_sanitize("null"))) void PthreadActivity::RunGuarded()
{
    // Run() may leave by its end, by an exception or by pthread_exit: this holds for all of them.
    struct Ending
    {
        PthreadActivity& activity;
        ~Ending()
        {
            activity.EndThread();
            // The last access to the activity: pairs with the loads in StartThread() and in the destructor.
            activity.m_running.store(false, std::memory_order_release);
        }
    };
    const Ending ending{*this};
    try {
        m_handle.store(pthread_self(), std::memory_order_release);  // the starter may be slower than Run()
        BeginThread();
        PinThread(getId(), m_placement.cpu);
        PrioritizeThread(getId(), m_placement.priority);
        Run();
    } catch (const abi::__forced_unwind&) {
        throw;  // pthread_exit and cancellation unwind the stack this way and must not be stopped
    } catch (...) {
        KeepCurrentException();
    }
}

void PthreadActivity::KeepCurrentException() noexcept
{
    {
        const std::lock_guard lock(m_exception_mutex);
        m_exception = std::current_exception();
    }
    try {
        LogError("The thread of activity " + getId() + " was ended by " + DescribeCurrentException() +
                 ". It stays ended until the activity is started again.");
    } catch (const std::exception&) {
        return;  // no memory for the line: the exception itself is kept, and the process lives on
    }
}

int PthreadActivity::Reap()
{
    if (m_joined.load(std::memory_order_acquire)) {
        return 0;
    }
    const int error = pthread_join(m_handle.load(std::memory_order_acquire), nullptr);
    if (error == 0) {
        m_handle.store(pthread_t{}, std::memory_order_release);
        AgeStopRequest();
        m_joined.store(true, std::memory_order_release);
    }
    return error;
}

void PthreadActivity::ReapOrThrow()
{
    if (const int error = Reap(); error != 0) {
        throw Exception("Activity " + getId() + " could not be joined: the system answered \"" +
                        std::generic_category().message(error) + "\". Check that no two threads wait for each other.");
    }
}

bool PthreadActivity::IsOwnThread() const
{
    return pthread_equal(m_handle.load(std::memory_order_acquire), pthread_self()) != 0;
}

}  // namespace brisk
