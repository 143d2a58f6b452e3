#include <lumo/ravelcore/exception.hpp>
#include <lumo/ravelcore/recorder.hpp>
#include <lumo/ravelcore/utils.hpp>

#include <algorithm>
#include <cstring>
#include <limits>

namespace lumo::ravelcore {

namespace {

/// What a combined file takes from one recorder.
struct Source
{
    const std::vector<double>& timestamps;
    const std::vector<float>& samples;
    std::size_t sample_size;
};

/// Fetched once: the accessors are called per recorder and not per row, which keeps a TRACE log short.
std::vector<Source> MakeSources(const std::vector<Recorder>& recorders)
{
    std::vector<Source> sources;
    sources.reserve(recorders.size());
    for (const Recorder& recorder : recorders) {
        sources.push_back(
            {recorder.GetTimestamps(), recorder.GetSamples(), static_cast<std::size_t>(recorder.GetSampleSize())});
    }
    return sources;
}

/// Why row k would mix cycles; empty when all sources have the same time stamp there.
std::string FindFlawInTimestamps(const std::vector<Source>& sources, std::size_t k)
{
    const double timestamp = sources[0].timestamps[k];
    for (std::size_t j = 1; j < sources.size(); ++j) {
        const double other = sources[j].timestamps[k];
        if (other != timestamp) {  // meant: no tolerance, and a NaN differs from everything
            return "Recorders 0 and " + std::to_string(j) + " have different SYNC timestamp for sample " +
                   std::to_string(k) + ": " + std::to_string(timestamp) + " != " + std::to_string(other);
        }
    }
    return "";
}

/// Copies sample k of every source to `row`, side by side.
void CopySamples(const std::vector<Source>& sources, std::size_t k, std::vector<float>::iterator row)
{
    for (const Source& source : sources) {
        const float* const sample = &source.samples[k * source.sample_size];
        row = std::copy_n(sample, source.sample_size, row);
    }
}

}  // namespace

Recorder::Recorder() : Recorder(std::string())
{
}

Recorder::Recorder(const std::string& name)
    : m_name(name),
      m_decimation(0),
      m_decimation_count(0),
      m_num_samples(0),
      m_sample_size(0),
      m_index(-1),
      m_loopback(false),
      m_started(false)
{
    RAVELCORE_TRACE_ENTRY(GetLogger());
}

Recorder::Recorder(const Recorder& other)
    : m_name(other.m_name),
      m_info(other.m_info),
      m_decimation(other.m_decimation.load()),
      m_decimation_count(other.m_decimation_count.load()),
      m_timestamps(other.m_timestamps),
      m_samples(other.m_samples),
      m_num_samples(other.m_num_samples),
      m_sample_size(other.m_sample_size),
      m_index(other.m_index.load()),
      m_loopback(other.m_loopback.load()),
      m_started(other.m_started.load())
{
    RAVELCORE_TRACE_ENTRY(GetLogger());
}

Recorder& Recorder::operator=(const Recorder& other)
{
    RAVELCORE_TRACE_ENTRY(GetLogger());
    if (this == &other) {
        return *this;
    }
    m_name = other.m_name;
    m_info = other.m_info;
    m_decimation.store(other.m_decimation.load());
    m_decimation_count.store(other.m_decimation_count.load());
    m_timestamps = other.m_timestamps;
    m_samples = other.m_samples;
    m_num_samples = other.m_num_samples;
    m_sample_size = other.m_sample_size;
    m_index.store(other.m_index.load());
    m_loopback.store(other.m_loopback.load());
    m_started.store(other.m_started.load());
    return *this;
}

Recorder::~Recorder()
{
    RAVELCORE_TRACE_ENTRY(GetLogger());
}

void Recorder::Init(int num_samples, int sample_size)
{
    RAVELCORE_TRACE_ENTRY(GetLogger());
    m_decimation_count.exchange(0);
    m_index.exchange(-1);
    m_timestamps.clear();
    m_samples.clear();
    const std::int64_t num_elements = std::int64_t{num_samples} * sample_size;
    if (num_samples < 1 || sample_size < 1 || num_elements > std::numeric_limits<std::int32_t>::max()) {
        // Meant: no blank between "sample size" and the number.
        RAVELCORE_THROW("Recorder " + m_name + " initialized with invalid capacity " + std::to_string(num_samples) +
                        " and/or sample size" + std::to_string(sample_size));
    }
    m_num_samples = num_samples;
    m_sample_size = sample_size;
    m_timestamps.resize(static_cast<std::size_t>(num_samples));
    m_samples.resize(static_cast<std::size_t>(num_elements));
    // Meant: "recorded", not "recorder".
    LOG4CPLUS_DEBUG(GetLogger(), "Initialized recorded " << m_name << " for " << m_num_samples << " samples of size "
                                                         << m_sample_size << " (loopback = " << m_loopback
                                                         << ", decimation = " << m_decimation << ").");
}

void Recorder::Start(bool loopback, int decimation)
{
    RAVELCORE_TRACE_ENTRY(GetLogger());
    m_started.store(false);
    m_loopback.store(loopback);
    m_decimation.store(decimation);
    ResetIndex();
    LOG4CPLUS_DEBUG(GetLogger(), "Started recorder " << m_name << " (loopback " << m_loopback << ", decimation "
                                                     << m_decimation << ").");
    m_started.store(true);  // last: publishes all of the above to the producer
}

void Recorder::AddSample(double timestamp, const float* sample)
{
    RAVELCORE_TRACE_ENTRY(GetLogger());
    // Empty buffers: a failed Init keeps the old capacity.
    if (!m_started.load() || m_num_samples <= 0 || m_sample_size <= 0 || m_samples.empty()) {
        return;
    }
    if (sample == nullptr) {
        RAVELCORE_ASSERT(false);
        return;
    }
    if (m_index.load() < -1 || m_index.load() >= m_num_samples) {
        RAVELCORE_ASSERT(false);
        return;
    }
    if (m_index.load() + 1 == m_num_samples) {
        if (!m_loopback.load()) {
            m_started.store(false);
            return;
        }
        // Meant: the wrap happens on this call, also when decimation then skips the sample.
        m_index.exchange(-1);
    }
    const std::int32_t count = ++m_decimation_count;
    const std::int32_t decimation = m_decimation.load();
    // Meant: a negative decimation records nothing, also after months, when the count has wrapped around.
    if (decimation < 0 || (decimation != 0 && count != decimation)) {
        return;
    }
    const auto slot = static_cast<std::size_t>(++m_index);
    m_decimation_count.exchange(0);
    const auto size = static_cast<std::size_t>(m_sample_size);
    m_timestamps[slot] = timestamp;
    std::memcpy(&m_samples[slot * size], sample, size * sizeof(float));
}

void Recorder::Stop()
{
    RAVELCORE_TRACE_ENTRY(GetLogger());
    if (!m_started.load()) {
        return;
    }
    m_started.store(false);
    const std::int32_t index = m_index.load();  // once: the producer may still be in its last call
    // Meant: the index is not checked; -1 ends the process in the vector's assertion, with DEBUG on only.
    LOG4CPLUS_DEBUG(GetLogger(), "Stopped recorder " << m_name << " at sample " << index << " timestamp "
                                                     << m_timestamps[static_cast<std::size_t>(index)] << "s (loopback "
                                                     << m_loopback << ").");
}

void Recorder::Save(const std::string& file_name) const
{
    RAVELCORE_TRACE_ENTRY(GetLogger());
    // Meant: each step reads the index for itself, so that what is recorded during the one before is not left out.
    if (m_index.load() == -1) {
        LOG4CPLUS_DEBUG(GetLogger(), "Recorder " << m_name << " has no samples to save.");
        return;
    }
    LOG4CPLUS_DEBUG(GetLogger(), "Saving " << m_name << " recorded samples from 0 to " << m_index.load());
    SaveMatrixWithTimestamps(file_name, m_name, m_index.load() + 1, m_sample_size, m_samples, m_timestamps, true,
                             FileFormat::FitsBinTable);
}

void Recorder::ResetIndex()
{
    RAVELCORE_TRACE_ENTRY(GetLogger());
    m_index.exchange(-1);
    m_decimation_count.exchange(0);
}

void SaveCombinedRecorders(const std::string& file_name, const std::string& name,
                           const std::vector<Recorder>& recorders)
{
    RAVELCORE_TRACE_ENTRY(GetLogger());
    const auto num_recorders = static_cast<std::int32_t>(recorders.size());
    std::int32_t lowest_index = -2;  // of an empty list: gives -1 rows
    for (std::int32_t i = 0; i < num_recorders; ++i) {
        const Recorder& recorder = recorders[static_cast<std::size_t>(i)];
        const std::int32_t index = recorder.GetIndex();
        LOG4CPLUS_DEBUG(GetLogger(), "Recorder " << recorder.GetName() << ", index = " << index
                                                 << ", sample_size = " << recorder.GetSampleSize()
                                                 << ", num_samples = " << recorder.GetNumSamples());
        if (index < 0) {
            LOG4CPLUS_WARN(GetLogger(), "Recorder " << i << " was not started.");  // meant: its place, not its name
            return;
        }
        lowest_index = i == 0 ? index : std::min(lowest_index, index);
    }

    const std::vector<Source> sources = MakeSources(recorders);
    std::size_t total = 0;
    for (const Source& source : sources) {
        total += source.sample_size;
    }
    const std::int32_t rows = lowest_index + 1;
    std::vector<float> samples(static_cast<std::size_t>(rows) * total);
    // Meant: there is no message for an empty list; its -1 rows end here in std::length_error.
    std::vector<double> timestamps(static_cast<std::size_t>(rows));
    for (std::size_t k = 0; k < timestamps.size(); ++k) {
        const std::string flaw = FindFlawInTimestamps(sources, k);
        if (!flaw.empty()) {
            LOG4CPLUS_ERROR(GetLogger(), flaw);
            RAVELCORE_THROW(flaw);
        }
        timestamps[k] = sources[0].timestamps[k];
        CopySamples(sources, k, samples.begin() + static_cast<std::ptrdiff_t>(k * total));
    }
    SaveMatrixWithTimestamps(file_name, name, rows, static_cast<int>(total), samples, timestamps, true,
                             FileFormat::FitsBinTable);
}

}  // namespace lumo::ravelcore
