#pragma once

#include "loopAnalysis.hpp"

#include <cstdint>
#include <span>
#include <vector>

/// What moves a mode without the actuators, from what was measured of it. Thread: any. Real time: no.
namespace lumo::ravelctl {

/// Cycles after which the plant has forgotten where it stood, to one part in ten million.
std::int64_t CyclesToForget(const Plant& plant);

/// The disturbance of a mode, sensor noise included: what was measured less what the commands did through the plant.
/// `measured_um` and `command_um`: one value per cycle, of the same cycles; the command is that which was sent, what
/// it was limited to included. The result begins CyclesToForget() cycles later than these, because nobody knows where
/// the actuators stood before: it is empty where there are no more cycles than that.
std::vector<double> DeriveDisturbance(std::span<const double> measured_um, std::span<const double> command_um,
                                      const Plant& plant);

/// Variance of the white part of a series: the level of its spectrum in the upper half of the frequencies, where slow
/// disturbances have died away and single lines do not count; never more than the series' own variance. 0 for less
/// than 64 values.
double EstimateNoiseVariance(std::span<const double> series);

}  // namespace lumo::ravelctl
