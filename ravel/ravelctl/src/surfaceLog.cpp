#include "surfaceLog.hpp"

#include <cblas.h>

#include <algorithm>
#include <cmath>

namespace lumo::ravelctl {

namespace {

double SumOfSquares(const float* values, std::size_t count)
{
    double sum = 0.0;
    for (std::size_t i = 0; i < count; ++i) {
        sum += static_cast<double>(values[i]) * static_cast<double>(values[i]);
    }
    return sum;
}

}  // namespace

SurfaceLog::SurfaceLog(std::int64_t num_cycles)
    : m_step((num_cycles + static_cast<std::int64_t>(MAX_SAMPLES) - 1) / static_cast<std::int64_t>(MAX_SAMPLES))
{
    const auto samples = static_cast<std::size_t>((num_cycles + m_step - 1) / m_step);
    m_cycles.resize(samples);  // touches every page, as no cycle should
    m_cycles.clear();
    m_surfaces.resize(samples * mirrorsim::NUM_PACT);
    m_surfaces.clear();
}

void SurfaceLog::Add(std::int64_t cycle, std::span<const double> surface_um)
{
    if (cycle % m_step != 0 || m_cycles.size() == m_cycles.capacity()) {
        return;
    }
    m_cycles.push_back(cycle);
    for (const double height : surface_um) {
        m_surfaces.push_back(static_cast<float>(height));
    }
}

std::optional<SurfaceRms> SurfaceLog::ComputeRms(std::int64_t begin, std::int64_t end,
                                                 const mirrorsim::ControlModes& modes) const
{
    const auto first = std::lower_bound(m_cycles.begin(), m_cycles.end(), begin) - m_cycles.begin();
    const auto last = std::lower_bound(m_cycles.begin(), m_cycles.end(), end) - m_cycles.begin();
    const int num_samples = static_cast<int>(last - first);
    if (num_samples == 0) {
        return std::nullopt;
    }
    const float* surfaces = m_surfaces.data() + first * mirrorsim::NUM_PACT;
    // Modes are orthonormal over the actuator points: the squares of the modal coordinates add up to the surface's.
    std::vector<float> coordinates(static_cast<std::size_t>(num_samples) * static_cast<std::size_t>(modes.num_modes));
    cblas_sgemm(CblasRowMajor, CblasNoTrans, CblasTrans, num_samples, modes.num_modes, mirrorsim::NUM_PACT, 1.0F,
                surfaces, mirrorsim::NUM_PACT, modes.pact2modes.data(), mirrorsim::NUM_PACT, 0.0F, coordinates.data(),
                modes.num_modes);
    const std::size_t num_heights = static_cast<std::size_t>(num_samples) * mirrorsim::NUM_PACT;
    const auto rms = [num_heights](double sum) {
        return std::sqrt(sum / static_cast<double>(num_heights));
    };
    return SurfaceRms{rms(SumOfSquares(surfaces, num_heights)),
                      rms(SumOfSquares(coordinates.data(), coordinates.size()))};
}

}  // namespace lumo::ravelctl
