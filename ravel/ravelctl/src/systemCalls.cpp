#include "systemCalls.hpp"

#include "resources.hpp"
#include "systemFiles.hpp"

#include <link.h>
#include <malloc.h>
#include <pthread.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <thread>

namespace lumo::ravelctl {

namespace {

/// Linux 5.14; the headers of the C library may be older than the kernel. An older kernel refuses them.
enum Populate : int
{
    PopulateRead = 22,
    PopulateWrite = 23
};

void Touch(std::uintptr_t begin, std::uintptr_t end, Populate how)
{
    static const auto page = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
    const std::uintptr_t first = begin / page * page;
    if (end > first) {
        // The loader tells addresses as numbers.
        void* const address = reinterpret_cast<void*>(first);  // NOLINT(performance-no-int-to-ptr)
        // A page that is not found now will be found when it is needed.
        static_cast<void>(madvise(address, end - first, how));
    }
}

/// What the loader protects again once it has relocated it stands at the beginning of what can be written.
int TouchObject(dl_phdr_info* object, std::size_t /*size*/, void* /*data*/)
{
    std::uintptr_t protected_end = 0;
    for (int i = 0; i < object->dlpi_phnum; ++i) {
        const ElfW(Phdr)& part = object->dlpi_phdr[i];
        if (part.p_type == PT_GNU_RELRO) {
            protected_end = object->dlpi_addr + part.p_vaddr + part.p_memsz;
        }
    }
    for (int i = 0; i < object->dlpi_phnum; ++i) {
        const ElfW(Phdr)& part = object->dlpi_phdr[i];
        if (part.p_type != PT_LOAD) {
            continue;
        }
        const std::uintptr_t begin = object->dlpi_addr + part.p_vaddr;
        const std::uintptr_t end = begin + part.p_memsz;
        Touch(begin, end, PopulateRead);
        if ((part.p_flags & PF_W) != 0) {
            Touch(protected_end > begin && protected_end < end ? protected_end : begin, end, PopulateWrite);
        }
    }
    return 0;
}

/// Whether the process can map more than it may lock, which it can where the limit does not hold for it.
int TryMappingBeyond(std::uint64_t limit_bytes)
{
    constexpr std::uint64_t PAGE = 4096;
    const std::uint64_t bytes = limit_bytes / PAGE * PAGE + PAGE;
    void* const mapping = mmap(nullptr, bytes, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (mapping == MAP_FAILED) {
        return EAGAIN;
    }
    munmap(mapping, bytes);
    return 0;
}

class LinuxCalls : public SystemCalls
{
public:
    int TryPriority(int priority) override
    {
        int error = 0;
        std::thread thread([priority, &error] {
            const sched_param param{priority};
            error = pthread_setschedparam(pthread_self(), SCHED_FIFO, &param);
        });
        thread.join();
        return error;
    }

    int LockMemory() override
    {
        if (mlockall(MCL_CURRENT | MCL_FUTURE | MCL_ONFAULT) != 0) {
            return errno;
        }
        const std::optional<std::uint64_t> limit = GetLockLimit();
        int error = limit ? TryMappingBeyond(*limit) : 0;
        if (error == 0 && FindField("/proc/self/status", "VmLck:").value_or("0") == "0") {
            error = ENOSYS;  // what watches a program's memory may do nothing and call it a success
        }
        if (error != 0) {
            munlockall();
        }
        return error;
    }

    void UnlockMemory() override { munlockall(); }

    std::optional<std::uint64_t> GetLockLimit() override
    {
        rlimit limit{};
        const bool is_limited = getrlimit(RLIMIT_MEMLOCK, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY;
        return is_limited ? std::optional<std::uint64_t>(limit.rlim_cur) : std::nullopt;
    }

    void TouchProgram() override { dl_iterate_phdr(TouchObject, nullptr); }

    void KeepFreedMemory() override
    {
        constexpr int NEVER = -1;
        // The threads that there are then have nothing to do; both values are read by themselves.
        mallopt(M_TRIM_THRESHOLD, NEVER);  // NOLINT(concurrency-mt-unsafe)
        mallopt(M_MMAP_MAX, 0);            // NOLINT(concurrency-mt-unsafe)
    }

    std::vector<int> GetCpus() override { return AllowedCpus(); }

    int SetCpus(const std::vector<int>& cpus) override
    {
        cpu_set_t set;
        CPU_ZERO(&set);
        for (const int cpu : cpus) {
            CPU_SET(static_cast<std::size_t>(cpu), &set);
        }
        return sched_setaffinity(0, sizeof(set), &set) == 0 ? 0 : errno;
    }
};

}  // namespace

SystemCalls& ThisSystem()
{
    static LinuxCalls calls;
    return calls;
}

}  // namespace lumo::ravelctl
