#include "qualify.hpp"

#include "cycleThread.hpp"
#include "error.hpp"
#include "htmlReport.hpp"
#include "longWork.hpp"
#include "passingFolder.hpp"
#include "progressText.hpp"
#include "qualifyLoop.hpp"
#include "qualifyPage.hpp"
#include "realTimeProcess.hpp"
#include "resources.hpp"
#include "version.hpp"

#include <lumo/ravelcore/names.hpp>

#include <fmt/chrono.h>
#include <fmt/core.h>
#include <unistd.h>

#include <chrono>
#include <ctime>
#include <exception>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace lumo::ravelctl {

namespace {

namespace fs = std::filesystem;

constexpr const char* FILE_NAME = "qualify.json";
constexpr const char* PAGE_NAME = "report.html";

/// Everything that runs, in the order in which it is made.
class Qualification
{
public:
    Qualification(const QualifyOptions& options, const QualifyPlan& plan, RealTimeProcess& process)
        : m_plan(plan), m_process(process), m_gate(plan.CountWorkers()), m_tasks(MakeTasks(options))
    {
        std::vector<ravelcore::Task*> tasks;
        tasks.reserve(m_tasks.size());
        for (const auto& task : m_tasks) {
            tasks.push_back(task.get());
        }
        m_workers = std::make_unique<WorkerGroup>(tasks, process.GetPlan().workers, Timeout(),
                                                  log4cplus::Logger::getInstance(ravelcore::LOGGER_APP));
        m_loop = std::make_unique<QualifyLoop>(plan, m_input, *m_workers);
    }

    ~Qualification() { StopWorkers(); }

    Qualification(const Qualification&) = delete;
    Qualification& operator=(const Qualification&) = delete;

    /// Failure: as WorkerGroup::Start.
    void Start(LongWork& work)
    {
        m_process.Enter();
        work.Tell(fmt::format("filling {}", m_tasks.size() == 1 ? "the matrix" : "the matrices"));
        m_workers->Start();
        ReportWorkers();
    }

    /// Once the workers have started.
    void Run(const std::function<bool()>& is_interrupted, ProgressText& progress, QualifyReport& report)
    {
        CycleThread thread(m_process.GetPlan().cycle,
                           [this](const std::function<bool()>& is_stopped) { m_loop->Run(is_stopped); });
        thread.StartThread();
        while (!thread.HasEnded()) {
            if (is_interrupted()) {
                report.interrupted = !thread.HasEnded();
                break;
            }
            progress.Update(FormatProgress(), ProgressText::Clock::now());
        }
        progress.Finish();
        thread.stop(nullptr);
        thread.JoinThread();
        if (const std::exception_ptr exception = thread.GetThreadException()) {
            try {
                std::rethrow_exception(exception);
            } catch (const std::exception& e) {
                report.problems.emplace_back(e.what());
            }
        }
        StopWorkers();
        m_process.SetCycle(thread.GetPlace());
        m_process.Leave();
        Fill(report);
        report.placement.cycle_page_faults = thread.GetPageFaults();
    }

private:
    void ReportWorkers()
    {
        std::vector<GrantedPlace> places;
        places.reserve(m_tasks.size());
        HugePages huge_pages;
        for (const auto& task : m_tasks) {
            places.push_back(task->GetPlace());
            huge_pages.Add(task->GetHugePages());
        }
        m_process.SetWorkers(places, huge_pages);
    }

    std::vector<std::unique_ptr<SgemvTask>> MakeTasks(const QualifyOptions& options)
    {
        std::vector<std::unique_ptr<SgemvTask>> tasks;
        tasks.reserve(m_plan.placement.workers.size());
        for (std::size_t i = 0; i < m_plan.placement.workers.size(); ++i) {
            tasks.push_back(std::make_unique<SgemvTask>(m_gate, m_input, static_cast<std::size_t>(m_plan.most_cycles),
                                                        static_cast<std::size_t>(m_plan.CountReads()),
                                                        m_plan.deadline_us));
            tasks.back()->Configure({{ravelcore::KEY_TASK_SGEMV_NUM_ROWS, std::to_string(options.rows)},
                                     {ravelcore::KEY_TASK_SGEMV_NUM_COLS, std::to_string(options.cols)}});
            if (m_process.UsesHugePages()) {
                tasks.back()->UseHugePages();
            }
        }
        return tasks;
    }

