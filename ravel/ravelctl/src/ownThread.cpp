#include "ownThread.hpp"

#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>

#include <cstddef>

namespace lumo::ravelctl {

GrantedPlace FindOwnPlace()
{
    GrantedPlace place;
    cpu_set_t cpus;
    CPU_ZERO(&cpus);
    if (pthread_getaffinity_np(pthread_self(), sizeof(cpus), &cpus) == 0 && CPU_COUNT(&cpus) == 1) {
        while (!CPU_ISSET(static_cast<std::size_t>(++place.cpu), &cpus)) {
        }
    }
    int policy = SCHED_OTHER;
    sched_param param{};
    if (pthread_getschedparam(pthread_self(), &policy, &param) == 0 && policy != SCHED_OTHER) {
        place.priority = param.sched_priority;
    }
    return place;
}

void TouchOwnStack()
{
    constexpr std::size_t BYTES = 131072;  // many times what a cycle takes, far below what a thread has
    constexpr std::size_t PAGE = 4096;
    [[maybe_unused]] volatile char stack[BYTES];
    for (std::size_t i = 0; i < BYTES; i += PAGE) {
        stack[i] = 0;
    }
}

std::int64_t CountOwnPageFaults()
{
    rusage usage{};
    getrusage(RUSAGE_THREAD, &usage);
    return usage.ru_minflt + usage.ru_majflt;
}

}  // namespace lumo::ravelctl
