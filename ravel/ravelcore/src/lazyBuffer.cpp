#include <lumo/ravelcore/lazyBuffer.hpp>

namespace lumo::ravelcore {

LazyBuffer::LazyBuffer(const std::string& name, int size) : m_name(name), m_size(0), m_pending(0)
{
    RAVELCORE_TRACE_ENTRY(GetLogger());
    Init(size);
}

LazyBuffer::~LazyBuffer()
{
    RAVELCORE_TRACE_ENTRY(GetLogger());
}

void LazyBuffer::Init(int size)
{
    RAVELCORE_TRACE_ENTRY(GetLogger());
    RAVELCORE_ASSERT(size >= 0);
    m_size = size;
    m_data.clear();
    for (int i = 0; i < size; ++i) {
        m_data.push_back(0.0F);
    }
    m_pending = 0;
}

}  // namespace lumo::ravelcore
