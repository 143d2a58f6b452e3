#pragma once

#include <lumo/ravelcore/export.hpp>
#include <lumo/ravelcore/logger.hpp>

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

namespace lumo::ravelcore {

/// Captures a bounded series of sample vectors, each with its time stamp, for a file.
/// Calling order: construct, Init, Start, AddSample once per cycle, Stop, Save. Start may be called again at any time
/// and begins again at slot 0; Save may be called while recording. There is no lock: one producer calls AddSample;
/// everything else is called from slow threads, one at a time.
class RAVELCORE_API Recorder
{
public:
    Recorder();

    /// `name` is used in messages and as the matrix name in files: Save refuses one of more than 68 characters (a quote
    /// counts twice) or with other than printable ASCII. SaveCombinedRecorders can save such a recorder, under another.
    explicit Recorder(const std::string& name);

    /// Copies every field, buffers, index and flags included: the copy of a recording recorder is recording.
    /// Real time: no (allocates). The owner copies while the recorder is not recording.
    Recorder(const Recorder& other);
    Recorder& operator=(const Recorder& other);

    virtual ~Recorder();

    /// Sizes the buffers for `num_samples` slots of `sample_size` floats and forgets what was recorded.
    /// Thread:    a slow one, while the recorder is not recording.
    /// Real time: no; the only operation that allocates.
    /// Failure:   brisk::Exception for a size below 1 or more than 2^31 - 1 floats in all. The buffers are then empty,
    ///            the sizes as before; the recorder ignores samples until it has been initialised again.
    void Init(int num_samples, int sample_size);

    /// Arms recording from slot 0. While a producer runs: an AddSample that has just found the recorder full may stop
    /// it again right after; let a cycle pass after Stop, or look at IsStarted.
    /// Thread:    a slow one.
    /// Data:      `loopback` wraps to slot 0 after the last slot instead of stopping. `decimation`: 0 and 1 record all
    ///            calls, d > 1 every d-th, a negative one records nothing.
    void Start(bool loopback, int decimation);

    /// Ends recording. With DEBUG on and nothing recorded since Start it ends the process: its message reads the time
    /// stamp of slot -1, which element access refuses.
    /// Thread:    a slow one.
    void Stop();

    /// Records one sample and its time stamp, as decimation and loopback say.
    /// Thread:    the worker's (one producer).
    /// Real time: yes; one bounded copy, no allocation, lock or system call; text only with TRACE on.
    /// Data:      `sample` holds GetSampleSize() floats, which are copied; `timestamp` in seconds.
    /// Failure:   full and no loopback: the recorder stops itself and the sample is dropped. A null `sample` is
    ///            reported with brisk::Assert and leaves the state as it was.
    void AddSample(double timestamp, const float* sample);

    /// Writes slots 0 to GetIndex() with their time stamps; after a wrap these are the newest samples only. Writes
    /// nothing when nothing is recorded.
    /// Thread:    a slow one; also while recording. The index is read anew for each step, last for the file: samples
    ///            that come after the DEBUG line are in the file too, the newest perhaps half written.
    /// Real time: no.
    /// Failure:   what SaveMatrixWithTimestamps throws; of its brisk::Exceptions the one for an invalid size says that
    ///            what was recorded has been forgotten (ResetIndex, Start, a wrap) since there was something to save.
    void Save(const std::string& file_name) const;

    /// Forgets what was recorded. Thread: a slow one.
    void ResetIndex();

    // The accessors. Thread: any; the buffers only while the recorder is not recording. The references live as long as
    // the recorder; Init changes what they hold.

    /// All slots, row-major: slot i is elements i * GetSampleSize() to (i + 1) * GetSampleSize() - 1.
    const std::vector<float>& GetSamples() const
    {
        RAVELCORE_TRACE_ENTRY(GetLogger());
        return m_samples;
    }

    /// One time stamp a slot, seconds.
    const std::vector<double>& GetTimestamps() const
    {
        RAVELCORE_TRACE_ENTRY(GetLogger());
        return m_timestamps;
    }

    /// Floats per sample.
    int GetSampleSize() const
    {
        RAVELCORE_TRACE_ENTRY(GetLogger());
        return m_sample_size;
    }

    /// The capacity in samples, not the number recorded.
    int GetNumSamples() const
    {
        RAVELCORE_TRACE_ENTRY(GetLogger());
        return m_num_samples;
    }

    /// Slot of the most recent sample; -1 when there is none.
    int GetIndex() const
    {
        RAVELCORE_TRACE_ENTRY(GetLogger());
        return m_index.load();
    }

    const std::string& GetName() const
    {
        RAVELCORE_TRACE_ENTRY(GetLogger());
        return m_name;
    }

    bool IsStarted() const
    {
        RAVELCORE_TRACE_ENTRY(GetLogger());
        return m_started.load();
    }

private:
    std::string m_name;
    std::string m_info;  // carried along by copies; nothing reads or writes it otherwise
    std::atomic<std::int32_t> m_decimation;
    std::atomic<std::int32_t> m_decimation_count;
    std::vector<double> m_timestamps;
    std::vector<float> m_samples;
    std::int32_t m_num_samples;
    std::int32_t m_sample_size;
    std::atomic<std::int32_t> m_index;
    std::atomic<bool> m_loopback;
    std::atomic<bool> m_started;

    static_assert(std::atomic<std::int32_t>::is_always_lock_free && std::atomic<bool>::is_always_lock_free);
};

/// Saves several recorders, side by side in the order of the list, as one matrix `name` with one time-stamp column:
/// row k is sample k of every recorder. There are as many rows as the recorder that has recorded least.
/// Thread:    a slow one.
/// Real time: no.
/// Data:      the list holds copies, made while the recorders were not recording.
/// Failure:   a recorder that has recorded nothing: one WARN line with its place in the list, and no file.
///            brisk::Exception when sample k of two recorders differs in time, so that a row would mix cycles.
///            std::length_error for an empty list. What SaveMatrixWithTimestamps throws. Only the last can come after
///            the file has been touched.
RAVELCORE_API void SaveCombinedRecorders(const std::string& file_name, const std::string& name,
                                         const std::vector<Recorder>& recorders);

}  // namespace lumo::ravelcore
