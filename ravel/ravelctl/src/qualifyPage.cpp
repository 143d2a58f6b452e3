#include "qualifyPage.hpp"

#include "reportText.hpp"
#include "resources.hpp"

#include <fmt/core.h>

#include <string>
#include <utility>

namespace lumo::ravelctl {

namespace {

ParameterGroup DescribeWork(const QualifyReport& report)
{
    const QualifyPlan& plan = report.plan;
    ParameterGroup group{"Qualification", {}};
    auto& rows = group.rows;
    rows.emplace_back("matrix of each worker", fmt::format("{} x {}, {}", report.options.rows, report.options.cols,
                                                           FormatBytes(plan.matrix_bytes)));
    rows.emplace_back("workers", std::to_string(report.workers.size()));
    rows.emplace_back("scheduling", DescribePriority(report));
    rows.emplace_back("pace", plan.paced ? fmt::format("{:g} Hz", plan.rate_hz) : "flat out");
    rows.emplace_back("deadline", plan.deadline_us ? fmt::format("{:g} us", *plan.deadline_us) : "none");
    rows.emplace_back("planned", plan.longest_s ? fmt::format("{:g} s", *plan.longest_s)
                                                : fmt::format("{} cycles", plan.most_cycles));
    rows.emplace_back("cycles", std::to_string(report.cycles_done));
    rows.emplace_back("cycles beyond the deadline", std::to_string(report.late_cycles));
    rows.emplace_back("missed instants", std::to_string(report.missed_instants));
    rows.emplace_back("to warm up, not counted", fmt::format("{} cycles", QualifyPlan::WARM_UP_CYCLES));
    rows.emplace_back("reads", fmt::format("one after every {} cycles", QualifyPlan::CYCLES_PER_READ));
    rows.emplace_back("output", report.options.output.string());
    return group;
}

void AddWorkers(const QualifyReport& report, ReportData& data)
{
    ReportTable executions{"Execution", NamePercentiles(), {}};
    ReportTable latencies{"Start latency", NamePercentiles(), {}};
    for (std::size_t i = 0; i < report.workers.size(); ++i) {
        const WorkerFigures& worker = report.workers[i];
        const std::string name = NameWorker(i, worker);
        executions.rows.emplace_back(name, ListPercentiles(worker.execution_us));
        latencies.rows.emplace_back(name, ListPercentiles(worker.latency_us));
        if (worker.execution_us) {
            data.execution_times.push_back({name, worker.execution_counts, *worker.execution_us});
        }
        if (worker.latency_us) {
            data.start_latencies.push_back({name, worker.latency_counts, *worker.latency_us});
        }
        data.speeds.push_back(
            {name, worker.ComputeGbPerS(report.plan.matrix_bytes), worker.ComputeReadGbPerS(report.plan.matrix_bytes)});
    }
    ReportTable cycles{"Whole cycle", NamePercentiles(), {{"start to ready", ListPercentiles(report.cycle_us)}}};
    if (report.plan.paced) {
        cycles.rows.emplace_back("instant to start", ListPercentiles(report.wake_up_us));
    }
    data.tables = {std::move(executions), std::move(latencies), std::move(cycles)};
}

/// A line per worker.
ParameterGroup DescribeMissedDeadlines(const QualifyReport& report)
{
    ParameterGroup group{"Missed deadlines", {}};
    for (std::size_t i = 0; i < report.workers.size(); ++i) {
        const WorkerFigures& worker = report.workers[i];
        group.rows.emplace_back(NameWorker(i, worker),
                                worker.missed_deadlines
                                    ? fmt::format("{} of {} cycles", *worker.missed_deadlines, worker.cycles)
                                    : "no deadline");
    }
    return group;
}

}  // namespace

ReportData DescribeQualification(const QualifyReport& report, const MachineFacts& facts)
{
    ReportData data;
    data.title = "Qualification of " + report.started_utc;
    data.version = report.version;
    data.started_utc = report.started_utc;
    data.verdict = report.FormatVerdict();
    data.is_good = report.DidHold();
    data.problems = report.problems;
    if (report.cycle_us) {
        data.cycle_times = CycleTimes{report.cycle_counts, *report.cycle_us,       report.plan.deadline_us,
                                      report.plan.paced,   report.missed_instants, report.late_cycles};
    }
    AddWorkers(report, data);
    data.parameters = {DescribeWork(report),
                       DescribeMissedDeadlines(report),
                       {"Placement", DescribePlacement(report.placement)},
                       DescribeMachine(facts, report.blas)};
    return data;
}

}  // namespace lumo::ravelctl
