#pragma once

#include "runOptions.hpp"

#include <lumo/ravelcore/modulation.hpp>

#include <cstdint>
#include <functional>
#include <span>
#include <string>

namespace lumo::ravelctl {

/// Adds prerecorded samples, one value per mode, to the modes' references.
class ReferenceInjection
{
public:
    /// Reads the file. Real time: no. Failure: InputError: unreadable, not a column per mode,
    /// values that are not finite.
    ReferenceInjection(const InjectOptions& options, int num_modes, const std::function<void(const std::string&)>& say);

    int GetNumSamples() const { return m_num_samples; }

    /// In which cycles of a run the samples act, for people, and whether some of them do not. One line.
    std::string Describe(const LoopPlan& plan) const;

    /// Begins with the first sample. Thread: any, between cycles. Real time: yes.
    void Start();

    /// Adds the sample of the coming cycle to `reference_um`; nothing before Start and after the last sample.
    /// Returns whether there was one. Thread: the cycle's. Real time: yes.
    bool AddNext(std::span<float> reference_um);

private:
    void CheckValues(const InjectOptions& options, int num_modes);

    ravelcore::Modulation m_modulation;
    int m_decimation;
    bool m_loop;
    int m_num_samples = 0;
    std::int64_t m_calls_left = 0;  // without loop
};

}  // namespace lumo::ravelctl
