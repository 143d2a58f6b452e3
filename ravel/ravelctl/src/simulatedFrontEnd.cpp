#include "simulatedFrontEnd.hpp"

#include <utility>

namespace lumo::ravelctl {

SimulatedFrontEnd::SimulatedFrontEnd(mirrorsim::Mirror mirror) : m_mirror(std::move(mirror))
{
    FillRecords(0.0);
}

void SimulatedFrontEnd::Advance(std::span<const float> command_um, double next_sync_time_s)
{
    m_mirror.Step(command_um);
    FillRecords(next_sync_time_s);
}

void SimulatedFrontEnd::FillRecords(double sync_time_s)
{
    const int tag = static_cast<int>(m_mirror.GetCycle());
    m_mirror.FillEsMeas(sync_time_s, tag, m_es);
    m_mirror.FillPactMeas(sync_time_s, tag, m_pact);
}

}  // namespace lumo::ravelctl
