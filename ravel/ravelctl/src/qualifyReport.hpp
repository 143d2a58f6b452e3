#pragma once

#include "durations.hpp"
#include "placementReport.hpp"
#include "qualifyOptions.hpp"
#include "reportMath.hpp"
#include "sgemvTask.hpp"
#include "terminalHistogram.hpp"
#include "terminalStyle.hpp"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace lumo::ravelctl {

/// What one worker has done.
struct WorkerFigures
{
    GrantedPlace place;
    std::int64_t cycles = 0;
    std::int64_t reads = 0;
    std::optional<std::int64_t> missed_deadlines;  // products done later than the deadline after giving the start
    std::optional<Percentiles> execution_us;
    std::optional<Percentiles> latency_us;  // from giving the start to the beginning of Execute
    std::optional<Percentiles> read_us;     // of the same bytes without a product
    DurationHistogram execution_counts{};
    DurationHistogram latency_counts{};

    /// Of the matrix in the median time; missing where there was no cycle, or no read.
    std::optional<double> ComputeGbPerS(std::uint64_t matrix_bytes) const;
    std::optional<double> ComputeReadGbPerS(std::uint64_t matrix_bytes) const;

    /// Speed of the product over that of the read.
    std::optional<double> ComputeRatio() const;
};

/// The result of a qualification.
struct QualifyReport
{
    std::string version;
    std::string blas;
    std::string started_utc;  // ISO 8601
    QualifyOptions options;
    QualifyPlan plan;
    PlacementReport placement;
    std::vector<WorkerFigures> workers;
    std::int64_t cycles_done = 0;
    std::int64_t late_cycles = 0;                   // from start to ready took longer than the deadline
    std::int64_t missed_instants = 0;               // at which no start could be given
    std::optional<Percentiles> cycle_us;            // from giving the start to every worker ready
    std::optional<Percentiles> wake_up_us;          // from the instant to giving the start
    std::vector<HistogramBin> execution_histogram;  // of all workers
    std::vector<HistogramBin> cycle_histogram;
    DurationHistogram cycle_counts;     // finer, and those beyond the deadline
    std::vector<std::string> files;     // names in the output folder
    std::vector<std::string> problems;  // one line each
    bool interrupted = false;

    /// Whether everything was done in time: the cycles that were to be done, each within the deadline, on every
    /// instant.
    bool DidHold() const;

    /// One line: whether it held, by which deadline, and how long after its instant the latest start was given; the
    /// deadline counts from the start on, so that lateness is beside it.
    std::string FormatVerdict() const;
};

/// "worker0 on CPU 3", as its thread is called and where it runs.
std::string NameWorker(std::size_t index, const WorkerFigures& worker);

/// Whether the system gave the workers the priority that they asked for.
std::string DescribePriority(const QualifyReport& report);

/// For people, several lines of at most 80 columns, but for the names of files.
std::string FormatQualification(const QualifyReport& report, const Palette& palette = {});

/// For programs: writes qualify.json. Failure: RunError.
void WriteQualification(const QualifyReport& report, const std::filesystem::path& file);

}  // namespace lumo::ravelctl