    /// Longer for what must first be filled.
    std::chrono::milliseconds Timeout() const
    {
        constexpr std::uint64_t BYTES_PER_MS = 100'000;
        return std::chrono::milliseconds(5000 + m_plan.memory_bytes / BYTES_PER_MS);
    }

    std::string FormatProgress() const
    {
        const QualifyProgress& progress = m_loop->GetProgress();
        const std::int64_t done = progress.cycles_done.load();
        const std::string of = m_plan.longest_s ? "" : fmt::format(" of {}", m_plan.most_cycles);
        return fmt::format("{}{} cycles  max {:.0f} us  late {}", done, of, progress.max_us.load(),
                           progress.late.load());
    }

    void StopWorkers()
    {
        m_input.idle.store(true, std::memory_order_relaxed);  // Open() releases it to who waits at the gate
        m_gate.Open();
        m_workers->Stop(true);
    }

    void Fill(QualifyReport& report) const
    {
        report.placement = m_process.GetReport();
        std::vector<float> executions;
        for (const auto& task : m_tasks) {
            const std::vector<float>& own = task->GetExecutions().GetValuesUs();
            executions.insert(executions.end(), own.begin(), own.end());
            report.placement.worker_page_faults.push_back(task->GetPageFaults());
            report.workers.push_back({task->GetPlace(), static_cast<std::int64_t>(own.size()),
                                      static_cast<std::int64_t>(task->GetReads().GetValuesUs().size()),
                                      m_plan.deadline_us ? std::optional(task->GetMissedDeadlines()) : std::nullopt,
                                      task->GetExecutions().ComputePercentiles(),
                                      task->GetLatencies().ComputePercentiles(), task->GetReads().ComputePercentiles(),
                                      CountDurations(own, {}), CountDurations(task->GetLatencies().GetValuesUs(), {})});
        }
        report.cycles_done = m_loop->GetProgress().cycles_done.load();
        report.late_cycles = m_loop->GetProgress().late.load();
        report.missed_instants = m_loop->GetMissedInstants();
        report.cycle_us = m_loop->GetCycleTimes().ComputePercentiles();
        report.wake_up_us = m_loop->GetWakeUps().ComputePercentiles();
        report.execution_histogram = MakeHistogram(executions);
        report.cycle_histogram = MakeHistogram(m_loop->GetCycleTimes().GetValuesUs());
        report.cycle_counts = CountAgainstDeadline(m_loop->GetCycleTimes().GetValuesUs(), m_plan.deadline_us);
        if (m_plan.longest_s && m_loop->GetCycleTimes().IsFull()) {
            report.problems.push_back(
                fmt::format("the memory for {} cycles was full before {} s were over; set --cycles", m_plan.most_cycles,
                            *m_plan.longest_s));
        }
    }

