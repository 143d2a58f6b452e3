#pragma once

#include "durations.hpp"
#include "loopAnalysis.hpp"
#include "placementReport.hpp"
#include "runOptions.hpp"
#include "scriptPlayer.hpp"
#include "terminalStyle.hpp"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace lumo::ravelctl {

/// A figure with the loop open and in the second half of the closed loop; missing where the run did not get there.
struct BeforeAfter
{
    std::optional<double> before;
    std::optional<double> after;
};

/// The gains of a run from a cycle on.
struct GainsFile
{
    std::int64_t before_cycle = 0;
    std::string name;  // in the output folder
};

/// The result of a run.
struct RunReport
{
    std::string version;
    std::string blas;
    std::string started_utc;  // ISO 8601
    RunOptions options;
    LoopPlan plan;
    PlacementReport placement;
    Plant plant;
    Margins margins{};  // of the gains with which it began: each figure the lowest of all modes
    double highest_crossover_hz = 0.0;
    std::int64_t cycles_done = 0;
    std::int64_t missed_cycles = 0;
    std::vector<std::int64_t> missed_before;  // the cycle after each missed instant
    std::int64_t limited_commands = 0;
    std::int64_t commands_not_finite = 0;
    std::optional<Percentiles> cycle_time_us;
    std::optional<Percentiles> execution_time_us;
    BeforeAfter surface_rms_nm;
    BeforeAfter controlled_rms_nm;
    std::optional<double> first_closed_rms_nm;  // controlled modes in the first cycle, of a loop that was never open
    BeforeAfter edge_sensor_rms_nm;
    std::vector<GainsFile> gains;  // in the order in which they came into force
    std::vector<ScriptEvent> script;
    bool mirror_was_seen = true;        // false: recorded frames were played instead
    std::vector<std::string> files;     // names in the output folder
    std::vector<std::string> problems;  // one line each
    bool interrupted = false;

    /// Whether the loop held: it ran to its end, every command was finite, and the controlled modes ended up smaller
    /// than they were with the loop open, or in the first cycle of a loop that was never open. Of frames that were
    /// played back nothing needs to have become smaller.
    bool DidHold() const;

    /// With what the controlled modes are compared at the end.
    std::optional<double> GetReferenceNm() const;

    /// Missed instants while the slow thread was busy with a step of the script: preparing it, or doing it.
    std::int64_t CountMissed(const ScriptEvent& event) const;

    /// Missed instants while it was busy with any step, each once.
    std::int64_t CountMissedInScript() const;
};

/// A step of the script as it is told while the loop runs: one line.
std::string FormatStep(const ScriptEvent& event);

/// Why the loop did not hold, in one line.
std::string DescribeFailure(const RunReport& report);

/// The result in a few words.
std::string Verdict(const RunReport& report);

/// For people, several lines.
std::string FormatReport(const RunReport& report, const Palette& palette = {});

/// For programs: writes summary.json. Failure: RunError.
void WriteSummary(const RunReport& report, const std::filesystem::path& file);

}  // namespace lumo::ravelctl
