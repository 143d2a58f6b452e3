#pragma once

#include "framePlayer.hpp"

#include <lumo/mirrorsim/mirror.hpp>

#include <span>

namespace lumo::ravelctl {

/// The front end as the cycle sees it, with the simulated mirror or recorded frames behind it: one pair of records per
/// cycle in, one vector of commands out. Thread: the cycle's. Real time: yes, but for the constructor.
class SimulatedFrontEnd
{
public:
    /// `player`: frames that take the place of the simulated records; none plays nothing. Not owned, outlives this.
    explicit SimulatedFrontEnd(mirrorsim::Mirror mirror, FramePlayer* player = nullptr);

    /// The records of the present cycle; valid until the next Advance.
    const mirrorsim::EsRecord& GetEsMeas() const { return m_es; }
    const mirrorsim::PactRecord& GetPactMeas() const { return m_pact; }

    /// Sends the commands, um, NUM_PACT values, and lets the mirror go on by one period; the records are then those of
    /// the next cycle, with this synchronisation time. While the edge sensors are played back the mirror stands still:
    /// nobody sees what the commands would do to it.
    void Advance(std::span<const float> command_um, double next_sync_time_s);

    /// Whether the records show what the commands did, rather than what was recorded.
    bool IsMirrorSeen() const { return m_player == nullptr || !m_player->HasEs(); }

    const mirrorsim::Mirror& GetMirror() const { return m_mirror; }

private:
    void FillRecords(double sync_time_s);

    mirrorsim::Mirror m_mirror;
    FramePlayer* m_player;
    int m_tag = 0;  // the cycle's number
    mirrorsim::EsRecord m_es{};
    mirrorsim::PactRecord m_pact{};
};

}  // namespace lumo::ravelctl
