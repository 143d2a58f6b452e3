#pragma once

#include "loopAnalysis.hpp"
#include "runFolder.hpp"
#include "tuneOptions.hpp"

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace lumo::ravelctl {

/// The loop of one mode with certain gains, and what it leaves.
struct TunedLoop
{
    float kp = 0.0F;
    float ki = 0.0F;
    Margins margins{0.0, 0.0, 0.0};
    double sensitivity_peak = 0.0;
    double residual_um2 = 0.0;  // mean square of what is measured, sensor noise included
};

/// A figure of each quarter of a recording: how much they differ shows how far a prediction can be trusted.
using Quarters = std::array<double, 4>;

/// The gains of one mode, as they were and as they are proposed.
struct ModeTuning
{
    TunedLoop now;
    TunedLoop proposed;
    double noise_um2 = 0.0;              // variance of the sensor noise in it
    std::optional<double> recorded_um2;  // mean square of what was measured, where the run's result was judged
    bool is_kept = false;                // the gains are proposed as they were
    Quarters quarters_um2{};             // the residual with the proposed gains
};

/// Sums over all modes, nm rms of surface.
struct TuningTotals
{
    std::optional<double> recorded_nm;  // of what was measured, where the run's result was judged
    double now_nm = 0.0;                // of what would be measured, computed
    double proposed_nm = 0.0;
    double surface_now_nm = 0.0;  // of the surface itself: without the noise of the moment
    double surface_proposed_nm = 0.0;
    Quarters surface_quarters_nm{};  // of the proposed gains
};

/// What `ravelctl tune` finds out of a run.
struct Tuning
{
    bool is_from_open = false;
    std::int64_t cycles = 0;          // of the disturbance
    std::int64_t skipped = 0;         // of them, in which the computed loops settle
    std::int64_t limited_cycles = 0;  // in which a command to these modes was limited
    double rate_hz = 0.0;
    Plant plant;
    LoopDemands demands;
    std::vector<ModeTuning> modes;
    std::vector<float> params;  // the proposed gains, 10 floats per mode
    std::optional<double> run_surface_nm;

    TuningTotals ComputeTotals() const;
};

/// nm rms of surface from a sum of mean squares of modal coordinates, um^2: modes are orthonormal over the actuator
/// points.
double SurfaceNm(double squares_um2);

/// A run's residual as its modes_in shows it, um^2 mean square of each mode: from the first judged cycle on, or from
/// the last change of gains, whichever is later. Empty where the run ended before.
std::vector<double> MeasureResiduals(const ModesRecording& in, std::int64_t begin);
std::int64_t FirstMeasuredCycle(const RunFolder& run, std::span<const GainsInForce> gains);

/// Derives the disturbance of each mode of a run and finds the gains that leave the least of it. `tell` hears how many
/// modes are done, and is called at least every few modes.
/// Thread: a slow one. Failure: InputError for a run that does not tell its disturbance, or demands that no loop meets.
Tuning TuneModes(const RunFolder& run, const TuneOptions& options, const std::function<void(std::size_t)>& tell);

}  // namespace lumo::ravelctl
