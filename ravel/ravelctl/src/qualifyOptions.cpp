#include "qualifyOptions.hpp"

#include "argumentChecks.hpp"
#include "error.hpp"
#include "otherTables.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <cmath>
#include <limits>

namespace lumo::ravelctl {

namespace {

void CheckSize(const QualifyOptions& options)
{
    constexpr int MOST = std::numeric_limits<int>::max();
    CheckRange(options.places.Name("--rows"), options.rows, 1, MOST, "");
    CheckRange(options.places.Name("--cols"), options.cols, 1, MOST, "");
    if (std::int64_t{options.rows} * options.cols > MOST) {
        throw InputError(fmt::format("{}: expected at most {} elements but {} x {} are {}",
                                     options.places.Name("--rows"), MOST, options.rows, options.cols,
                                     std::int64_t{options.rows} * options.cols));
    }
}

/// Flat out for a time the number of cycles is not known: as many as no processor does.
std::int64_t CountCycles(const QualifyOptions& options, double duration_s, std::uint64_t matrix_bytes)
{
    if (options.cycles) {
        return *options.cycles;
    }
    constexpr double SHORTEST_CYCLE_S = 2.0e-6;  // two handshakes between threads
    constexpr double MOST_BYTES_PER_S = 2.0e11;
    const double rate_hz = options.flat_out
                               ? 1.0 / (SHORTEST_CYCLE_S + static_cast<double>(matrix_bytes) / MOST_BYTES_PER_S)
                               : options.rate_hz;
    return std::max<std::int64_t>(std::llround(duration_s * rate_hz), 1);
}

std::uint64_t CountMemory(const QualifyPlan& plan)
{
    const auto workers = static_cast<std::uint64_t>(plan.placement.workers.size());
    const auto cycles = static_cast<std::uint64_t>(plan.most_cycles);
    constexpr std::uint64_t SERIES_OF_WORKER = 3;  // execution, start latency, and executions again for the histogram
    constexpr std::uint64_t SERIES_OF_LOOP = 3;    // start to ready, wake-up, and one that is being sorted
    constexpr std::uint64_t MATRIX_COPIES = 2;     // the other one while it is filled
    return MATRIX_COPIES * workers * plan.matrix_bytes +
           sizeof(float) * cycles * (workers * SERIES_OF_WORKER + SERIES_OF_LOOP);
}

}  // namespace

PlacementNeeds NeedsOf(const QualifyOptions& options)
{
    constexpr int MOST_WORKERS = 64;  // for more of them the BLAS would map its buffers in the cycles
    const PlaceChoice& cpus = options.placement.cpus;
    const int num_cpus = static_cast<int>(cpus.numbers.size());
    if (cpus.IsGiven() && options.workers && *options.workers != num_cpus) {
        throw InputError(fmt::format("{}: expected {}, one per CPU of {}, but got {}", options.places.Name("--workers"),
                                     num_cpus, cpus.name, *options.workers));
    }
    const int num_workers = options.workers.value_or(cpus.IsGiven() ? num_cpus : 1);
    CheckRange(options.places.Name("--workers"), num_workers, 1, MOST_WORKERS, "");
    return {num_workers, options.flat_out ? options.places.Name("--flat-out") : "", options.places};
}

QualifyPlan PlanQualification(const QualifyOptions& options, const CpuTopology& topology)
{
    constexpr double LONGEST_S = 1.0e6;
    constexpr double LONGEST_DEADLINE_US = 1.0e9;
    const OptionPlaces& places = options.places;
    CheckSize(options);
    CheckRange(options.places.Name("--rate"), options.rate_hz, 1.0, 5000.0, " Hz");
    if (options.cycles && options.duration_s) {
        throw InputError(fmt::format("{}: expected without {} but both are given; leave one of them out",
                                     places.Name("--cycles"), places.Name("--duration")));
    }
    CheckRange(places.Name("--cycles"), options.cycles.value_or(1), std::int64_t{1},
               std::int64_t{QualifyTable::MOST_CYCLES}, "");
    const double duration_s = options.duration_s.value_or(10.0);
    CheckRange(places.Name("--duration"), duration_s, 1.0e-3, LONGEST_S, " s");
    if (options.deadline_us) {
        CheckRange(places.Name("--deadline-us"), *options.deadline_us, 1.0, LONGEST_DEADLINE_US, " us");
    }

    constexpr double US_PER_S = 1.0e6;
    QualifyPlan plan;
    plan.placement = PlanPlacement(options.placement, NeedsOf(options), topology);
    plan.matrix_bytes =
        sizeof(float) * static_cast<std::uint64_t>(options.rows) * static_cast<std::uint64_t>(options.cols);
    plan.rate_hz = options.rate_hz;
    plan.paced = !options.flat_out;
    plan.most_cycles = CountCycles(options, duration_s, plan.matrix_bytes);
    if (options.flat_out && !options.cycles) {
        plan.longest_s = duration_s;
    }
    plan.deadline_us = options.deadline_us;
    if (!plan.deadline_us && plan.paced) {
        plan.deadline_us = US_PER_S / options.rate_hz;
    }
    plan.memory_bytes = CountMemory(plan);
    return plan;
}

}  // namespace lumo::ravelctl
