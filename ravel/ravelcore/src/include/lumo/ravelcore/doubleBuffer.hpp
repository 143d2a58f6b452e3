#pragma once

#include <lumo/ravelcore/export.hpp>
#include <lumo/ravelcore/logger.hpp>

#include <array>
#include <atomic>
#include <cstddef>
#include <mutex>
#include <string>
#include <vector>

namespace lumo::ravelcore {

/// Hands a vector of fixed length (gains, offsets, a flattened matrix) from a slow thread to a real-time one.
///
/// There are two copies: readers use the active one, the writer fills the other and swaps them in a few instructions
/// under a mutex. One writer thread (Set, Load, Save); any number of readers, of which one takes each publication.
class RAVELCORE_API DoubleBuffer
{
public:
    /// `name` is used in messages and as the matrix name in files. All elements are 0.
    DoubleBuffer(const std::string& name, int size);

    virtual ~DoubleBuffer();

    DoubleBuffer(const DoubleBuffer&) = delete;
    DoubleBuffer& operator=(const DoubleBuffer&) = delete;

    /// Both copies become `size` zeros, or `values`; nothing is then pending.
    /// Thread:    any, before readers run: there is no lock.
    /// Real time: no.
    /// Failure:   a negative size is reported with brisk::Assert; the copies are then empty.
    void Init(int size);
    void Init(const std::vector<float>& values);

    /// Publishes `values`: readers see them from here on, and the flag is up.
    /// Thread:    the writer's. Calls from two threads at once are not supported: the copy into the write side is not
    ///            under the lock.
    /// Real time: allocation-free; locks for a few instructions.
    /// Failure:   another number of elements than GetSize() is reported with brisk::Assert and changes nothing.
    void Set(const std::vector<float>& values);

    /// Publishes the one row of a matrix file. An empty name loads nothing and changes nothing.
    /// Thread:    the writer's.
    /// Real time: no.
    /// Failure:   what LoadMatrix throws, for another shape than 1 x GetSize() too; nothing has changed then.
    void Load(const std::string& filename);

    /// Writes what readers see to a matrix file, as one row; an empty buffer is a WARN line and no file.
    /// Thread:    the writer's.
    /// Real time: no.
    /// Failure:   what SaveMatrix throws.
    void Save(const std::string& filename);

    /// Takes new data: copies them into `values`, lowers the flag and returns true. Returns false, with `values` and
    /// the flag untouched, when there are none or the writer is just swapping.
    /// Thread:    a reader's.
    /// Real time: yes where `values` has GetSize() elements already; never blocks.
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
        values = m_buffers[static_cast<std::size_t>(m_read_index)];
        m_updated.exchange(false);
        return true;
    }

    /// A copy of what readers see. Thread: a slow one. Real time: no (locks, allocates).
    std::vector<float> Get() const
    {
        RAVELCORE_TRACE_ENTRY(GetLogger());
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_buffers[static_cast<std::size_t>(m_read_index)];
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

    /// Elements. Thread: any, after Init.
    int GetSize() const
    {
        RAVELCORE_TRACE_ENTRY(GetLogger());
        return m_size;
    }

private:
    void ResetIndices();

    std::string m_name;
    int m_size;
    int m_read_index;
    int m_write_index;
    mutable std::mutex m_mutex;  // guards the swap of the indices and the flag
    std::array<std::vector<float>, 2> m_buffers;
    std::atomic<bool> m_updated;

    static_assert(std::atomic<bool>::is_always_lock_free);
};

}  // namespace lumo::ravelcore
