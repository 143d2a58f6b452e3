#include <lumo/ravelcore/doubleBuffer.hpp>
#include <lumo/ravelcore/exception.hpp>
#include <lumo/ravelcore/utils.hpp>

#include <algorithm>
#include <utility>

namespace lumo::ravelcore {

DoubleBuffer::DoubleBuffer(const std::string& name, int size)
    : m_name(name), m_size(0), m_read_index(0), m_write_index(1), m_updated(false)
{
    RAVELCORE_TRACE_ENTRY(GetLogger());
    Init(size);
}

DoubleBuffer::~DoubleBuffer()
{
    RAVELCORE_TRACE_ENTRY(GetLogger());
}

void DoubleBuffer::Init(int size)
{
    RAVELCORE_TRACE_ENTRY(GetLogger());
    RAVELCORE_ASSERT(size >= 0);
    m_size = size;
    ResetIndices();
    for (std::vector<float>& buffer : m_buffers) {
        buffer.assign(static_cast<std::size_t>(std::max(size, 0)), 0.0F);
    }
    m_updated.exchange(false);
}

void DoubleBuffer::Init(const std::vector<float>& values)
{
    RAVELCORE_TRACE_ENTRY(GetLogger());
    m_size = static_cast<int>(values.size());
    ResetIndices();
    m_buffers.fill(values);
    m_updated.exchange(false);
}

void DoubleBuffer::Set(const std::vector<float>& values)
{
    RAVELCORE_TRACE_ENTRY(GetLogger());
    RAVELCORE_ASSERT(m_write_index != m_read_index);
    if (!std::cmp_equal(m_size, values.size())) {
        RAVELCORE_ASSERT(false);
        return;
    }
    m_buffers[static_cast<std::size_t>(m_write_index)] = values;  // meant: without the lock, no reader looks there
    const std::lock_guard<std::mutex> lock(m_mutex);
    std::swap(m_read_index, m_write_index);
    m_updated.exchange(true);
}

void DoubleBuffer::Load(const std::string& filename)
{
    RAVELCORE_TRACE_ENTRY(GetLogger());
    int rows = 1;
    int cols = m_size;
    std::vector<float> values;
    LoadMatrix(filename, m_name, rows, cols, values);
    if (filename.empty()) {  // LoadMatrix has said that it skips
        return;
    }
    const std::lock_guard<std::mutex> lock(m_mutex);
    ResetIndices();
    m_buffers.fill(values);
    m_updated.exchange(true);
}

void DoubleBuffer::Save(const std::string& filename)
{
    RAVELCORE_TRACE_ENTRY(GetLogger());
    if (m_size <= 0) {
        LOG4CPLUS_WARN(GetLogger(), "DoubleBuffer " << m_name << " is empty, nothing to save.");
        return;
    }
    std::vector<float> values;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        values = m_buffers[static_cast<std::size_t>(m_read_index)];
    }
    if (values.empty()) {
        LOG4CPLUS_DEBUG(GetLogger(), "DoubleBuffer " << m_name << " is empty, nothing to write to " << filename);
        return;
    }
    SaveMatrix(filename, m_name, 1, m_size, values);
    LOG4CPLUS_DEBUG(GetLogger(), "Saved " << m_name << " to file " << filename << " with " << m_size << " elements.");
}

void DoubleBuffer::ResetIndices()
{
    m_read_index = 0;
    m_write_index = 1;
}

}  // namespace lumo::ravelcore
