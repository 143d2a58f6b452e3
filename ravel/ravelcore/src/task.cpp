#include <lumo/ravelcore/logger.hpp>
#include <lumo/ravelcore/names.hpp>
#include <lumo/ravelcore/task.hpp>

namespace lumo::ravelcore {

Task::Task(const std::string& name)
    : m_name(name),
      m_logger(log4cplus::Logger::getInstance(LOGGER_RAVELCORE + "." + name)),
      m_exec_time(0),
      m_max_exec_time(0)
{
    RAVELCORE_TRACE_ENTRY(m_logger);
}

Task::~Task()
{
    RAVELCORE_TRACE_ENTRY(m_logger);
}

const std::string& Task::GetName() const
{
    RAVELCORE_TRACE_ENTRY(m_logger);
    return m_name;
}

std::chrono::nanoseconds Task::GetExecTime() const
{
    RAVELCORE_TRACE_ENTRY(m_logger);
    return std::chrono::nanoseconds(m_exec_time.load());
}

std::chrono::nanoseconds Task::GetMaxExecTime() const
{
    RAVELCORE_TRACE_ENTRY(m_logger);
    return std::chrono::nanoseconds(m_max_exec_time.load());
}

void Task::UpdateExecTime(std::chrono::steady_clock::time_point start)
{
    const std::int64_t duration =
        std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now() - start).count();
    m_exec_time.exchange(duration);
    // No compare-and-swap loop is needed: the worker is the only writer, readers only need whole values.
    if (duration > m_max_exec_time.load()) {
        m_max_exec_time.exchange(duration);
    }
}

}  // namespace lumo::ravelcore
