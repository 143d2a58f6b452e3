#pragma once

#include <lumo/ravelcore/export.hpp>

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

namespace lumo::ravelcore {

/// Holds a prerecorded series of sample vectors and hands them out one per cycle, to be injected into the loop or to
/// stand for measurements. While nothing plays it hands out an idle sample, so the cycle can call it unconditionally.
///
/// Calling order: construct, Set or Load, Start, GetNextSample once per cycle, Stop. There is no lock: one real-time
/// thread calls GetNextSample; everything else is called from slow threads, one at a time. What Set and Load change,
/// a GetNextSample that began while it still played may be looking at: between Stop and Set or Load let a cycle pass.
class RAVELCORE_API Modulation
{
public:
    /// `sample_size`: floats per sample. `default_value`: every element of the idle sample. `name` is used in messages
    /// and as the matrix name in files.
    /// Failure: brisk::Exception for a sample size below 1.
    Modulation(const std::string& name, int sample_size, float default_value);

    virtual ~Modulation();

    Modulation(const Modulation&) = delete;
    Modulation& operator=(const Modulation&) = delete;

    /// Takes samples from memory.
    /// Thread:    a slow one, while not playing.
    /// Real time: no.
    /// Data:      row-major, one row per sample, copied. A last row that is not whole is never played. An empty vector
    ///            leaves nothing to play and all else as it was.
    /// Failure:   while playing: brisk::Assert, and nothing changes.
    void Set(const std::vector<float>& samples);

    /// Takes samples from a matrix file, one row per sample. An empty name loads nothing and changes nothing.
    /// Thread:    a slow one, while not playing.
    /// Real time: no.
    /// Failure:   while playing: brisk::Assert, and nothing changes. Otherwise what LoadMatrix throws, and
    ///            brisk::Exception for rows of another length: the samples are then lost but not their number, so Set
    ///            or Load again before Start: nobody checks what plays.
    void Load(const std::string& file_name);

    /// Writes the samples to a matrix file; without any, a warning and no file.
    /// Thread:    a slow one, while not playing.
    /// Real time: no.
    /// Failure:   while playing: brisk::Assert, and no file. What SaveMatrix throws.
    void Save(const std::string& file_name) const;

    /// Plays from the first sample. Without samples, a warning, and nothing changes.
    /// Thread:    a slow one; also while playing.
    /// Data:      `loopback`: begin again after the last sample. `decimation` d: each sample is handed out d times;
    ///            0 and negative ones mean once.
    void Start(bool loopback, int decimation);

    /// Ends playback; does nothing when nothing plays. Thread: a slow one.
    void Stop();

    /// The sample of this cycle.
    /// Thread:    the real-time one (one consumer).
    /// Real time: yes; no text even with TRACE on.
    /// Data:      returns GetSampleSize() floats, valid until the next Set or Load; `sample_number` becomes the number
    ///            of the sample, counted from 1, and stays as it is where the idle sample is returned. After the last,
    ///            without loopback, it returns a pointer to float number GetNumSamples() - 1 of all floats, which is no
    ///            sample unless the sample size is 1, until Stop or Start: stop in time.
    /// Failure:   an index out of range is reported with brisk::Assert, and the idle sample returned.
    const float* GetNextSample(int& sample_number);

    // The accessors. Thread: a slow one; IsPlaying any.

    const std::string& GetName() const;

    /// The file that the samples came from; empty when they came from memory.
    const std::string& GetFileName() const;

    /// Samples that can be played.
    int GetNumSamples() const;

    /// Floats per sample.
    int GetSampleSize() const;

    bool IsPlaying() const;

private:
    const float* GetIdleSample() const;

    std::string m_name;
    std::string m_file_name;
    float m_default_value;
    std::atomic<std::int32_t> m_decimation;
    std::atomic<std::int32_t> m_decimation_count;
    std::vector<float> m_samples;
    std::vector<float> m_idle_sample;
    std::int32_t m_num_samples;
    std::int32_t m_sample_size;
    std::atomic<std::int32_t> m_index;  // of the next sample
    std::atomic<bool> m_loopback;
    std::atomic<bool> m_playing;

    static_assert(std::atomic<std::int32_t>::is_always_lock_free && std::atomic<bool>::is_always_lock_free);
};

}  // namespace lumo::ravelcore
