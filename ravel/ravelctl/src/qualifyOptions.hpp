#pragma once

#include "placement.hpp"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <vector>

namespace lumo::ravelctl {

/// What `ravelctl qualify` can be told; the values here are its defaults.
struct QualifyOptions
{
    std::filesystem::path config;  // of a run; none where it is empty
    int rows = 300;
    int cols = 4788;
    std::optional<int> workers;  // 1, or one per CPU that is given
    double rate_hz = 500.0;
    bool flat_out = false;             // do not wait between cycles
    std::optional<double> duration_s;  // 10
    std::optional<std::int64_t> cycles;
    std::optional<double> deadline_us;  // the period; flat out: none
    PlacementOptions placement;
    std::filesystem::path output;  // a new folder named after the time where it is empty
    bool overwrite = false;
    bool quiet = false;
    OptionPlaces places;  // of what stands in the file
};

/// What the options mean on this machine.
struct QualifyPlan
{
    static constexpr int WARM_UP_CYCLES = 10;  // before all others; not in the figures
    static constexpr int CYCLES_PER_READ = 20;

    PlacementPlan placement;
    std::int64_t most_cycles = 0;     // that there is memory for
    std::optional<double> longest_s;  // flat out for a time
    double rate_hz = 0.0;
    bool paced = true;
    std::optional<double> deadline_us;
    std::uint64_t matrix_bytes = 0;  // of one worker
    std::uint64_t memory_bytes = 0;  // of everything

    int CountWorkers() const { return static_cast<int>(placement.workers.size()); }
    std::int64_t CountReads() const { return most_cycles / CYCLES_PER_READ; }
};

/// What the placement is for. Failure: InputError for a number of workers that cannot be.
PlacementNeeds NeedsOf(const QualifyOptions& options);

/// Checks every option but the output folder. Failure: InputError that says what was expected and what came.
QualifyPlan PlanQualification(const QualifyOptions& options, const CpuTopology& topology);

}  // namespace lumo::ravelctl
