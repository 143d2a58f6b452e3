#include "machineFacts.hpp"

#include "cycleClock.hpp"
#include "memoryLimit.hpp"
#include "systemFiles.hpp"
#include "workerGroup.hpp"

#include <cblas.h>
#include <pthread.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/resource.h>

#include <charconv>
#include <chrono>
#include <fstream>
#include <limits>
#include <set>
#include <system_error>
#include <thread>

namespace lumo::ravelctl {

namespace {

namespace fs = std::filesystem;

constexpr const char* CPU_FOLDER = "sys/devices/system/cpu";

template <typename T>
std::optional<T> ReadNumber(const fs::path& file)
{
    const std::string text = ReadFirstLine(file).value_or("");
    T value{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc() && end == text.data() + text.size() ? std::optional<T>(value) : std::nullopt;
}

std::optional<std::uint64_t> FindNumber(const fs::path& file, const std::string& name, std::uint64_t unit)
{
    const std::optional<std::string> text = FindField(file, name);
    std::uint64_t value = 0;
    if (!text || std::from_chars(text->data(), text->data() + text->size(), value).ec != std::errc()) {
        return std::nullopt;
    }
    return value * unit;
}

/// Of "always [madvise] never" the one in brackets.
std::optional<std::string> FindChosen(const std::optional<std::string>& choices)
{
    const std::string text = choices.value_or("");
    const std::size_t begin = text.find('[');
    const std::size_t end = text.find(']');
    if (begin == std::string::npos || end == std::string::npos || end < begin) {
        return std::nullopt;
    }
    return text.substr(begin + 1, end - begin - 1);
}

/// What the first line "model name : ..." of the kernel's list of processors says; not every architecture has one.
std::optional<std::string> FindCpuModel(const fs::path& file)
{
    std::ifstream stream(file);
    for (std::string line; std::getline(stream, line);) {
        const std::size_t colon = line.find(": ");
        if (line.starts_with("model name") && colon != std::string::npos) {
            return line.substr(colon + 2);
        }
    }
    return std::nullopt;
}

std::vector<std::string> ReadGovernors(const fs::path& root)
{
    std::set<std::string> governors;
    for (const int cpu : ParseCpuList(ReadFirstLine(root / CPU_FOLDER / "online").value_or(""))) {
        const fs::path file = root / CPU_FOLDER / ("cpu" + std::to_string(cpu)) / "cpufreq/scaling_governor";
        if (const std::optional<std::string> governor = ReadFirstLine(file)) {
            governors.insert(*governor);
        }
    }
    return {governors.begin(), governors.end()};
}

std::optional<std::uint64_t> FindLimit(__rlimit_resource_t resource)
{
    rlimit limit{};
    if (getrlimit(resource, &limit) != 0) {
        return std::nullopt;
    }
    return limit.rlim_cur == RLIM_INFINITY ? std::numeric_limits<std::uint64_t>::max() : std::uint64_t{limit.rlim_cur};
}

/// In a thread of its own: what it is given ends with it.
void TryThread(MachineFacts& facts)
{
    constexpr int PRIORITY = 60;  // the cycle's in a run
    constexpr double RATE_HZ = 500.0;
    constexpr int WAKE_UPS = 500;
    std::thread thread([&facts] {
        const sched_param param{PRIORITY};
        facts.fifo_granted = pthread_setschedparam(pthread_self(), SCHED_FIFO, &param) == 0;
        Durations late(WAKE_UPS);
        CycleClock clock(RATE_HZ, true);
        clock.Start();
        for (int i = 0; i < WAKE_UPS; ++i) {
            const CycleClock::Clock::time_point instant = clock.AwaitNext();
            late.Add(CycleClock::Clock::now() - instant);
        }
        facts.wake_up_us = late.ComputePercentiles();
    });
    thread.join();
}

/// Nothing is really locked: a page would be once it is touched, and these cannot be.
std::optional<bool> TryLockingBeyond(std::optional<std::uint64_t> limit_bytes)
{
    constexpr std::uint64_t MOST = std::uint64_t{1} << 40U;  // with a higher limit it does not matter
    constexpr std::uint64_t PAGE = 4096;
    if (!limit_bytes || *limit_bytes >= MOST) {
        return std::nullopt;
    }
    const std::uint64_t bytes = *limit_bytes / PAGE * PAGE + PAGE;
    void* const mapping = mmap(nullptr, bytes, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (mapping == MAP_FAILED) {
        return std::nullopt;
    }
    const bool is_granted = mlock2(mapping, bytes, MLOCK_ONFAULT) == 0;
    munmap(mapping, bytes);
    return is_granted;
}

}  // namespace

MachineFacts ReadMachineFiles(const fs::path& root)
{
    constexpr std::uint64_t KIB = 1024;
    const fs::path meminfo = root / "proc/meminfo";
    const fs::path kernel = root / "proc/sys/kernel";
    const fs::path clock = root / "sys/devices/system/clocksource/clocksource0";
    MachineFacts facts;
    facts.cpu_model = FindCpuModel(root / "proc/cpuinfo");
    facts.kernel_release = ReadFirstLine(kernel / "osrelease");
    facts.kernel_version = ReadFirstLine(kernel / "version");
    facts.kernel_realtime = ReadFirstLine(root / "sys/kernel/realtime");
    facts.cpus_online = ReadFirstLine(root / CPU_FOLDER / "online");
    facts.cpus_allowed = FindField(root / "proc/self/status", "Cpus_allowed_list:");
    facts.cpus_isolated = ReadFirstLine(root / CPU_FOLDER / "isolated");
    facts.cpus_nohz_full = ReadFirstLine(root / CPU_FOLDER / "nohz_full");
    facts.topology = ReadCpuTopology(root, ParseCpuList(facts.cpus_online.value_or("")));
    facts.governors = ReadGovernors(root);
    facts.rt_runtime_us = ReadNumber<std::int64_t>(kernel / "sched_rt_runtime_us");
    facts.rt_period_us = ReadNumber<std::int64_t>(kernel / "sched_rt_period_us");
    facts.memory_bytes = FindNumber(meminfo, "MemTotal:", KIB);
    facts.memory_available_bytes = FindNumber(meminfo, "MemAvailable:", KIB);
    if (const std::optional<std::uint64_t> left = MemoryLeftByGroups(root)) {
        facts.memory_available_bytes = std::min(facts.memory_available_bytes.value_or(*left), *left);
    }
    facts.swap_bytes = FindNumber(meminfo, "SwapTotal:", KIB);
    facts.swap_free_bytes = FindNumber(meminfo, "SwapFree:", KIB);
    facts.huge_pages = FindNumber(meminfo, "HugePages_Total:", 1);
    facts.numa_nodes = ReadFirstLine(root / "sys/devices/system/node/online");
    facts.transparent_huge_pages = FindChosen(ReadFirstLine(root / "sys/kernel/mm/transparent_hugepage/enabled"));
    facts.clock_source = ReadFirstLine(clock / "current_clocksource");
    facts.clock_sources = ReadFirstLine(clock / "available_clocksource");
    return facts;
}

MachineFacts GatherMachine(const fs::path& root)
{
    MachineFacts facts = ReadMachineFiles(root);
    facts.rtprio_limit = FindLimit(RLIMIT_RTPRIO);
    facts.memlock_limit_bytes = FindLimit(RLIMIT_MEMLOCK);
    facts.may_lock_beyond_limit = TryLockingBeyond(facts.memlock_limit_bytes);
    facts.blas = DescribeBlas();
    facts.blas_parallel = openblas_get_parallel();
    TryThread(facts);
    std::error_code error;
    facts.folder = fs::current_path(error).string();
    const fs::space_info space = fs::space(".", error);
    if (!error) {
        facts.folder_free_bytes = space.available;
    }
    return facts;
}

}  // namespace lumo::ravelctl
