#include "doctor.hpp"

#include "commandText.hpp"
#include "error.hpp"
#include "errorLine.hpp"
#include "machineText.hpp"
#include "modeList.hpp"
#include "placementOptions.hpp"
#include "remedies.hpp"
#include "resources.hpp"

#include <fmt/core.h>
#include <fmt/ranges.h>
#include <nlohmann/json.hpp>
#include <unistd.h>

#include <algorithm>
#include <iterator>
#include <limits>
#include <string_view>

namespace lumo::ravelctl {

namespace {

constexpr std::uint64_t NO_LIMIT = std::numeric_limits<std::uint64_t>::max();

Finding ExamineKernel(const MachineFacts& facts)
{
    const bool is_realtime =
        facts.kernel_realtime == "1" || facts.kernel_version.value_or("").find("PREEMPT_RT") != std::string::npos;
    Finding finding{
        "kernel",
        fmt::format("{}, {}", facts.kernel_release.value_or("unknown"), is_realtime ? "PREEMPT_RT" : "no PREEMPT_RT"),
        is_realtime ? Health::Ok : Health::CouldBeBetter, ""};
    if (!is_realtime) {
        finding.remedy = "sudo apt-get install linux-image-rt-amd64 && sudo reboot";
    }
    return finding;
}

Finding ExamineCpus(const MachineFacts& facts)
{
    if (!facts.cpus_online || !facts.cpus_allowed) {
        return {"CPUs", NOT_TOLD, Health::CouldBeBetter, ""};
    }
    const std::vector<int> online = ParseCpuList(*facts.cpus_online);
    const std::vector<int> allowed = ParseCpuList(*facts.cpus_allowed);
    // Isolated ones are not among them, and must not be: whoever wants them asks for them by name.
    const std::vector<int> isolated = ParseCpuList(facts.cpus_isolated.value_or(""));
    std::vector<int> ordinary;
    std::set_difference(online.begin(), online.end(), isolated.begin(), isolated.end(), std::back_inserter(ordinary));
    const bool all = std::includes(allowed.begin(), allowed.end(), ordinary.begin(), ordinary.end());
    Finding finding{"CPUs", fmt::format("{} online, {} allowed", *facts.cpus_online, *facts.cpus_allowed), Health::Ok,
                    ""};
    constexpr std::size_t ENOUGH = 3;  // two workers, and one for the cycle and the rest of the system
    if (!all) {
        finding.health = Health::CouldBeBetter;
        finding.remedy = fmt::format("taskset -c {} ravelctl run", FormatModeList(ordinary));
    } else if (online.size() < ENOUGH) {
        finding.health = Health::CouldBeBetter;
        finding.value += "; better 3 or more";
        finding.remedy = "ravelctl run --workers 1  # two workers would leave no CPU to the rest of the system";
    }
    return finding;
}

/// The kernel writes "(null)" where nothing was asked for.
bool AreAside(const std::optional<std::string>& cpus)
{
    return !ParseCpuList(cpus.value_or("")).empty();
}

/// One command for all that is missing, so that one restart does: who has given it need not give it again.
std::string SetAside(const MachineFacts& facts)
{
    const std::string wanted = remedies::CpusToSetAside(facts.topology);
    if (wanted.empty()) {
        return "";
    }
    std::vector<std::string> arguments;
    if (!AreAside(facts.cpus_isolated)) {
        arguments.push_back("isolcpus=" + wanted);
    }
    if (!AreAside(facts.cpus_nohz_full)) {
        arguments.push_back("nohz_full=" + wanted);
    }
    return remedies::KernelArguments(fmt::format("{}", fmt::join(arguments, " ")));
}

Finding ExamineAside(const char* name, const std::optional<std::string>& cpus, const MachineFacts& facts)
{
    if (AreAside(cpus)) {
        return {name, *cpus, Health::Ok, ""};
    }
    return {name, "none", Health::CouldBeBetter, SetAside(facts)};
}

Finding ExamineGovernor(const MachineFacts& facts)
{
    const bool fast = facts.governors.empty() || facts.governors == std::vector<std::string>{"performance"};
    return {"frequency governor", DescribeGovernors(facts), fast ? Health::Ok : Health::CouldBeBetter,
            fast ? "" : remedies::Governor()};
}

Finding ExamineFifo(const MachineFacts& facts)
{
    constexpr int NEEDED =
        PlacementOptions::DEFAULT_PRIORITY + PlacementOptions::PRIORITY_STEP;  // of the cycle in a run
    const std::string limit = !facts.rtprio_limit               ? "unknown"
                              : *facts.rtprio_limit == NO_LIMIT ? "none"
                                                                : std::to_string(*facts.rtprio_limit);
    if (facts.fifo_granted == true && facts.rtprio_limit && *facts.rtprio_limit < NEEDED) {
        return {"real-time priority",
                fmt::format("SCHED_FIFO {} is granted (no limit for this user; others: {})", NEEDED, limit), Health::Ok,
                ""};
    }
    if (facts.fifo_granted == true) {
        return {"real-time priority", fmt::format("SCHED_FIFO {} is granted (limit {})", NEEDED, limit), Health::Ok,
                ""};
    }
    return {"real-time priority", fmt::format("SCHED_FIFO {} is refused (limit {})", NEEDED, limit), Health::Bad,
            remedies::RealTimePriority(NEEDED)};
}

Finding ExamineThrottling(const MachineFacts& facts)
{
    if (!facts.rt_runtime_us || !facts.rt_period_us) {
        return {"real-time throttling", NOT_TOLD, Health::CouldBeBetter, ""};
    }
    if (*facts.rt_runtime_us < 0 || *facts.rt_runtime_us >= *facts.rt_period_us) {
        return {"real-time throttling", "none", Health::Ok, ""};
    }
    return {"real-time throttling", fmt::format("{} of {} us", *facts.rt_runtime_us, *facts.rt_period_us),
            *facts.rt_runtime_us == 0 ? Health::Bad : Health::CouldBeBetter,
            "sudo sysctl -w kernel.sched_rt_runtime_us=-1"};
}

Finding ExamineLockedMemory(const MachineFacts& facts)
{
    if (!facts.memlock_limit_bytes) {
        return {"locked memory", NOT_TOLD, Health::CouldBeBetter, ""};
    }
    if (*facts.memlock_limit_bytes == NO_LIMIT) {
        return {"locked memory", "no limit", Health::Ok, ""};
    }
    if (facts.may_lock_beyond_limit == true) {
        return {"locked memory",
                fmt::format("no limit for this user (others: {})", FormatBytes(*facts.memlock_limit_bytes)), Health::Ok,
                ""};
    }
    return {"locked memory", fmt::format("at most {}", FormatBytes(*facts.memlock_limit_bytes)), Health::CouldBeBetter,
            remedies::LockedMemory()};
}

Finding ExamineMemory(const MachineFacts& facts)
{
    constexpr std::uint64_t ENOUGH = 2'000'000'000;
    constexpr std::uint64_t LEAST = 500'000'000;  // matrices and recordings of a run of the default length
    if (!facts.memory_bytes || !facts.memory_available_bytes) {
        return {"memory", NOT_TOLD, Health::CouldBeBetter, ""};
    }
    const std::uint64_t available = *facts.memory_available_bytes;
    return {"memory", fmt::format("{} of {} available", FormatBytes(available), FormatBytes(*facts.memory_bytes)),
            available >= ENOUGH  ? Health::Ok
            : available >= LEAST ? Health::CouldBeBetter
                                 : Health::Bad,
            available >= ENOUGH ? "" : "ps -eo rss,pid,args --sort=-rss | head  # and end what is not needed"};
}

Finding ExamineSwap(const MachineFacts& facts)
{
    if (!facts.swap_bytes) {
        return {"swap", NOT_TOLD, Health::CouldBeBetter, ""};
    }
    if (*facts.swap_bytes == 0) {
        return {"swap", "none", Health::Ok, ""};
    }
    const std::uint64_t used = *facts.swap_bytes - std::min(facts.swap_free_bytes.value_or(0), *facts.swap_bytes);
    return {"swap", fmt::format("{} of {} in use", FormatBytes(used), FormatBytes(*facts.swap_bytes)),
            Health::CouldBeBetter, "sudo swapoff -a"};
}

Finding ExamineNuma(const MachineFacts& facts)
{
    const bool has_several = ParseCpuList(facts.numa_nodes.value_or("")).size() > 1;
    return {"NUMA nodes",
            DescribeNumaNodes(facts) + (has_several ? "; time each with ravelctl qualify --numa-node" : ""), Health::Ok,
            ""};
}

Finding ExamineHugePages(const MachineFacts& facts)
{
    const bool always = facts.transparent_huge_pages == "always";  // the kernel may stop a thread to put some together
    return {"huge pages", DescribeHugePages(facts), always ? Health::CouldBeBetter : Health::Ok,
            always ? remedies::TransparentHugePages() : ""};
}

Finding ExamineBlas(const MachineFacts& facts)
{
    constexpr int PTHREAD = 1;  // what openblas_get_parallel() answers
    constexpr int SERIAL = 0;
    if (facts.blas_parallel == PTHREAD) {
        return {"BLAS", facts.blas, Health::Ok, ""};
    }
    return {"BLAS", facts.blas, facts.blas_parallel == SERIAL ? Health::Bad : Health::CouldBeBetter,
            "sudo apt-get install libopenblas0-pthread && sudo update-alternatives --config "
            "libopenblas.so.0-x86_64-linux-gnu"};
}

Finding ExamineClockSource(const MachineFacts& facts)
{
    if (!facts.clock_source) {
        return {"clock source", NOT_TOLD, Health::CouldBeBetter, ""};
    }
    static const std::vector<std::string> QUICK = {"tsc", "arch_sys_counter", "kvm-clock",
                                                   "hyperv_clocksource_tsc_page"};
    if (std::find(QUICK.begin(), QUICK.end(), *facts.clock_source) != QUICK.end()) {
        return {"clock source", *facts.clock_source, Health::Ok, ""};
    }
    const bool has_tsc = (" " + facts.clock_sources.value_or("") + " ").find(" tsc ") != std::string::npos;
    return {"clock source", *facts.clock_source + "; slow to read", Health::CouldBeBetter,
            has_tsc ? "echo tsc | sudo tee /sys/devices/system/clocksource/clocksource0/current_clocksource" : ""};
}

Finding ExamineWakeUp(const MachineFacts& facts)
{
    constexpr double GOOD_US = 100.0;
    constexpr double PERIOD_US = 2000.0;
    if (!facts.wake_up_us) {
        return {"timer", "could not be tried", Health::CouldBeBetter, ""};
    }
    const Percentiles& late = *facts.wake_up_us;
    const Health health = late.max < GOOD_US ? Health::Ok : late.max < PERIOD_US ? Health::CouldBeBetter : Health::Bad;
    return {"timer", fmt::format("wakes {:.0f} us late (median), {:.0f} us (max)", late.p50, late.max), health,
            health == Health::Ok
                ? ""
                : "top -b -n 1 -o %CPU | head -n 20  # and end what competes; the other remedies help too"};
}

Finding ExamineFolder(const MachineFacts& facts)
{
    constexpr std::uint64_t ENOUGH = 10'000'000'000;
    constexpr std::uint64_t LEAST = 500'000'000;
    if (!facts.folder_free_bytes) {
        return {"disk", NOT_TOLD, Health::CouldBeBetter, ""};
    }
    const std::uint64_t free = *facts.folder_free_bytes;
    return {"disk", fmt::format("{} free in {}", FormatBytes(free), facts.folder),
            free >= ENOUGH  ? Health::Ok
            : free >= LEAST ? Health::CouldBeBetter
                            : Health::Bad,
            free >= ENOUGH ? "" : "df -h  # and choose a place with --output"};
}

/// As wide as the column of verdicts.
std::string PaintHealth(Health health, const Palette& palette)
{
    const std::string name = fmt::format("{:<17}", GetName(health));
    switch (health) {
        case Health::CouldBeBetter:
            return palette.Doubtful(name);
        case Health::Bad:
            return palette.Bad(name);
        case Health::Ok:
            break;
    }
    return palette.Good(name);
}

/// `previous`: the remedy that stands above it.
std::string FormatRemedy(const std::string& remedy, const std::string& previous)
{
    constexpr std::size_t WIDTH = 80;
    constexpr std::string_view INDENT = "    ";
    if (remedy.empty()) {
        return "";
    }
    if (remedy == previous) {
        return fmt::format("{}# the same command\n", INDENT);
    }
    std::string text;
    for (const std::string& line : WrapCommand(remedy, WIDTH - INDENT.size())) {
        text += fmt::format("{}{}\n", INDENT, line);
    }
    return text;
}

std::ptrdiff_t Count(const std::vector<Finding>& findings, Health health)
{
    return std::count_if(findings.begin(), findings.end(),
                         [health](const Finding& finding) { return finding.health == health; });
}

}  // namespace

const char* GetName(Health health)
{
    switch (health) {
        case Health::CouldBeBetter:
            return "could be better";
        case Health::Bad:
            return "bad";
        case Health::Ok:
            break;
    }
    return "ok";
}

std::vector<Finding> Examine(const MachineFacts& facts)
{
    return {
        ExamineKernel(facts),
        ExamineCpus(facts),
        ExamineAside("isolated CPUs", facts.cpus_isolated, facts),
        ExamineAside("CPUs without a tick", facts.cpus_nohz_full, facts),
        ExamineGovernor(facts),
        ExamineFifo(facts),
        ExamineThrottling(facts),
        ExamineLockedMemory(facts),
        ExamineMemory(facts),
        ExamineSwap(facts),
        ExamineNuma(facts),
        ExamineHugePages(facts),
        ExamineBlas(facts),
        ExamineClockSource(facts),
        ExamineWakeUp(facts),
        ExamineFolder(facts),
    };
}

std::string FormatFindings(const std::vector<Finding>& findings, const Palette& palette)
{
    std::string text;
    std::string previous;
    for (const Finding& finding : findings) {
        text += fmt::format("{:<21}{}{}\n", finding.name, PaintHealth(finding.health, palette), finding.value);
        text += FormatRemedy(finding.remedy, previous);
        previous = finding.remedy;
    }
    return text + fmt::format("{} ok, {} could be better, {} bad\n", Count(findings, Health::Ok),
                              Count(findings, Health::CouldBeBetter), Count(findings, Health::Bad));
}

std::string FormatFindingsJson(const std::vector<Finding>& findings)
{
    using Json = nlohmann::ordered_json;
    Json list = Json::array();
    for (const Finding& finding : findings) {
        list.push_back({{"name", finding.name},
                        {"value", finding.value},
                        {"verdict", GetName(finding.health)},
                        {"remedy", finding.remedy.empty() ? Json(nullptr) : Json(finding.remedy)}});
    }
    const Json json = {{"findings", list},
                       {"ok", Count(findings, Health::Ok)},
                       {"could_be_better", Count(findings, Health::CouldBeBetter)},
                       {"bad", Count(findings, Health::Bad)}};
    // A folder's name may be no UTF-8.
    return json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

int GetExitStatus(const std::vector<Finding>& findings)
{
    return Count(findings, Health::Bad) == 0 ? EXIT_OK : EXIT_FAILED;
}

std::string FormatBadFindings(const std::vector<Finding>& findings)
{
    std::string text;
    for (const Finding& finding : findings) {
        if (finding.health == Health::Bad) {
            text += FormatErrorLine(fmt::format("{}: {}{}{}", finding.name, finding.value,
                                                finding.remedy.empty() ? "" : "; try: ", finding.remedy));
        }
    }
    return text;
}

int RunDoctor(const DoctorOptions& options, std::ostream& out, std::ostream& err)
{
    const std::vector<Finding> findings = Examine(GatherMachine());
    const Palette palette(FindTerminalStyle(STDOUT_FILENO));
    out << (options.json ? FormatFindingsJson(findings) : FormatFindings(findings, palette));
    if (!out.flush()) {
        throw RunError("cannot write to standard output; free some space or send it elsewhere");
    }
    err << FormatBadFindings(findings) << std::flush;
    return GetExitStatus(findings);
}

}  // namespace lumo::ravelctl
