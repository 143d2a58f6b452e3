#include "reportText.hpp"

#include "controlLoop.hpp"
#include "counted.hpp"
#include "gains.hpp"
#include "machineText.hpp"
#include "recordingPlan.hpp"
#include "resources.hpp"

#include <fmt/core.h>
#include <fmt/ranges.h>

#include <cmath>
#include <optional>
#include <string>
#include <utility>

namespace lumo::ravelctl {

namespace {

ParameterGroup DescribeLoop(const RunReport& report)
{
    const LoopPlan& plan = report.plan;
    ParameterGroup group{"Run", {}};
    auto& rows = group.rows;
    rows.emplace_back("cycle rate", fmt::format("{:g} Hz{}", plan.rate_hz, plan.paced ? "" : ", not paced"));
    rows.emplace_back("cycles", fmt::format("{} of {}", report.cycles_done, plan.cycles));
    rows.emplace_back("missed cycles", std::to_string(report.missed_cycles));
    rows.emplace_back("loop closes at", fmt::format("{:g} s", plan.TimeOf(plan.open_cycles)));
    rows.emplace_back("references led to 0 within", fmt::format("{:g} s", plan.TimeOf(plan.lead_cycles)));
    rows.emplace_back("judged from", fmt::format("{:g} s", plan.TimeOf(plan.FirstJudgedCycle())));
    rows.emplace_back("control modes", std::to_string(report.options.modes));
    rows.emplace_back("workers", std::to_string(report.options.workers));
    rows.emplace_back("seed", std::to_string(report.options.seed));
    for (const mirrorsim::Tone& tone : report.options.tones) {
        rows.emplace_back(
            "tone", fmt::format("mode {}, {:g} Hz, {:g} nm", tone.mode, tone.frequency_hz, tone.amplitude_um * 1.0e3));
    }
    for (const auto& [name, file] : {std::pair("edge sensors played from", report.options.play.es),
                                     std::pair("actuators played from", report.options.play.pact),
                                     std::pair("references injected from", report.options.inject.file),
                                     std::pair("script", report.options.script)}) {
        if (!file.empty()) {
            rows.emplace_back(name, file.string());
        }
    }
    rows.emplace_back("limited commands", std::to_string(report.limited_commands));
    rows.emplace_back("commands not finite", std::to_string(report.commands_not_finite));
    rows.emplace_back("output", report.options.output.string());
    // The summary comes last: it names the page.
    rows.emplace_back("files", fmt::format("{}, summary.json", fmt::join(report.files, ", ")));
    return group;
}

std::string DescribeRecorded(const RecordingPlan& plan)
{
    std::vector<std::string> what;
    for (const auto& [is_recorded, name] :
         {std::pair(plan.modes, "modes"), std::pair(plan.es, "edge sensors"), std::pair(plan.pact, "actuators")}) {
        if (is_recorded) {
            what.emplace_back(name);
        }
    }
    return fmt::format("{}{}{}", fmt::join(what, ", "),
                       plan.decimation > 1 ? fmt::format("; one in {} cycles", plan.decimation) : "",
                       plan.loopback ? fmt::format("; the last {} samples", plan.capacity) : "");
}

ParameterGroup DescribeDesign(const ReportSources& sources)
{
    const LoopDesign design = DesignFor(sources.report.plan.rate_hz);
    const Margins& margins = sources.report.margins;
    ParameterGroup group{"Loop design", {}};
    auto& rows = group.rows;
    const RunReport& report = sources.report;
    const bool is_designed = report.options.gains.empty();
    rows.emplace_back(is_designed ? "crossover designed" : "gains from",
                      is_designed ? fmt::format("{:g} Hz", design.crossover_hz) : report.options.gains.string());
    const std::string lowest = fmt::format("{:.1f}", margins.crossover_hz);
    const std::string highest = fmt::format("{:.1f}", report.highest_crossover_hz);
    rows.emplace_back("crossover", lowest == highest ? lowest + " Hz" : fmt::format("{} to {} Hz", lowest, highest));
    rows.emplace_back("phase margin", fmt::format("{:.0f} deg", margins.phase_margin_deg));
    rows.emplace_back("gain margin", std::isfinite(margins.gain_margin_db)
                                         ? fmt::format("{:.1f} dB", margins.gain_margin_db)
                                         : "no limit");
    if (is_designed) {
        rows.emplace_back("set-point filter", fmt::format("{:g} Hz", design.setpoint_filter_hz));
        rows.emplace_back("anti-windup tracking time", fmt::format("{:g} s", design.tracking_time_s));
    }
    rows.emplace_back("command delay", Counted(sources.plant.delay_cycles, "cycle"));
    rows.emplace_back("actuators' lag per cycle", fmt::format("{:.4f}", sources.plant.lag_coefficient));
    return group;
}

void AddRow(const char* name, const std::optional<std::string>& value, ParameterGroup& group)
{
    if (value && !value->empty()) {
        group.rows.emplace_back(name, *value);
    }
}

/// "0-3 of 0-7 online".
std::optional<std::string> DescribeCpus(const MachineFacts& facts)
{
    if (!facts.cpus_allowed) {
        return std::nullopt;
    }
    return *facts.cpus_allowed + (facts.cpus_online ? fmt::format(" of {} online", *facts.cpus_online) : "");
}

std::optional<std::string> DescribeKernel(const MachineFacts& facts)
{
    if (!facts.kernel_release) {
        return std::nullopt;
    }
    return fmt::format("Linux {}{}{}", *facts.kernel_release, facts.kernel_version ? ", " : "",
                       facts.kernel_version.value_or(""));
}

std::optional<std::string> DescribeMemory(const MachineFacts& facts)
{
    if (!facts.memory_bytes) {
        return std::nullopt;
    }
    return FormatBytes(*facts.memory_bytes) +
           (facts.memory_available_bytes ? fmt::format(", {} available", FormatBytes(*facts.memory_available_bytes))
                                         : "");
}

}  // namespace

std::vector<ParameterGroup> DescribeRun(const ReportSources& sources)
{
    std::vector<ParameterGroup> groups{DescribeLoop(sources.report), DescribeDesign(sources)};
    groups.front().rows.emplace_back("recorded", DescribeRecorded(sources.recording_plan));
    groups.push_back({"Placement", DescribePlacement(sources.report.placement)});
    return groups;
}

ParameterGroup DescribeMachine(const MachineFacts& facts, const std::string& blas)
{
    ParameterGroup group{"Machine", {}};
    AddRow("processor", facts.cpu_model, group);
    AddRow("usable CPUs", DescribeCpus(facts), group);
    AddRow("isolated CPUs",
           facts.cpus_isolated ? facts.cpus_isolated->empty() ? "none" : *facts.cpus_isolated : NOT_TOLD, group);
    AddRow("frequency governor", DescribeGovernors(facts), group);
    AddRow("kernel", DescribeKernel(facts), group);
    AddRow("memory", DescribeMemory(facts), group);
    AddRow("huge pages", DescribeHugePages(facts), group);
    AddRow("NUMA nodes", DescribeNumaNodes(facts), group);
    AddRow("clock", facts.clock_source, group);
    AddRow("linear algebra", blas, group);
    return group;
}

}  // namespace lumo::ravelctl
