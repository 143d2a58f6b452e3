#include "recordingPlan.hpp"

#include "error.hpp"

#include <lumo/ravelcore/feMeas.hpp>

#include <fmt/core.h>

#include <algorithm>
#include <cmath>
#include <limits>

namespace lumo::ravelctl {

namespace {

constexpr std::uint64_t NUM_MODE_FILES = 4;  // modes_in, modes_out, modes_ref, modes_arw

/// Recorders, and the files that hold the slices' side by side, count their floats in 32 bits.
void CheckValues(const RunOptions& options, const char* what, std::int64_t samples, std::int64_t sample_size)
{
    constexpr std::int64_t MOST = std::numeric_limits<std::int32_t>::max();
    if (samples * sample_size > MOST) {
        throw InputError(
            fmt::format("{}: {} samples of {} {} are more than the {} values that a recording "
                        "holds; run for a shorter time, or record with --record-decimation or "
                        "--record-last",
                        options.places.Name("--duration"), samples, sample_size, what, MOST));
    }
}

}  // namespace

RecordingPlan PlanRecording(const RunOptions& options, const LoopPlan& plan)
{
    const RecordOptions& record = options.record;
    if (record.decimation < 1 || record.decimation > plan.cycles) {
        throw InputError(fmt::format("{}: expected 1 to the run's {} cycles but got {}",
                                     options.places.Name("--record-decimation"), plan.cycles, record.decimation));
    }
    std::int64_t samples = plan.cycles / record.decimation;
    RecordingPlan recording{record.modes, record.es, record.pact, record.decimation};
    if (record.last_s) {
        if (!(*record.last_s > 0.0)) {
            throw InputError(fmt::format("{}: expected seconds above 0 but got {}",
                                         options.places.Name("--record-last"), *record.last_s));
        }
        // More than the run is long is the whole run.
        const double kept_s = std::min(*record.last_s, plan.TimeOf(plan.cycles));
        const double wanted = kept_s * options.rate_hz / record.decimation;
        samples = std::clamp<std::int64_t>(std::llround(wanted), 1, samples);
        recording.loopback = true;
    }
    if (record.modes) {
        CheckValues(options, "modes", samples, options.modes);
    }
    if (record.es) {
        CheckValues(options, "edge-sensor values", samples, static_cast<std::int64_t>(ravelcore::ES_SAMPLE_SIZE));
    }
    if (record.pact) {
        CheckValues(options, "actuator values", samples, static_cast<std::int64_t>(ravelcore::PACT_SAMPLE_SIZE));
    }
    recording.capacity = static_cast<int>(samples);
    return recording;
}

std::uint64_t RecordingPlan::BytesToRecord(int num_modes, int num_workers) const
{
    const auto samples = static_cast<std::uint64_t>(capacity);
    std::uint64_t bytes = 0;
    if (modes) {
        const auto stamps = NUM_MODE_FILES * static_cast<std::uint64_t>(num_workers) * sizeof(double);
        bytes += samples * (NUM_MODE_FILES * static_cast<std::uint64_t>(num_modes) * sizeof(float) + stamps);
    }
    bytes += es ? samples * (ravelcore::ES_SAMPLE_SIZE * sizeof(float) + sizeof(double)) : 0;
    bytes += pact ? samples * (ravelcore::PACT_SAMPLE_SIZE * sizeof(float) + sizeof(double)) : 0;
    return bytes;
}

std::uint64_t RecordingPlan::BytesToSave(int num_modes, int num_workers) const
{
    // Measured: saving a matrix peaks at three further copies of it. Slices are copied and put side by side before; a
    // recorder that went round is put in order in a copy.
    constexpr std::uint64_t FILE_LAYER = 3;
    const std::uint64_t copies = FILE_LAYER + (loopback ? 1 : 0);
    const std::uint64_t mode_copies = num_workers > 1 ? FILE_LAYER + 2 : copies;
    const std::uint64_t values = static_cast<std::uint64_t>(capacity) * sizeof(float);
    return std::max({modes ? mode_copies * values * static_cast<std::uint64_t>(num_modes) : 0,
                     es ? copies * values * ravelcore::ES_SAMPLE_SIZE : 0,
                     pact ? copies * values * ravelcore::PACT_SAMPLE_SIZE : 0});
}

}  // namespace lumo::ravelctl
