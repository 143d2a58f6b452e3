#include "allocationHook.hpp"

#include <cstddef>
#include <cstdlib>
#include <new>
#include <utility>

namespace lumo::ravelcore::test {

namespace {

thread_local AllocationHook* t_hook = nullptr;

}  // namespace

AllocationHook::AllocationHook(std::function<void()> on_allocation) : m_on_allocation(std::move(on_allocation))
{
    t_hook = this;
}

AllocationHook::~AllocationHook()
{
    t_hook = nullptr;
}

void AllocationHook::OnAllocation()
{
    if (AllocationHook* const hook = std::exchange(t_hook, nullptr)) {
        hook->m_was_called = true;
        hook->m_on_allocation();
    }
}

}  // namespace lumo::ravelcore::test

void* operator new(std::size_t size)
{
    lumo::ravelcore::test::AllocationHook::OnAllocation();
    void* const block = std::malloc(size == 0 ? 1 : size);
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    return block;
}

void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept
{
    return std::malloc(size == 0 ? 1 : size);  // of no interest here, but the same kind of memory
}

void operator delete(void* block) noexcept
{
    std::free(block);
}

void operator delete(void* block, std::size_t /*size*/) noexcept
{
    std::free(block);
}
