#pragma once

#include <functional>

namespace lumo::ravelcore::test {

/// Calls `on_allocation` when this thread allocates for the next time (operator new), once, before the memory is given
/// out: this is how a test comes to act in the middle of an operation that allocates, for instance under its lock.
///
/// A program that uses it compiles allocationHook.cpp, which replaces operator new and delete.
/// Thread: sets, and sees, only the calling thread's allocations. The function may allocate.
class AllocationHook
{
public:
    explicit AllocationHook(std::function<void()> on_allocation);
    ~AllocationHook();

    AllocationHook(const AllocationHook&) = delete;
    AllocationHook& operator=(const AllocationHook&) = delete;

    /// Whether there has been an allocation.
    bool WasCalled() const { return m_was_called; }

    /// What the replaced operator new does first.
    static void OnAllocation();

private:
    const std::function<void()> m_on_allocation;
    bool m_was_called = false;
};

}  // namespace lumo::ravelcore::test
