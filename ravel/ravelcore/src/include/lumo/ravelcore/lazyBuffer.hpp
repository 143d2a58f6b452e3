#pragma once

#include <lumo/ravelcore/exception.hpp>
#include <lumo/ravelcore/export.hpp>
#include <lumo/ravelcore/logger.hpp>

#include <cstdint>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace lumo::ravelcore {

/// The single-copy sibling of DoubleBuffer: one vector under a mutex, with a marker that says whether new data is
/// pending. The writer holds the lock while it copies, so a reader that finds it taken comes again.
class RAVELCORE_API LazyBuffer
{
public:
    /// `name` is used in messages. All elements are 0.
    LazyBuffer(const std::string& name, int size);

    virtual ~LazyBuffer();

    LazyBuffer(const LazyBuffer&) = delete;
    LazyBuffer& operator=(const LazyBuffer&) = delete;

    /// The data become `size` zeros; nothing is then pending.
    /// Thread:    any, before readers run: there is no lock.
    /// Real time: no.
    /// Failure:   a negative size is reported with brisk::Assert; the data are then empty.
    void Init(int size);

    /// Replaces the data and raises the marker.
    /// Thread:    a slow one.
    /// Real time: no (locks).
    /// Failure:   another number of elements than GetSize() is reported with brisk::Assert and changes nothing.
    void Write(const std::vector<float>& values)
    {
        RAVELCORE_TRACE_ENTRY(GetLogger());
        if (!std::cmp_equal(m_size, values.size())) {
            RAVELCORE_ASSERT(false);
            return;
        }
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_data = values;
        m_pending = 1;
    }

    /// Takes new data: copies them into `values`, lowers the marker and returns true. Returns false, with `values` and
    /// the marker untouched, when there are none or somebody else holds the lock.
    /// Thread:    a reader's.
    /// Real time: yes where `values` has GetSize() elements already; never blocks.
    bool TryRead(std::vector<float>& values)
    {
        RAVELCORE_TRACE_ENTRY(GetLogger());
        const std::unique_lock<std::mutex> lock(m_mutex, std::try_to_lock);
        if (!lock.owns_lock() || m_pending == 0) {
            return false;
        }
        values = m_data;
        m_pending = 0;
        return true;
    }

    /// A copy of the data. Thread: a slow one. Real time: no (locks, allocates).
    std::vector<float> Get() const
    {
        RAVELCORE_TRACE_ENTRY(GetLogger());
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_data;
    }

    /// Whether data are pending. Thread: a slow one. Real time: no (locks).
    bool IsUpdated() const
    {
        RAVELCORE_TRACE_ENTRY(GetLogger());
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_pending != 0;
    }

    const std::string& GetName() const
    {
        RAVELCORE_TRACE_ENTRY(GetLogger());
        return m_name;
    }

    /// Elements. Thread: any, after Init.
    int GetSize() const
    {
        RAVELCORE_TRACE_ENTRY(GetLogger());
        return m_size;
    }

private:
    std::string m_name;
    int m_size;
    mutable std::mutex m_mutex;  // guards the two below
    std::vector<float> m_data;
    std::int64_t m_pending;  // not 0: there is data that no reader has taken
};

}  // namespace lumo::ravelcore
