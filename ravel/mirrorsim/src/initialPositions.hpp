#pragma once

#include <lumo/mirrorsim/geometry.hpp>
#include <lumo/mirrorsim/mirrorConfig.hpp>

#include <vector>

namespace lumo::mirrorsim {

/// The actuator positions at cycle 0, in um: a smooth low-order shape plus a little ripple a few segments wide and a
/// trace of scatter, without unobservable part, initial_rms_um over all actuators. Each is a float exactly, so that a
/// command can say "stay". Thread: any, not in the cycle.
std::vector<double> InitialPositions(const Geometry& geometry, const MirrorConfig& config);

}  // namespace lumo::mirrorsim
