#include "log.hpp"

#include <brisk/threadBaseActivity.hpp>

#include <system_error>

namespace brisk {

namespace {

constexpr std::size_t MAX_KERNEL_NAME_LENGTH = 15;  // TASK_COMM_LEN without its terminating zero

}  // namespace

ThreadBaseActivity::ThreadBaseActivity(const std::string& name) : chartkit::Activity(name), m_name(name)
{
}

ThreadBaseActivity::~ThreadBaseActivity() = default;

void ThreadBaseActivity::stop(chartkit::Context* /*context*/)
{
    // Publishes what the caller prepared for the end: pairs with the load in IsStopRequested().
    m_stop_request.store(StopRequest::Pending, std::memory_order_release);
}

bool ThreadBaseActivity::IsStopRequested() const noexcept
{
    return m_stop_request.load(std::memory_order_acquire) != StopRequest::None;
}

void ThreadBaseActivity::SetName(const std::string& name)
{
    int error = 0;
    {
        const std::lock_guard lock(m_name_mutex);
        m_name = name;
        error = NameThread();
    }
    ReportRefusedName(error, name);
}

std::string ThreadBaseActivity::GetName() const
{
    const std::lock_guard lock(m_name_mutex);
    return m_name;
}

void ThreadBaseActivity::BeginThread()
{
    int error = 0;
    std::string name;
    {
        const std::lock_guard lock(m_name_mutex);
        m_thread = pthread_self();
        m_has_thread = true;
        name = m_name;
        error = NameThread();
    }
    ReportRefusedName(error, name);
}

void ThreadBaseActivity::EndThread() noexcept
{
    const std::lock_guard lock(m_name_mutex);
    m_has_thread = false;
}

void ThreadBaseActivity::AgeStopRequest() noexcept
{
    StopRequest expected = StopRequest::Pending;
    m_stop_request.compare_exchange_strong(expected, StopRequest::Old);
}

void ThreadBaseActivity::ForgetOldStopRequest() noexcept
{
    StopRequest expected = StopRequest::Old;
    m_stop_request.compare_exchange_strong(expected, StopRequest::None);
}

int ThreadBaseActivity::NameThread() const
{
    return m_has_thread ? pthread_setname_np(m_thread, m_name.substr(0, MAX_KERNEL_NAME_LENGTH).c_str()) : 0;
}

void ThreadBaseActivity::ReportRefusedName(int error, const std::string& name) const
{
    if (error != 0) {
        auto logger = GetLogger();
        LOG4CPLUS_WARN(logger, "Activity "
                                   << getId() << " asked for the thread name \"" << name
                                   << "\" and the system answered \"" << std::generic_category().message(error)
                                   << "\"; the thread runs on under its old name. Check that /proc is mounted.");
    }
}

}  // namespace brisk
