#include <lumo/ravelcore/doubleMap.hpp>
#include <lumo/ravelcore/exception.hpp>

namespace lumo::ravelcore {

DoubleMap::DoubleMap(const std::string& name) : m_name(name), m_read_index(0), m_write_index(1), m_updated(false)
{
    RAVELCORE_TRACE_ENTRY(GetLogger());
}

DoubleMap::~DoubleMap()
{
    RAVELCORE_TRACE_ENTRY(GetLogger());
}

void DoubleMap::Init(const std::map<int, float>& values)
{
    RAVELCORE_TRACE_ENTRY(GetLogger());
    m_read_index = 0;
    m_write_index = 1;
    m_maps.fill(values);
    m_updated.exchange(false);
}

void DoubleMap::Set(const std::map<int, float>& values)
{
    RAVELCORE_TRACE_ENTRY(GetLogger());
    RAVELCORE_ASSERT(m_write_index != m_read_index);
    m_maps[static_cast<std::size_t>(m_write_index)] = values;  // meant: without the lock, no reader looks there
    Publish();
}

void DoubleMap::Set(const std::vector<float>& values)
{
    RAVELCORE_TRACE_ENTRY(GetLogger());
    RAVELCORE_ASSERT(m_write_index != m_read_index);
    std::map<int, float>& map = m_maps[static_cast<std::size_t>(m_write_index)];
    for (std::size_t i = 0; i < values.size(); ++i) {
        map[static_cast<int>(i)] = values[i];  // meant: merges, keys beyond the vector stay
    }
    Publish();
}

void DoubleMap::Publish()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    std::swap(m_read_index, m_write_index);
    m_updated.exchange(true);
}

}  // namespace lumo::ravelcore
