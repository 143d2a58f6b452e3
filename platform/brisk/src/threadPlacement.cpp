#include "threadPlacement.hpp"

#include "log.hpp"

#include <pthread.h>
#include <sched.h>

#include <system_error>

namespace brisk {

void PinThread(const std::string& activity, int cpu)
{
    if (cpu < 0) {
        return;
    }
    cpu_set_t cpus;
    CPU_ZERO(&cpus);
    // A number beyond CPU_SETSIZE (1024) is not entered at all; the system refuses the empty set as it does unknown
    // CPUs.
    CPU_SET(static_cast<std::size_t>(cpu), &cpus);
    const int error = pthread_setaffinity_np(pthread_self(), sizeof(cpus), &cpus);
    if (error != 0) {
        auto logger = GetLogger();
        LOG4CPLUS_WARN(logger, "Activity "
                                   << activity << " asked for CPU " << cpu << " and the system answered \""
                                   << std::generic_category().message(error)
                                   << "\"; its thread runs on without it. Choose a CPU that this process may use "
                                      "(taskset --cpu-list --pid shows them).");
    }
}

void PrioritizeThread(const std::string& activity, int priority)
{
    if (priority <= 0) {
        return;
    }
    sched_param parameters{};
    parameters.sched_priority = priority;
    const int error = pthread_setschedparam(pthread_self(), SCHED_FIFO, &parameters);
    if (error != 0) {
        auto logger = GetLogger();
        LOG4CPLUS_WARN(logger, "Activity " << activity << " asked for SCHED_FIFO priority " << priority
                                           << " and the system answered \"" << std::generic_category().message(error)
                                           << "\"; its thread runs on without it. Choose a priority between "
                                           << sched_get_priority_min(SCHED_FIFO) << " and "
                                           << sched_get_priority_max(SCHED_FIFO)
                                           << " and permit it (rtprio in limits.conf, or CAP_SYS_NICE).");
    }
}

}  // namespace brisk
