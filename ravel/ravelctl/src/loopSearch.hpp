#pragma once

#include "loopAnalysis.hpp"
#include "tuneOptions.hpp"

#include <lumo/ravelcore/pidFilter.hpp>

#include <array>
#include <cstdint>
#include <span>
#include <vector>

/// The gains with which the loop of one mode leaves the least of its disturbance. Thread: any. Real time: no.
namespace lumo::ravelctl {

/// Loops that are computed at one go.
inline constexpr std::size_t LOOPS_AT_ONCE = 8;
using LoopBatch = std::array<ravelcore::PidFilterContext, LOOPS_AT_ONCE>;
using ResidualBatch = std::array<double, LOOPS_AT_ONCE>;

/// Mean square of what is measured of the mode in closed loops with each of the channels, cycle by cycle, over
/// `disturbance_um` without its first `skipped` values. References are 0, limits are not reached, and the loop begins
/// balanced: the actuators make up for the first value. Infinity where a loop runs away.
///
/// What is measured is the surface plus a noise that the loop has not seen yet. Where the noise is white the two do not
/// depend on each other, so that the mean square of the surface is the one of what is measured less the noise's
/// variance: the gains that leave the least of one leave the least of the other.
ResidualBatch ComputeResiduals(std::span<const double> disturbance_um, std::int64_t skipped, const LoopBatch& channels,
                               const Plant& plant);

/// The same of one channel.
double ComputeResidual(std::span<const double> disturbance_um, std::int64_t skipped,
                       const ravelcore::PidFilterContext& channel, const Plant& plant);

/// Whether the loop of a channel is what is demanded.
bool MeetsDemands(const ravelcore::PidFilterContext& channel, const Plant& plant, const LoopDemands& demands);

/// A channel with its gains replaced and its coefficients derived from them.
ravelcore::PidFilterContext WithGains(ravelcore::PidFilterContext channel, double kp, double ki);

/// The PI controllers among which the best one is looked for: with the controller's zero at 0.5 to 1.4 times the
/// frequency of the actuators' lag, and gains from the lowest to the highest that meets the demands. What else a
/// channel has, such as a derivative, is kept.
class LoopSearch
{
public:
    /// `channel`: whose other parameters are kept.
    /// Failure: InputError where no gains meet the demands.
    LoopSearch(const ravelcore::PidFilterContext& channel, const Plant& plant, const LoopDemands& demands);

    /// The channel that leaves the least mean square, of the ones that meet the demands.
    ravelcore::PidFilterContext FindBest(std::span<const double> disturbance_um, std::int64_t skipped) const;

    /// The lowest crossover that is proposed, Hz: a slower loop would take long to settle when it is closed.
    static double LowestCrossover(const Plant& plant);

private:
    /// One place of the zero.
    struct Line
    {
        double ki = 0.0;
        double lowest_kp = 0.0;
        double highest_kp = 0.0;
    };

    ravelcore::PidFilterContext At(const Line& line, double fraction) const;

    ravelcore::PidFilterContext m_channel;
    Plant m_plant;
    std::vector<Line> m_lines;
};

}  // namespace lumo::ravelctl
