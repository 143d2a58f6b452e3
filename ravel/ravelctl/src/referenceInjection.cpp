#include "referenceInjection.hpp"

#include "error.hpp"
#include "modulationFile.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <cmath>
#include <limits>

namespace lumo::ravelctl {

ReferenceInjection::ReferenceInjection(const InjectOptions& options, int num_modes,
                                       const std::function<void(const std::string&)>& say)
    : m_modulation("references", num_modes, 0.0F), m_decimation(options.decimation), m_loop(options.loop)
{
    if (m_decimation < 1) {
        throw InputError(fmt::format("--inject-decimation: expected 1 to {} cycles but got {}",
                                     std::numeric_limits<int>::max(), m_decimation));
    }
    LoadModulation(m_modulation, options.file, "--inject", say);
    m_num_samples = m_modulation.GetNumSamples();
    CheckValues(options, num_modes);
}

/// One value that is not a number would stay in its channel for good.
void ReferenceInjection::CheckValues(const InjectOptions& options, int num_modes)
{
    m_modulation.Start(false, 1);
    for (int sample = 1; sample <= m_num_samples; ++sample) {
        int number = 0;
        const float* values = m_modulation.GetNextSample(number);
        const float* flaw =
            std::find_if_not(values, values + num_modes, [](float value) { return std::isfinite(value); });
        if (flaw != values + num_modes) {
            throw InputError(fmt::format("--inject: expected finite values but sample {} of {} has {} for mode {}",
                                         number, options.file.string(), *flaw, flaw - values));
        }
    }
    m_modulation.Stop();
}

std::string ReferenceInjection::Describe(const LoopPlan& plan) const
{
    const std::int64_t begin = plan.FirstInjectedCycle();
    const std::int64_t end = begin + static_cast<std::int64_t>(m_num_samples) * m_decimation;
    const std::string what =
        fmt::format("injecting {} sample{}{} from {:g} s on", m_num_samples, m_num_samples == 1 ? "" : "s",
                    m_decimation == 1 ? "" : fmt::format(" of {} cycles each", m_decimation), plan.TimeOf(begin));
    if (m_loop) {
        return what + ", again and again";
    }
    if (end > plan.cycles) {
        return fmt::format("{}; the run ends {:g} s before the last one is over", what, plan.TimeOf(end - plan.cycles));
    }
    return fmt::format("{}, until {:g} s", what, plan.TimeOf(end));
}

void ReferenceInjection::Start()
{
    m_calls_left = static_cast<std::int64_t>(m_num_samples) * m_decimation;
    m_modulation.Start(m_loop, m_decimation);
}

bool ReferenceInjection::AddNext(std::span<float> reference_um)
{
    // Behind its last sample a modulation that does not loop hands out something that is none.
    if (m_calls_left == 0) {
        return false;
    }
    m_calls_left -= m_loop ? 0 : 1;
    int number = 0;
    const float* sample = m_modulation.GetNextSample(number);
    for (std::size_t i = 0; i < reference_um.size(); ++i) {
        reference_um[i] += sample[i];
    }
    return true;
}

}  // namespace lumo::ravelctl
