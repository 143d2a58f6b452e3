#include "runReport.hpp"

#include "error.hpp"
#include "outputFile.hpp"
#include "placementJson.hpp"
#include "wholeFile.hpp"

#include <fmt/core.h>
#include <fmt/ranges.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>

namespace lumo::ravelctl {

namespace {

using Json = nlohmann::ordered_json;

Json ToJson(const std::optional<double>& value)
{
    return value && std::isfinite(*value) ? Json(*value) : Json(nullptr);
}

Json ToJson(const BeforeAfter& figure)
{
    return {{"before", ToJson(figure.before)}, {"after", ToJson(figure.after)}};
}

Json ToJson(const std::optional<Percentiles>& times)
{
    if (!times) {
        return nullptr;
    }
    return {{"min", times->min}, {"p50", times->p50}, {"p99", times->p99}, {"p999", times->p999}, {"max", times->max}};
}

Json ScriptToJson(const RunReport& report)
{
    Json steps = Json::array();
    for (const ScriptEvent& event : report.script) {
        steps.push_back({{"time_s", event.time_s},
                         {"what", event.what},
                         {"begin_cycle", event.begin_cycle},
                         {"ready_cycle", event.ready_cycle},
                         {"before_cycle", event.cycle},
                         {"last_cycle", event.last_cycle},
                         {"take_over_us", event.take_over_us},
                         {"missed_cycles", report.CountMissed(event)},
                         {"redefines_modes", event.redefines_modes},
                         {"problem", event.problem}});
    }
    return steps;
}

Json GainsToJson(const RunReport& report)
{
    Json files = Json::array();
    for (const GainsFile& gains : report.gains) {
        files.push_back({{"before_cycle", gains.before_cycle}, {"file", gains.name}});
    }
    return files;
}

Json ToJson(const RecordOptions& record)
{
    return {{"what", NameRecorded(record)}, {"decimation", record.decimation}, {"last_s", ToJson(record.last_s)}};
}

Json ToJson(const RunReport& report)
{
    return {
        {"version", report.version},
        {"blas", report.blas},
        {"started_utc", report.started_utc},
        {"held", report.DidHold()},
        {"interrupted", report.interrupted},
        {"cycles", report.cycles_done},
        {"missed_cycles", report.missed_cycles},
        {"rate_hz", report.plan.rate_hz},
        {"paced", report.plan.paced},
        {"open_loop_cycles", report.plan.open_cycles},
        {"first_judged_cycle", report.plan.FirstJudgedCycle()},
        {"modes", report.options.modes},
        {"workers", report.options.workers},
        {"seed", report.options.seed},
        {"plant", {{"lag_coefficient", report.plant.lag_coefficient}, {"delay_cycles", report.plant.delay_cycles}}},
        {"placement", PlacementToJson(report.placement)},
        {"crossover_hz", report.margins.crossover_hz},
        {"highest_crossover_hz", report.highest_crossover_hz},
        {"phase_margin_deg", report.margins.phase_margin_deg},
        {"gain_margin_db", ToJson(std::optional<double>(report.margins.gain_margin_db))},
        {"cycle_time_us", ToJson(report.cycle_time_us)},
        {"execution_time_us", ToJson(report.execution_time_us)},
        {"surface_rms_nm", ToJson(report.surface_rms_nm)},
        {"controlled_rms_nm", ToJson(report.controlled_rms_nm)},
        {"first_closed_rms_nm", ToJson(report.first_closed_rms_nm)},
        {"edge_sensor_rms_nm", ToJson(report.edge_sensor_rms_nm)},
        {"limited_commands", report.limited_commands},
        {"commands_not_finite", report.commands_not_finite},
        {"recorded", ToJson(report.options.record)},
        {"played", {{"es", report.options.play.es.string()}, {"pact", report.options.play.pact.string()}}},
        {"injected", report.options.inject.file.string()},
        {"gains", GainsToJson(report)},
        {"script", ScriptToJson(report)},
        {"missed_before_cycles", report.missed_before},
        {"files", report.files},
        {"problems", report.problems},
    };
}

std::string FormatFigure(const std::optional<double>& value)
{
    return value ? fmt::format("{:10.1f}", *value) : fmt::format("{:>10}", "-");
}

std::string FormatRow(const char* name, const BeforeAfter& figure)
{
    std::string row = fmt::format("  {:<22}{}{}", name, FormatFigure(figure.before), FormatFigure(figure.after));
    if (figure.before && figure.after && *figure.after > 0.0) {
        row += fmt::format("   {:.1f} times less", *figure.before / *figure.after);
    }
    return row + "\n";
}

std::string FormatRow(const char* name, const std::optional<Percentiles>& times)
{
    if (!times) {
        return "";
    }
    return fmt::format("  {:<22}{:10.0f}{:10.0f}{:10.0f}{:10.0f}{:10.0f}\n", name, times->min, times->p50, times->p99,
                       times->p999, times->max);
}

/// Whether an instant that was missed before `cycle` fell into the time in which the slow thread was busy with the
/// step: while it was prepared, or while it was done. In between the step waits for its time.
bool IsMeanwhile(const ScriptEvent& event, std::int64_t cycle)
{
    const auto is_within = [cycle](std::int64_t begin, std::int64_t end) {
        return begin >= 0 && cycle >= begin && cycle <= end + 1;
    };
    return is_within(event.begin_cycle, event.ready_cycle) || is_within(event.cycle, event.last_cycle);
}

std::string PaintVerdict(const RunReport& report, const Palette& palette)
{
    const std::string verdict = Verdict(report);
    if (report.interrupted) {
        return palette.Doubtful(verdict);
    }
    return report.DidHold() ? palette.Good(verdict) : palette.Bad(verdict);
}

}  // namespace

bool RunReport::DidHold() const
{
    if (cycles_done != plan.cycles || commands_not_finite != 0) {
        return false;
    }
    if (!mirror_was_seen) {
        return true;
    }
    const std::optional<double> reference_nm = GetReferenceNm();
    return controlled_rms_nm.after && std::isfinite(*controlled_rms_nm.after) && reference_nm &&
           *controlled_rms_nm.after < *reference_nm;
}

std::optional<double> RunReport::GetReferenceNm() const
{
    return controlled_rms_nm.before ? controlled_rms_nm.before : first_closed_rms_nm;
}

std::int64_t RunReport::CountMissed(const ScriptEvent& event) const
{
    return std::count_if(missed_before.begin(), missed_before.end(),
                         [&event](std::int64_t cycle) { return IsMeanwhile(event, cycle); });
}

std::int64_t RunReport::CountMissedInScript() const
{
    return std::count_if(missed_before.begin(), missed_before.end(), [this](std::int64_t cycle) {
        return std::any_of(script.begin(), script.end(),
                           [cycle](const ScriptEvent& event) { return IsMeanwhile(event, cycle); });
    });
}

std::string FormatStep(const ScriptEvent& event)
{
    const std::string done = event.cycle < 0 ? ""
                             : event.files.empty()
                                 ? fmt::format(" (before cycle {}, {:.0f} us)", event.cycle, event.take_over_us)
                                 : fmt::format(" (before cycle {}, {:.0f} us; recording again from cycle {})",
                                               event.cycle, event.take_over_us, event.last_cycle);
    const std::string problem = event.problem.empty() ? ""
                                : event.cycle < 0     ? "; REFUSED: " + event.problem
                                                      : "; NOT ALL OF IT: " + event.problem;
    return fmt::format("{:8.3f} s  {}{}{}", event.time_s, event.what, done, problem);
}

std::string DescribeFailure(const RunReport& report)
{
    const auto format = [](const std::optional<double>& value) {
        return value ? fmt::format("{:.1f} nm rms", *value) : std::string("unknown");
    };
    const std::string modes =
        report.mirror_was_seen ? fmt::format(", controlled modes {} {} and {} after", format(report.GetReferenceNm()),
                                             report.first_closed_rms_nm ? "in the first cycle" : "before",
                                             format(report.controlled_rms_nm.after))
                               : "";
    return fmt::format("the loop did not hold: {} of {} cycles done, {} commands not finite{}", report.cycles_done,
                       report.plan.cycles, report.commands_not_finite, modes);
}

std::string Verdict(const RunReport& report)
{
    if (report.interrupted) {
        return "interrupted";
    }
    if (report.DidHold() && !report.mirror_was_seen) {
        return "the frames were played back";
    }
    const std::string reference =
        report.mirror_was_seen && report.first_closed_rms_nm
            ? fmt::format(", compared with {:.1f} nm in the first cycle", *report.first_closed_rms_nm)
            : "";
    return (report.DidHold() ? "the loop held" : "the loop did NOT hold") + reference;
}

std::string FormatReport(const RunReport& report, const Palette& palette)
{
    std::string text = fmt::format("\n{:<24}{:>10}{:>10}\n", "rms, nm", "before", "after");
    if (report.mirror_was_seen) {
        text += FormatRow("surface, controlled", report.controlled_rms_nm);
        text += FormatRow("surface, total", report.surface_rms_nm);
    }
    text += FormatRow("edge sensors", report.edge_sensor_rms_nm);
    text += fmt::format("{:<24}{:>10}{:>10}{:>10}{:>10}{:>10}\n", "time, us", "min", "median", "99 %", "99.9 %", "max");
    text += FormatRow("cycle", report.cycle_time_us);
    text += FormatRow("task execution", report.execution_time_us);
    text += fmt::format("cycles                  {} of {}, {} missed{}\n", report.cycles_done, report.plan.cycles,
                        report.missed_cycles, report.plan.paced ? "" : " (not paced)");
    if (!report.script.empty()) {
        const auto done = std::count_if(report.script.begin(), report.script.end(),
                                        [](const ScriptEvent& event) { return event.problem.empty(); });
        text += fmt::format("script                  {} of {} steps done, {} cycles missed meanwhile\n", done,
                            report.script.size(), report.CountMissedInScript());
    }
    if (report.limited_commands > 0) {
        text += fmt::format("limited commands        {}\n", report.limited_commands);
    }
    text +=
        fmt::format("files                   {}: {}\n", report.options.output.string(), fmt::join(report.files, ", "));
    text += fmt::format("verdict                 {}\n", PaintVerdict(report, palette));
    return text;
}

void WriteSummary(const RunReport& report, const std::filesystem::path& file)
{
    try {
        WriteWholeText(file, ToJson(report).dump(2) + "\n");
    } catch (const std::exception& e) {
        throw RunError(CannotWrite(file, e.what()));
    }
}

}  // namespace lumo::ravelctl
