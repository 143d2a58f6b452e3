#pragma once

#include <lumo/mirrorsim/controlModes.hpp>

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace lumo::ravelctl {

/// Root mean squares of the surface, um, over actuator points and time.
struct SurfaceRms
{
    double total = 0.0;
    double controlled = 0.0;  // of the part that the control modes describe
};

/// The true surface of the simulated mirror every few cycles, in memory that is taken beforehand.
class SurfaceLog
{
public:
    /// Spreads at most MAX_SAMPLES over `num_cycles`. Real time: no.
    explicit SurfaceLog(std::int64_t num_cycles);

    /// Keeps the surface of this cycle if it is one of those to be kept. Thread: the cycle's. Real time: yes.
    void Add(std::int64_t cycle, std::span<const double> surface_um);

    int GetNumSamples() const { return static_cast<int>(m_cycles.size()); }

    /// Cycle of each sample, ascending.
    const std::vector<std::int64_t>& GetCycles() const { return m_cycles; }

    /// The surface of a sample, um, NUM_PACT values. Thread: a slow one, after the run.
    std::span<const float> GetSurface(int sample) const
    {
        return std::span(m_surfaces)
            .subspan(static_cast<std::size_t>(sample) * mirrorsim::NUM_PACT, mirrorsim::NUM_PACT);
    }

    /// Rms over the samples of cycles `begin` to `end` - 1; none when there is no such sample. Thread: a slow one,
    /// after the run. Real time: no.
    std::optional<SurfaceRms> ComputeRms(std::int64_t begin, std::int64_t end,
                                         const mirrorsim::ControlModes& modes) const;

    /// Bytes that a log of any run takes at most.
    static constexpr std::size_t MAX_SAMPLES = 2000;
    static constexpr std::size_t MAX_BYTES = MAX_SAMPLES * mirrorsim::NUM_PACT * sizeof(float);

private:
    std::int64_t m_step;
    std::vector<std::int64_t> m_cycles;
    std::vector<float> m_surfaces;  // um, samples x NUM_PACT
};

}  // namespace lumo::ravelctl
