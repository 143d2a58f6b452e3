#pragma once

#include <lumo/ravelcore/export.hpp>
#include <lumo/ravelcore/logger.hpp>

#include <array>
#include <atomic>
#include <cstddef>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace lumo::ravelcore {

/// The sparse sibling of DoubleBuffer: hands a map from index to value from a slow thread to a real-time one, with the
/// same two copies, lock and flag. One writer thread (Set); any number of readers, of which one takes each publication.
class RAVELCORE_API DoubleMap
{
public:
    /// `name` is used in messages. The map is empty.
    explicit DoubleMap(const std::string& name);

    virtual ~DoubleMap();

    DoubleMap(const DoubleMap&) = delete;
    DoubleMap& operator=(const DoubleMap&) = delete;

    /// Both copies become `values`; nothing is then pending.
    /// Thread: any, before readers run: there is no lock. Real time: no.
    void Init(const std::map<int, float>& values);

    /// Publishes exactly `values`.
    /// Thread:    the writer's. Calls from two threads at once are not supported: the copy into the write side is not
    ///            under the lock.
    /// Real time: no (allocates).
    void Set(const std::map<int, float>& values);

    /// Publishes `values[i]` under key i for every i, merged into what the write side holds: other keys keep the value
    /// that they had two publications earlier. Use a map to publish nothing else.
    /// Thread:    the writer's.
    /// Real time: no (allocates for new keys).
    void Set(const std::vector<float>& values);

    /// Takes new data: writes `values[key]` for each key within 0 to values.size() - 1, leaves the other elements and
    /// the size alone, lowers the flag and returns true. Returns false, with `values` and the flag untouched, when
    /// there are none or the writer is just swapping.
    /// Thread:    a reader's.
    /// Real time: yes; never blocks.
    bool TryRead(std::vector<float>& values)
    {
        RAVELCORE_TRACE_ENTRY(GetLogger());
        if (!m_updated.load()) {
            return false;
        }
        const std::unique_lock<std::mutex> lock(m_mutex, std::try_to_lock);
        if (!lock.owns_lock() || !m_updated.load()) {  // another reader may have been first
            return false;
        }
        for (const auto& [key, value] : m_maps[static_cast<std::size_t>(m_read_index)]) {
            if (key >= 0 && std::cmp_less(key, values.size())) {
                values[static_cast<std::size_t>(key)] = value;
            }
        }
        m_updated.exchange(false);
        return true;
    }

    /// A copy of what readers see. Thread: a slow one. Real time: no (locks, allocates).
    std::map<int, float> Get() const
    {
        RAVELCORE_TRACE_ENTRY(GetLogger());
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_maps[static_cast<std::size_t>(m_read_index)];
    }

    /// Whether data are pending; and a way to forget that. Thread: any. Real time: yes.
    bool IsUpdated() const
    {
        RAVELCORE_TRACE_ENTRY(GetLogger());
        return m_updated.load();
    }
    void ClearUpdated()
    {
        RAVELCORE_TRACE_ENTRY(GetLogger());
        m_updated.exchange(false);
    }

    const std::string& GetName() const
    {
        RAVELCORE_TRACE_ENTRY(GetLogger());
        return m_name;
    }

private:
    void Publish();

    std::string m_name;
    int m_read_index;
    int m_write_index;
    mutable std::mutex m_mutex;  // guards the swap of the indices and the flag
    std::array<std::map<int, float>, 2> m_maps;
    std::atomic<bool> m_updated;

    static_assert(std::atomic<bool>::is_always_lock_free);
};

}  // namespace lumo::ravelcore
