#include <brisk/logger.hpp>
#include <lumo/ravelcore/exception.hpp>
#include <lumo/ravelcore/logger.hpp>
#include <lumo/ravelcore/modulation.hpp>
#include <lumo/ravelcore/utils.hpp>

#include <cstddef>

namespace lumo::ravelcore {

Modulation::Modulation(const std::string& name, int sample_size, float default_value)
    : m_name(name),
      m_default_value(default_value),
      m_decimation(0),
      m_decimation_count(0),
      m_num_samples(0),
      m_sample_size(0),
      m_index(0),
      m_loopback(false),
      m_playing(false)
{
    RAVELCORE_TRACE_ENTRY(GetLogger());
    if (sample_size < 1) {
        RAVELCORE_THROW("Modulation " + name + " initialized with sample size " + std::to_string(sample_size));
    }
    m_sample_size = sample_size;
    m_idle_sample.assign(static_cast<std::size_t>(sample_size), m_default_value);
}

Modulation::~Modulation()
{
    RAVELCORE_TRACE_ENTRY(GetLogger());
}

void Modulation::Set(const std::vector<float>& samples)
{
    RAVELCORE_TRACE_ENTRY(GetLogger());
    if (m_playing.load()) {
        RAVELCORE_ASSERT(false);
        return;
    }
    if (samples.empty()) {
        m_num_samples = 0;  // meant: old samples, index and file name stay
        return;
    }
    m_index.exchange(0);
    m_decimation_count.exchange(0);
    m_samples = samples;
    m_num_samples = static_cast<std::int32_t>(samples.size() / static_cast<std::size_t>(m_sample_size));
    m_file_name.clear();
    LOG4CPLUS_DEBUG(GetLogger(), "Set " << m_name << " with " << m_num_samples << " samples of " << m_sample_size
                                        << " elements (loopback = " << m_loopback.load() << ").");
}

void Modulation::Load(const std::string& file_name)
{
    RAVELCORE_TRACE_ENTRY(GetLogger());
    if (m_playing.load()) {
        RAVELCORE_ASSERT(false);
        return;
    }
    int rows = -1;
    int cols = -1;  // any, so that the message below tells what is wrong rather than LoadMatrix's
    if (file_name.empty()) {
        LoadMatrix(file_name, m_name, rows, cols, m_samples);  // says that it skips and touches nothing
        return;
    }
    m_index.exchange(0);  // meant: the decimation count is left alone
    m_samples.clear();
    LoadMatrix(file_name, m_name, rows, cols, m_samples);
    if (cols != m_sample_size) {
        RAVELCORE_THROW("In " + m_name + " while loading " + file_name + " expecting " + std::to_string(m_sample_size) +
                        " elements per sample but read " + std::to_string(cols));
    }
    m_num_samples = rows;
    m_file_name = file_name;
    LOG4CPLUS_DEBUG(GetLogger(), "Loaded " << m_name << " from file " << file_name << " with " << m_num_samples
                                           << " samples of " << m_sample_size
                                           << " elements (loopback = " << m_loopback.load() << ").");
}

void Modulation::Save(const std::string& file_name) const
{
    RAVELCORE_TRACE_ENTRY(GetLogger());
    if (m_playing.load()) {
        RAVELCORE_ASSERT(false);
        return;
    }
    if (m_num_samples <= 0) {
        BRISK_LOG_WARNING("Modulation " << m_name << " is empty, nothing to save.");
        return;
    }
    SaveMatrix(file_name, m_name, m_num_samples, m_sample_size, m_samples);
    LOG4CPLUS_DEBUG(GetLogger(), "Saved " << m_name << " to file " << file_name << " with " << m_num_samples
                                          << " samples of " << m_sample_size << " elements.");
}

void Modulation::Start(bool loopback, int decimation)
{
    RAVELCORE_TRACE_ENTRY(GetLogger());
    if (m_num_samples <= 0) {
        BRISK_LOG_WARNING("No samples to play, start modulation " << m_name << " ignored!");
        return;
    }
    m_playing.store(false);  // the real-time thread hands out idle samples while the state changes
    m_loopback.store(loopback);
    m_decimation.store(decimation);
    m_index.exchange(0);
    m_decimation_count.exchange(0);
    LOG4CPLUS_DEBUG(GetLogger(), "Started playing modulation " << m_name << " using file " << m_file_name
                                                               << " (loopback " << m_loopback.load() << ", decimation "
                                                               << m_decimation.load() << ").");
    m_playing.store(true);  // last: publishes the state above, pairs with the load in GetNextSample
}

void Modulation::Stop()
{
    RAVELCORE_TRACE_ENTRY(GetLogger());
    if (!m_playing.load()) {
        return;
    }
    m_playing.store(false);
    if (m_num_samples > 0) {
        LOG4CPLUS_DEBUG(GetLogger(), "Stopped playing modulation "
                                         << m_name << " using file " << m_file_name << " at sample " << m_index.load()
                                         << " (loopback " << m_loopback.load() << ", decimation " << m_decimation.load()
                                         << ").");
    }
}

const float* Modulation::GetNextSample(int& sample_number)
{
    if (!m_playing.load() || m_num_samples <= 0 || m_sample_size <= 0) {
        return GetIdleSample();
    }
    std::int32_t index = m_index.load();
    if (index < 0 || index > m_num_samples) {
        RAVELCORE_ASSERT(false);
        return GetIdleSample();
    }
    if (index == m_num_samples) {
        if (!m_loopback.load()) {
            sample_number = m_num_samples;
            return &m_samples[static_cast<std::size_t>(m_num_samples - 1)];  // meant: counted in floats, not in samples
        }
        m_index.exchange(0);
        m_decimation_count.exchange(0);
        index = 0;
    }
    const std::int32_t offset = index * m_sample_size;
    sample_number = index + 1;
    // Meant: a negative decimation moves on every time; that of a recorder never records.
    const std::int32_t decimation = m_decimation.load();
    if (decimation <= 0) {
        ++m_index;
    } else if (++m_decimation_count >= decimation) {  // above it only after a Start in the middle of this call
        ++m_index;
        m_decimation_count.exchange(0);
    }
    return &m_samples[static_cast<std::size_t>(offset)];
}

const float* Modulation::GetIdleSample() const
{
    return m_idle_sample.data();
}

const std::string& Modulation::GetName() const
{
    RAVELCORE_TRACE_ENTRY(GetLogger());
    return m_name;
}

const std::string& Modulation::GetFileName() const
{
    RAVELCORE_TRACE_ENTRY(GetLogger());
    return m_file_name;
}

int Modulation::GetNumSamples() const
{
    RAVELCORE_TRACE_ENTRY(GetLogger());
    return m_num_samples;
}

int Modulation::GetSampleSize() const
{
    RAVELCORE_TRACE_ENTRY(GetLogger());
    return m_sample_size;
}

bool Modulation::IsPlaying() const
{
    RAVELCORE_TRACE_ENTRY(GetLogger());
    return m_playing.load();
}

}  // namespace lumo::ravelcore
