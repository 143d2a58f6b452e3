#pragma once

#include "fileFacts.hpp"
#include "runOptions.hpp"

#include <lumo/mirrorsim/mirror.hpp>
#include <lumo/ravelcore/modulation.hpp>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace lumo::ravelctl {

/// Plays recorded frames of the front end back, one per cycle, each to the last bit.
class FramePlayer
{
public:
    /// Reads the files that are named, whole, into memory. `say` is told what takes long. Real time: no.
    /// Failure: InputError: no such file, no recorded frames, too little memory for it.
    FramePlayer(const PlayOptions& options, const std::function<void(const std::string&)>& say);

    bool HasEs() const { return m_es != nullptr; }
    bool HasPact() const { return m_pact != nullptr; }

    /// Frames of what is played, of the shorter of two; none where nothing is played.
    std::optional<std::int64_t> GetNumFrames() const;

    /// A line for each file whose frames were not taken one every `period_s`, as they will be played. Real time: no.
    std::vector<std::string> DescribeOtherPace(double period_s) const;

    /// Begins with the first frame.
    void Start();

    /// The next frame into the record's blocks; status words become 0 and the header is left alone. After the last
    /// frame the record is left alone.
    /// Thread: the cycle's. Real time: yes.
    void PlayEs(mirrorsim::EsRecord& record);
    void PlayPact(mirrorsim::PactRecord& record);

private:
    struct Track
    {
        Track(std::filesystem::path from, const char* name, int sample_size)
            : file(std::move(from)), modulation(name, sample_size, 0.0F)
        {
        }

        std::filesystem::path file;
        TimeFacts times;
        ravelcore::Modulation modulation;
        int num_frames = 0;
        int num_played = 0;  // number of the last frame that was handed out
    };

    static std::unique_ptr<Track> Load(const std::filesystem::path& file, const char* option, const char* name,
                                       std::size_t sample_size, const std::function<void(const std::string&)>& say);

    template <typename Record>
    static void Play(Track& track, std::vector<float>& sample, Record& record);

    std::unique_ptr<Track> m_es;
    std::unique_ptr<Track> m_pact;
    std::vector<float> m_es_sample;
    std::vector<float> m_pact_sample;
};

}  // namespace lumo::ravelctl
