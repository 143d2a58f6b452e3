#pragma once

#include "recordingPlan.hpp"
#include "sliceSet.hpp"

#include <lumo/mirrorsim/mirror.hpp>
#include <lumo/ravelcore/recorder.hpp>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace lumo::ravelctl {

/// Everything that a run records: the modes, by the slices' tasks, and the front end's records.
///
/// The recorders of all slices must hold the same cycles, so they start and stop between cycles, by the cycle thread.
class Recordings
{
public:
    /// Takes the memory of the front end's recorders; the slices' is taken by their tasks. `slices` must outlive this.
    Recordings(const RecordingPlan& plan, SliceSet& slices);

    /// Starts or restarts recording; ends it. Thread: the cycle's between cycles, or a slow one while no cycle runs.
    /// Real time: yes.
    void Start();
    void Stop();

    /// The cycle that has just been computed. Data: the records of that cycle; `sync_time_s` is their time stamp.
    /// Thread: the cycle's. Real time: yes.
    void Add(double sync_time_s, const mirrorsim::EsRecord& es, const mirrorsim::PactRecord& pact);

    /// Cycles from Start to Stop. Thread: the cycle's, or a slow one while nothing is recorded.
    std::int64_t GetCycles() const { return m_cycles; }

    /// Writes what is recorded, whole file after whole file: modes_in.fits, modes_out.fits, modes_ref.fits,
    /// modes_arw.fits, es.fits, pact.fits. `done` is told each file's name, `failed` why one could not be written; the
    /// others are then tried all the same. Thread: a slow one, after Stop or the end of the cycle. Real time: no.
    void Save(const std::filesystem::path& folder, const std::function<void(const std::string&)>& done,
              const std::function<void(const std::string&)>& failed) const;

private:
    void SaveSideBySide(const std::vector<const ravelcore::Recorder*>& recorders,
                        const std::filesystem::path& file) const;

    RecordingPlan m_plan;
    SliceSet& m_slices;
    ravelcore::Recorder m_es;
    ravelcore::Recorder m_pact;
    std::vector<float> m_sample;  // one, as it goes to a recorder
    std::int64_t m_cycles = 0;
    bool m_is_recording = false;  // the cycle's
};

}  // namespace lumo::ravelctl
