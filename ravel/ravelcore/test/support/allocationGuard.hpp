#pragma once

#include <cstdint>

namespace lumo::ravelcore::test {

/// Counts what the thread that made it asks of the allocator while the guard lives: malloc, calloc, realloc, free,
/// memalign, posix_memalign, aligned_alloc, valloc and pvalloc, by whomever they are called (operator new ends in
/// malloc; BLAS and the C library call malloc directly). free(nullptr) is not counted.
/// Without a sanitizer it also counts mmap, mremap and munmap, by which libraries get memory past malloc.
/// The sanitizers replace malloc themselves; there the guard listens to their hooks. See AlignedFormsAreSeen().
///
/// A program that uses it links the target `ravelcore_allocation_guard`, which replaces malloc in that program.
///
///     const AllocationGuard guard;
///     sut.Execute(0.0, false);
///     EXPECT_EQ(guard.GetCount(), 0);
///
/// Only "none" and "some" mean the same in every build: a sanitizer reports a realloc as two calls.
/// Thread:    construct, read and destroy it in one thread; other threads' calls are not seen. Guards may be nested.
/// Failure:   the constructor throws std::logic_error if the hooks do not work, so that no test passes for that reason.
class AllocationGuard
{
public:
    AllocationGuard();

    AllocationGuard(const AllocationGuard&) = delete;
    AllocationGuard& operator=(const AllocationGuard&) = delete;

    /// Calls since construction.
    std::int64_t GetCount() const;

    /// False where memalign, posix_memalign, aligned_alloc, valloc and pvalloc pass unseen: the thread sanitizer of
    /// gcc 12 does not report them to its hooks. Everything else is seen in every build.
    static bool AlignedFormsAreSeen();

    /// False under a sanitizer, where mmap, mremap and munmap pass unseen.
    static bool MappingsAreSeen();

private:
    std::int64_t m_start;
};

}  // namespace lumo::ravelcore::test
