#include "simulatedFrontEnd.hpp"

#include <utility>

namespace lumo::ravelctl {

SimulatedFrontEnd::SimulatedFrontEnd(mirrorsim::Mirror mirror, FramePlayer* player)
    : m_mirror(std::move(mirror)), m_player(player)
{
    if (m_player != nullptr) {
        m_player->Start();
    }
    FillRecords(0.0);
}

void SimulatedFrontEnd::Advance(std::span<const float> command_um, double next_sync_time_s)
{
    if (IsMirrorSeen()) {
        m_mirror.Step(command_um);
    }
    ++m_tag;
    FillRecords(next_sync_time_s);
}

void SimulatedFrontEnd::FillRecords(double sync_time_s)
{
    m_mirror.FillEsMeas(sync_time_s, m_tag, m_es);
    m_mirror.FillPactMeas(sync_time_s, m_tag, m_pact);
    if (m_player != nullptr && m_player->HasEs()) {
        m_player->PlayEs(m_es);
    }
    if (m_player != nullptr && m_player->HasPact()) {
        m_player->PlayPact(m_pact);
    }
}

}  // namespace lumo::ravelctl
