#pragma once

#include <cstdint>
#include <functional>

namespace lumo::ravelcore::test {

/// Counts what the thread that made it locks while the watch lives, by whomever it is locked: mutexes and read-write
/// locks of the C library, on which those of the C++ library stand. Calls `before_lock`, if there is one, with each of
/// them first; what that locks itself is neither counted nor handed to it.
///
/// A program that uses it compiles lockWatch.cpp, which replaces the functions of the C library in that program. Not
/// for the thread sanitizer, which replaces them itself.
/// Thread:    construct, read and destroy it in one thread; other threads' locks are not seen. One at a time.
/// Failure:   the constructor throws std::logic_error if it does not see a lock, so that no test passes for that
/// reason.
class LockWatch
{
public:
    explicit LockWatch(std::function<void(const void* lock)> before_lock = nullptr);
    ~LockWatch();

    LockWatch(const LockWatch&) = delete;
    LockWatch& operator=(const LockWatch&) = delete;

    /// Locks since construction.
    std::int64_t GetCount() const { return m_count; }

    /// What the replaced functions do first.
    static void OnLock(const void* lock);

private:
    const std::function<void(const void* lock)> m_before_lock;
    std::int64_t m_count = 0;
};

}  // namespace lumo::ravelcore::test
