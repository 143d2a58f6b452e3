#include "recordings.hpp"

#include "outputFile.hpp"
#include "recorderTools.hpp"
#include "wholeFile.hpp"

#include <lumo/ravelcore/feMeas.hpp>

#include <algorithm>
#include <exception>

namespace lumo::ravelctl {

namespace {

template <typename Record>
void AddFrame(double sync_time_s, const Record& record, std::vector<float>& sample, ravelcore::Recorder& recorder)
{
    sample.clear();  // keeps its storage, which is enough for either kind
    ravelcore::AddFeMeasToSamples(record, sample);
    recorder.AddSample(sync_time_s, sample.data());
}

}  // namespace

Recordings::Recordings(const RecordingPlan& plan, SliceSet& slices)
    : m_plan(plan), m_slices(slices), m_es("es"), m_pact("pact")
{
    if (plan.es) {
        m_es.Init(plan.capacity, static_cast<int>(ravelcore::ES_SAMPLE_SIZE));
    }
    if (plan.pact) {
        m_pact.Init(plan.capacity, static_cast<int>(ravelcore::PACT_SAMPLE_SIZE));
    }
    m_sample.resize(std::max(ravelcore::ES_SAMPLE_SIZE, ravelcore::PACT_SAMPLE_SIZE));  // touches every page
    m_sample.clear();
}

void Recordings::Start()
{
    m_cycles = 0;
    m_is_recording = true;
    if (m_plan.modes) {
        m_slices.StartRecording(m_plan.loopback, m_plan.decimation);
    }
    for (ravelcore::Recorder* recorder : {&m_es, &m_pact}) {
        recorder->Start(m_plan.loopback, m_plan.decimation);  // one that was not initialised records nothing
    }
}

void Recordings::Stop()
{
    m_is_recording = false;
    m_slices.StopRecording();
    StopRecorder(m_es);
    StopRecorder(m_pact);
}

void Recordings::Add(double sync_time_s, const mirrorsim::EsRecord& es, const mirrorsim::PactRecord& pact)
{
    if (!m_is_recording) {  // a slow thread may be saving: it reads the count
        return;
    }
    ++m_cycles;
    if (m_plan.es) {
        AddFrame(sync_time_s, es, m_sample, m_es);
    }
    if (m_plan.pact) {
        AddFrame(sync_time_s, pact, m_sample, m_pact);
    }
}

void Recordings::Save(const std::filesystem::path& folder, const std::function<void(const std::string&)>& done,
                      const std::function<void(const std::string&)>& failed) const
{
    if (m_cycles < m_plan.decimation) {
        return;  // nothing is recorded, so there is nothing to lose
    }
    const auto save = [&](const std::vector<const ravelcore::Recorder*>& recorders) {
        const std::string name = recorders.front()->GetName() + ".fits";
        const std::filesystem::path file = folder / name;
        try {
            WriteWhole(file, [&](const std::filesystem::path& part) { SaveSideBySide(recorders, part); });
            done(name);
        } catch (const std::exception& e) {
            failed(CannotWrite(file, e.what()));
        }
    };
    if (m_plan.modes) {
        save(m_slices.GetModesInRecorders());
        save(m_slices.GetModesOutRecorders());
        save(m_slices.GetModesRefRecorders());
        save(m_slices.GetModesArwRecorders());
    }
    if (m_plan.es) {
        save({&m_es});
    }
    if (m_plan.pact) {
        save({&m_pact});
    }
}

void Recordings::SaveSideBySide(const std::vector<const ravelcore::Recorder*>& recorders,
                                const std::filesystem::path& file) const
{
    if (recorders.size() == 1 && !m_plan.loopback) {  // spares a copy of what may be most of the memory
        recorders.front()->Save(file.string());
        return;
    }
    std::vector<ravelcore::Recorder> copies;
    copies.reserve(recorders.size());
    for (const ravelcore::Recorder* recorder : recorders) {
        copies.push_back(m_plan.loopback ? InOrderOfTime(*recorder, m_cycles / m_plan.decimation) : *recorder);
    }
    ravelcore::SaveCombinedRecorders(file.string(), copies.front().GetName(), copies);
}

}  // namespace lumo::ravelctl
