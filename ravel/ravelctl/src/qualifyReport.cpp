#include "qualifyReport.hpp"

#include "counted.hpp"
#include "error.hpp"
#include "outputFile.hpp"
#include "placementJson.hpp"
#include "wholeFile.hpp"

#include <fmt/core.h>
#include <fmt/ranges.h>
#include <nlohmann/json.hpp>

namespace lumo::ravelctl {

namespace {

using Json = nlohmann::ordered_json;

template <typename T>
Json ToJson(const std::optional<T>& value)
{
    return value ? Json(*value) : Json(nullptr);
}

Json ToJson(const std::optional<Percentiles>& times)
{
    if (!times) {
        return nullptr;
    }
    return {{"min", times->min},   {"p50", times->p50},     {"p99", times->p99},
            {"p999", times->p999}, {"p9999", times->p9999}, {"max", times->max}};
}

Json ToJson(const std::vector<HistogramBin>& bins)
{
    Json json = Json::array();
    for (const HistogramBin& bin : bins) {
        json.push_back({{"low", bin.low}, {"high", bin.high}, {"count", bin.count}});
    }
    return json;
}

Json WorkersToJson(const QualifyReport& report)
{
    Json json = Json::array();
    for (std::size_t i = 0; i < report.workers.size(); ++i) {
        const WorkerFigures& worker = report.workers[i];
        const Placement& asked = report.plan.placement.workers.at(i);
        json.push_back({{"cpu", worker.place.cpu},
                        {"cpu_asked", asked.cpu},
                        {"priority", worker.place.priority},
                        {"priority_asked", asked.priority},
                        {"numa_node", asked.numa_node},
                        {"cycles", worker.cycles},
                        {"missed_deadlines", ToJson(worker.missed_deadlines)},
                        {"execution_us", ToJson(worker.execution_us)},
                        {"start_latency_us", ToJson(worker.latency_us)},
                        {"reads", worker.reads},
                        {"read_us", ToJson(worker.read_us)},
                        {"gb_per_s", ToJson(worker.ComputeGbPerS(report.plan.matrix_bytes))},
                        {"read_gb_per_s", ToJson(worker.ComputeReadGbPerS(report.plan.matrix_bytes))},
                        {"ratio_to_read", ToJson(worker.ComputeRatio())}});
    }
    return json;
}

Json ToJson(const QualifyReport& report)
{
    return {
        {"version", report.version},
        {"blas", report.blas},
        {"started_utc", report.started_utc},
        {"held", report.DidHold()},
        {"verdict", report.FormatVerdict()},
        {"interrupted", report.interrupted},
        {"rows", report.options.rows},
        {"cols", report.options.cols},
        {"matrix_bytes", report.plan.matrix_bytes},
        {"memory_bytes", report.plan.memory_bytes},
        {"paced", report.plan.paced},
        {"rate_hz", report.plan.paced ? Json(report.plan.rate_hz) : Json(nullptr)},
        {"deadline_us", ToJson(report.plan.deadline_us)},
        {"warm_up_cycles", QualifyPlan::WARM_UP_CYCLES},
        {"cycles_per_read", QualifyPlan::CYCLES_PER_READ},
        {"cycles_planned", report.plan.longest_s ? Json(nullptr) : Json(report.plan.most_cycles)},
        {"cycles", report.cycles_done},
        {"late_cycles", report.late_cycles},
        {"missed_instants", report.missed_instants},
        {"cycle_us", ToJson(report.cycle_us)},
        {"wake_up_us", report.plan.paced ? ToJson(report.wake_up_us) : Json(nullptr)},
        {"workers", WorkersToJson(report)},
        {"placement", PlacementToJson(report.placement)},
        {"execution_histogram_us", ToJson(report.execution_histogram)},
        {"cycle_histogram_us", ToJson(report.cycle_histogram)},
        {"files", report.files},
        {"problems", report.problems},
    };
}

std::string FormatTimes(const std::optional<Percentiles>& times)
{
    if (!times) {
        return fmt::format("{:>9}{:>9}{:>9}{:>9}{:>9}{:>9}", "-", "-", "-", "-", "-", "-");
    }
    return fmt::format("{:9.1f}{:9.1f}{:9.1f}{:9.1f}{:9.1f}{:9.1f}", times->min, times->p50, times->p99, times->p999,
                       times->p9999, times->max);
}

std::string FormatFigure(const std::optional<double>& value, int width, int decimals)
{
    return value ? fmt::format("{:{}.{}f}", *value, width, decimals) : fmt::format("{:>{}}", "-", width);
}

std::string FormatCount(const std::optional<std::int64_t>& value, int width)
{
    return value ? fmt::format("{:{}}", *value, width) : fmt::format("{:>{}}", "-", width);
}

std::string FormatHeading(const char* what)
{
    return fmt::format("\n{:<22}{:>9}{:>9}{:>9}{:>9}{:>9}{:>9}\n", what, "min", "median", "99 %", "99.9 %", "99.99 %",
                       "max");
}

/// What follows the semicolon goes below, so that it fits.
std::string InTwoLines(std::string verdict)
{
    if (const std::size_t end = verdict.find("; "); end != std::string::npos) {
        verdict.replace(end, 2, "\n             ");
    }
    return verdict;
}

std::string FormatSpeed(const QualifyReport& report)
{
    std::string text =
        fmt::format("\n{:<22}{:>9}{:>9}{:>9}{:>18}\n", "speed", "GB/s", "read", "ratio", "missed deadlines");
    for (std::size_t i = 0; i < report.workers.size(); ++i) {
        const WorkerFigures& worker = report.workers[i];
        text += fmt::format("  {:<20}{}{}{}{}\n", NameWorker(i, worker),
                            FormatFigure(worker.ComputeGbPerS(report.plan.matrix_bytes), 9, 1),
                            FormatFigure(worker.ComputeReadGbPerS(report.plan.matrix_bytes), 9, 1),
                            FormatFigure(worker.ComputeRatio(), 9, 2), FormatCount(worker.missed_deadlines, 18));
    }
    return text + fmt::format(
                      "  read: the worker only reads its matrix, once after every {} cycles and on an\n"
                      "  instant of its own; ratio: the product's speed over the read's, in the median\n",
                      QualifyPlan::CYCLES_PER_READ);
}

}  // namespace

std::optional<double> WorkerFigures::ComputeGbPerS(std::uint64_t matrix_bytes) const
{
    if (!execution_us || !(execution_us->p50 > 0.0)) {
        return std::nullopt;
    }
    return static_cast<double>(matrix_bytes) * 1.0e-3 / execution_us->p50;
}

std::optional<double> WorkerFigures::ComputeReadGbPerS(std::uint64_t matrix_bytes) const
{
    if (!read_us || !(read_us->p50 > 0.0)) {
        return std::nullopt;
    }
    return static_cast<double>(matrix_bytes) * 1.0e-3 / read_us->p50;
}

std::optional<double> WorkerFigures::ComputeRatio() const
{
    if (!execution_us || !read_us || !(execution_us->p50 > 0.0)) {
        return std::nullopt;
    }
    return read_us->p50 / execution_us->p50;
}

bool QualifyReport::DidHold() const
{
    const bool complete = plan.longest_s ? cycles_done > 0 : cycles_done == plan.most_cycles;
    return complete && !interrupted && problems.empty() && late_cycles == 0 && missed_instants == 0;
}

std::string QualifyReport::FormatVerdict() const
{
    const std::string within = plan.deadline_us ? fmt::format("{} of {} took longer than {:.0f} us, {} missed",
                                                              late_cycles, Counted(cycles_done, "cycle"),
                                                              *plan.deadline_us, Counted(missed_instants, "instant"))
                                                : Counted(cycles_done, "cycle") + ", no deadline was set";
    const std::string starts =
        plan.paced && wake_up_us ? fmt::format("; starts up to {:.0f} us after their instants", wake_up_us->max) : "";
    return fmt::format("{}: {}{}", interrupted ? "interrupted" : DidHold() ? "holds" : "does NOT hold", within, starts);
}

std::string NameWorker(std::size_t index, const WorkerFigures& worker)
{
    const std::string cpu = worker.place.cpu < 0 ? "any CPU" : fmt::format("CPU {}", worker.place.cpu);
    return fmt::format("worker{} on {}", index, cpu);
}

std::string DescribePriority(const QualifyReport& report)
{
    const std::vector<Placement>& placements = report.plan.placement.workers;
    const int asked = placements.empty() ? 0 : placements.front().priority;
    if (asked == 0) {
        return "ordinary scheduling";
    }
    for (const WorkerFigures& worker : report.workers) {
        if (worker.place.priority != asked) {
            return fmt::format("priority {} was NOT granted; see ravelctl doctor", asked);
        }
    }
    return fmt::format("priority {} granted", asked);
}

std::string FormatQualification(const QualifyReport& report, const Palette& palette)
{
    std::string text = FormatHeading("execution, us");
    for (std::size_t i = 0; i < report.workers.size(); ++i) {
        text +=
            fmt::format("  {:<20}{}\n", NameWorker(i, report.workers[i]), FormatTimes(report.workers[i].execution_us));
    }
    text += FormatHeading("start latency, us");
    for (std::size_t i = 0; i < report.workers.size(); ++i) {
        text +=
            fmt::format("  {:<20}{}\n", NameWorker(i, report.workers[i]), FormatTimes(report.workers[i].latency_us));
    }
    text += FormatHeading("whole cycle, us");
    text += fmt::format("{:<22}{}\n", "  start to ready", FormatTimes(report.cycle_us));
    if (report.plan.paced) {
        text += fmt::format("{:<22}{}\n", "  instant to start", FormatTimes(report.wake_up_us));
    }
    text += FormatSpeed(report);
    text += "\nexecution of all workers, us\n" + FormatHistogram(report.execution_histogram);
    text += "\nstart to ready, us\n" + FormatHistogram(report.cycle_histogram);
    text += fmt::format("\nscheduling   {}\n", DescribePriority(report));
    if (!report.files.empty()) {
        text += fmt::format("files        {}: {}\n", report.options.output.string(), fmt::join(report.files, ", "));
    }
    const std::string verdict = InTwoLines(report.FormatVerdict());
    text += fmt::format("verdict      {}\n", report.interrupted ? palette.Doubtful(verdict)
                                             : report.DidHold() ? palette.Good(verdict)
                                                                : palette.Bad(verdict));
    return text;
}

void WriteQualification(const QualifyReport& report, const std::filesystem::path& file)
{
    try {
        WriteWholeText(file, ToJson(report).dump(2) + "\n");
    } catch (const std::exception& e) {
        throw RunError(CannotWrite(file, e.what()));
    }
}

}  // namespace lumo::ravelctl
