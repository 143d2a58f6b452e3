#pragma once

#include <lumo/ravelcore/recorder.hpp>

#include <cstdint>

namespace lumo::ravelctl {

/// The newest samples of a recorder that was given `num_recorded`, in the order of time: a recorder that has gone round
/// holds the older ones behind its index, where saving it would leave them.
/// Thread: a slow one, while nothing is recorded. Real time: no.
ravelcore::Recorder InOrderOfTime(const ravelcore::Recorder& recorder, std::int64_t num_recorded);

/// Stops a recorder that may not have recorded anything yet. Real time: yes.
void StopRecorder(ravelcore::Recorder& recorder);

}  // namespace lumo::ravelctl
