#pragma once

#include <lumo/mirrorsim/mirror.hpp>

#include <span>

namespace lumo::ravelctl {

/// The front end as the cycle sees it, with the simulated mirror behind it: one pair of records per cycle in, one
/// vector of commands out. Thread: the cycle's. Real time: yes, but for the constructor.
class SimulatedFrontEnd
{
public:
    explicit SimulatedFrontEnd(mirrorsim::Mirror mirror);

    /// The records of the present cycle; valid until the next Advance.
    const mirrorsim::EsRecord& GetEsMeas() const { return m_es; }
    const mirrorsim::PactRecord& GetPactMeas() const { return m_pact; }

    /// Sends the commands, um, NUM_PACT values, and lets the mirror go on by one period; the records are then those of
    /// the next cycle, with this synchronisation time.
    void Advance(std::span<const float> command_um, double next_sync_time_s);

    const mirrorsim::Mirror& GetMirror() const { return m_mirror; }

private:
    void FillRecords(double sync_time_s);

    mirrorsim::Mirror m_mirror;
    mirrorsim::EsRecord m_es{};
    mirrorsim::PactRecord m_pact{};
};

}  // namespace lumo::ravelctl