    const QualifyPlan m_plan;
    RealTimeProcess& m_process;
    CycleGate m_gate;
    SgemvInput m_input;
    std::vector<std::unique_ptr<SgemvTask>> m_tasks;
    std::unique_ptr<WorkerGroup> m_workers;
    std::unique_ptr<QualifyLoop> m_loop;
};

void PrepareOutput(const QualifyOptions& options)
{
    constexpr std::uint64_t MOST_BYTES = 2'000'000;
    std::error_code ignored;
    if (!options.overwrite && fs::exists(options.output / FILE_NAME, ignored)) {
        throw InputError(fmt::format(
            "--output: {} holds a qualification already; choose another folder, or replace it with --overwrite",
            options.output.string()));
    }
    RefuseFolderOf("a run", "summary.json", options.output);  // whose page would be replaced
    if (!options.overwrite && fs::exists(options.output / PAGE_NAME, ignored)) {
        throw InputError(
            fmt::format("--output: {} holds a {} already; choose another folder, or replace it with --overwrite",
                        options.output.string(), PAGE_NAME));
    }
    PrepareOutputFolder(options.output, MOST_BYTES, "the figures and their page", "choose another folder");
}

/// Notes a file that `write` writes, or what went wrong. The file is noted first: it lists itself.
template <typename Write>
void WriteFile(const char* name, QualifyReport& report, Write write)
{
    report.files.emplace_back(name);
    try {
        write(report.options.output / name);
    } catch (const std::exception& e) {
        report.files.pop_back();
        report.problems.emplace_back(e.what());
    }
}

/// The page, and the figures for programs, which name what went wrong with the page.
void WriteResults(QualifyReport& report, std::ostream& out)
{
    if (report.options.overwrite) {
        std::error_code ignored;
        fs::remove(report.options.output / PAGE_NAME, ignored);  // also where no new one is written
    }
    if (!ReportTemplate().empty()) {
        WriteFile(PAGE_NAME, report, [&report](const fs::path& file) {
            WriteHtmlReport(DescribeQualification(report, ReadMachineFiles("/")), file);
        });
    } else if (!report.options.quiet) {
        out << NO_PAGE << '\n';
    }
    WriteFile(FILE_NAME, report, [&report](const fs::path& file) { WriteQualification(report, file); });
}

std::string Describe(const QualifyOptions& options, const QualifyPlan& plan)
{
    const int workers = plan.CountWorkers();
    const std::string pace = plan.paced ? fmt::format("at {} Hz", plan.rate_hz) : "flat out";
    const std::string length = plan.longest_s
                                   ? fmt::format("{} s", *plan.longest_s)
                                   : fmt::format("{} cycle{}", plan.most_cycles, plan.most_cycles == 1 ? "" : "s");
    const std::string deadline =
        plan.deadline_us ? fmt::format("deadline {:.0f} us", *plan.deadline_us) : "no deadline";
    return fmt::format("{} x {} ({}) on {} worker{}, {} {}, {}\n{} of memory; {} cycles to warm up are not counted",
                       options.rows, options.cols, FormatBytes(plan.matrix_bytes), workers, workers == 1 ? "" : "s",
                       length, pace, deadline, FormatBytes(plan.memory_bytes), QualifyPlan::WARM_UP_CYCLES);
}

}  // namespace

QualifyReport Qualify(const QualifyOptions& options, const QualifyStop& stop, std::ostream& out)
{
    QualifyReport report;
    report.options = options;
    const CpuTopology topology = FindCpuTopology();
    report.plan = PlanQualification(options, topology);
    report.version = VERSION;
    report.blas = DescribeBlas();
    CheckMemory(report.plan.memory_bytes, fmt::format("matrices and figures of {} cycles", report.plan.most_cycles),
                "ask for a smaller matrix, fewer workers or fewer cycles");
    if (options.output.empty()) {
        const std::tm now = fmt::gmtime(std::time(nullptr));
        report.options.output = MakeNewFolder(fmt::format("ravelctl-qualify-{:%Y%m%dT%H%M%SZ}", now));
    }
    PrepareOutput(report.options);
    if (!options.quiet) {
        out << fmt::format("ravelctl {}: {}\n{}\n", VERSION, report.blas, Describe(options, report.plan)) << std::flush;
    }
    report.started_utc = fmt::format("{:%Y-%m-%dT%H:%M:%SZ}", fmt::gmtime(std::time(nullptr)));
    const StatusLine::Style style = StatusLine::StyleFor(options.quiet, STDOUT_FILENO);
    const auto say = [&](const std::string& line) {
        if (!options.quiet) {
            out << line << '\n' << std::flush;
        }
    };
    {
        RealTimeProcess process(options.placement, NeedsOf(options), topology, ReadMachineFiles("/"), ThisSystem());
        report.plan.placement = process.GetPlan();  // without the priorities that are refused
        LongWork work(style, out, "taking the memory");
        Qualification qualification(options, report.plan, process);
        qualification.Start(work);
        work.Finish();
        stop.workers_started();
        process.Say(say);
        ProgressText progress(style, out, ProgressText::Clock::now());
        qualification.Run(stop.is_interrupted, progress, report);
    }
    WriteResults(report, out);
    if (!options.quiet) {
        out << FormatQualification(report, Palette(FindTerminalStyle(STDOUT_FILENO))) << std::flush;
    }
    return report;
}

int GetExitStatus(const QualifyReport& report)
{
    if (report.interrupted) {
        return EXIT_INTERRUPTED;  // whatever else there was: its problems are told
    }
    return report.problems.empty() && report.DidHold() ? EXIT_OK : EXIT_FAILED;
}

}  // namespace lumo::ravelctl
