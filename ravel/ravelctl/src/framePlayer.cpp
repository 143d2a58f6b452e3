#include "framePlayer.hpp"

#include "modulationFile.hpp"
#include "tableRows.hpp"

#include <brisk/helper.hpp>
#include <lumo/ravelcore/feMeas.hpp>

#include <fmt/core.h>

#include <algorithm>
#include <cmath>
#include <type_traits>

namespace lumo::ravelctl {

FramePlayer::FramePlayer(const PlayOptions& options, const std::function<void(const std::string&)>& say)
    : m_es(Load(options.es, "--play-es", "es", ravelcore::ES_SAMPLE_SIZE, say)),
      m_pact(Load(options.pact, "--play-pact", "pact", ravelcore::PACT_SAMPLE_SIZE, say)),
      m_es_sample(ravelcore::ES_SAMPLE_SIZE),
      m_pact_sample(ravelcore::PACT_SAMPLE_SIZE)
{
}

std::unique_ptr<FramePlayer::Track> FramePlayer::Load(const std::filesystem::path& file, const char* option,
                                                      const char* name, std::size_t sample_size,
                                                      const std::function<void(const std::string&)>& say)
{
    if (file.empty()) {
        return nullptr;
    }
    auto track = std::make_unique<Track>(file, name, static_cast<int>(sample_size));
    LoadModulation(track->modulation, file, option, say);
    track->times = FindTimeFacts(ReadTimestamps(brisk::Helper::FindFile(file.string())));
    track->num_frames = track->modulation.GetNumSamples();
    return track;
}

std::optional<std::int64_t> FramePlayer::GetNumFrames() const
{
    std::optional<std::int64_t> shortest;
    for (const Track* track : {m_es.get(), m_pact.get()}) {
        if (track != nullptr) {
            const std::int64_t frames = track->num_frames;
            shortest = std::min(shortest.value_or(frames), frames);
        }
    }
    return shortest;
}

std::vector<std::string> FramePlayer::DescribeOtherPace(double period_s) const
{
    constexpr double SAME = 0.01;
    constexpr double MS_PER_S = 1.0e3;
    std::vector<std::string> lines;
    for (const Track* track : {m_es.get(), m_pact.get()}) {
        if (track == nullptr || !track->times.period_s) {
            continue;
        }
        const double recorded_s = *track->times.period_s;
        const std::size_t gaps = track->times.gaps.size();
        if (gaps > 0 || std::abs(recorded_s - period_s) > SAME * period_s) {
            lines.push_back(fmt::format(
                "note: {} has a frame every {:g} ms{}; they are played one a cycle, every {:g} ms",
                track->file.string(), MS_PER_S * recorded_s,
                gaps == 0 ? "" : fmt::format(" with {} gap{}", gaps, gaps == 1 ? "" : "s"), MS_PER_S * period_s));
        }
    }
    return lines;
}

void FramePlayer::Start()
{
    for (Track* track : {m_es.get(), m_pact.get()}) {
        if (track != nullptr) {
            track->modulation.Start(false, 0);
            track->num_played = 0;
        }
    }
}

template <typename Record>
void FramePlayer::Play(Track& track, std::vector<float>& sample, Record& record)
{
    // Behind its last sample a modulation hands out something that is none.
    if (track.num_played == track.num_frames) {
        return;
    }
    const float* next = track.modulation.GetNextSample(track.num_played);
    std::copy_n(next, sample.size(), sample.begin());
    ravelcore::CopySampleToFeMeas(0, sample, record);
    if constexpr (std::is_same_v<Record, mirrorsim::PactRecord>) {
        record.status.fill(0);  // those of the edge sensors are already
    }
}

void FramePlayer::PlayEs(mirrorsim::EsRecord& record)
{
    Play(*m_es, m_es_sample, record);
}

void FramePlayer::PlayPact(mirrorsim::PactRecord& record)
{
    Play(*m_pact, m_pact_sample, record);
}

}  // namespace lumo::ravelctl
