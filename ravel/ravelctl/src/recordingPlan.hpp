#pragma once

#include "runOptions.hpp"

#include <cstdint>

namespace lumo::ravelctl {

/// What the recorders of a run hold.
struct RecordingPlan
{
    bool modes = true;
    bool es = false;
    bool pact = false;
    int decimation = 1;
    bool loopback = false;  // keep the newest samples, rather than stop, when a recorder is full
    int capacity = 1;       // samples per recorder

    /// Bytes of all recorders' samples and time stamps.
    std::uint64_t BytesToRecord(int num_modes, int num_workers) const;

    /// Bytes that saving takes on top at most, one file after the other.
    std::uint64_t BytesToSave(int num_modes, int num_workers) const;
};

/// Checks the options that say what is recorded. Failure: InputError that says what was expected and what came.
RecordingPlan PlanRecording(const RunOptions& options, const LoopPlan& plan);

}  // namespace lumo::ravelctl
