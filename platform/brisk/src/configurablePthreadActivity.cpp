#include <brisk/configurablePthreadActivity.hpp>

namespace brisk {

ConfigurablePthreadActivity::ConfigurablePthreadActivity(const std::string& name, int cpu, int priority)
    : PthreadActivity(name, Placement{cpu, priority}), m_cpu(cpu), m_priority(priority)
{
}

ConfigurablePthreadActivity::~ConfigurablePthreadActivity() = default;

int ConfigurablePthreadActivity::GetCPU() const noexcept
{
    return m_cpu;
}

int ConfigurablePthreadActivity::GetPriority() const noexcept
{
    return m_priority;
}

}  // namespace brisk
