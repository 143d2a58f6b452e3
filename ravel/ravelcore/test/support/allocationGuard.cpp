#include "allocationGuard.hpp"

#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdlib>
#include <stdexcept>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define RAVELCORE_SANITIZER_OWNS_MALLOC 1
#else
#define RAVELCORE_SANITIZER_OWNS_MALLOC 0
#endif

namespace {

// Initial-exec: the counter must never need an allocation itself.
[[gnu::tls_model("initial-exec")]] constinit thread_local std::int64_t t_calls = 0;

}  // namespace

#if RAVELCORE_SANITIZER_OWNS_MALLOC

// NOLINTNEXTLINE(bugprone-reserved-identifier): the sanitizers' name
extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*malloc_hook)(const volatile void*, std::size_t),
                                                         void (*free_hook)(const volatile void*));

namespace {

void OnMalloc(const volatile void* /*block*/, std::size_t /*size*/)
{
    ++t_calls;
}

void OnFree(const volatile void* block)
{
    if (block != nullptr) {
        ++t_calls;
    }
}

// Returns 0 when there is no place left for hooks; the guard's constructor then finds out.
[[maybe_unused]] const int hooks_installed = __sanitizer_install_malloc_and_free_hooks(OnMalloc, OnFree);

}  // namespace

#else

// The C library's own allocator under its second name: the memory stays that of the C library, so blocks may cross
// between code that calls these functions and code that does not.
extern "C" {
// NOLINTBEGIN(bugprone-reserved-identifier): the C library's names
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
void __libc_free(void* block);
void* __libc_memalign(std::size_t alignment, std::size_t size);
void* __libc_valloc(std::size_t size);
void* __libc_pvalloc(std::size_t size);
// NOLINTEND(bugprone-reserved-identifier)

// Visible, or the shared libraries would go on calling the C library's.
#define RAVELCORE_REPLACES __attribute__((visibility("default")))

RAVELCORE_REPLACES void* malloc(std::size_t size) noexcept
{
    ++t_calls;
    return __libc_malloc(size);
}

RAVELCORE_REPLACES void* calloc(std::size_t count, std::size_t size) noexcept
{
    ++t_calls;
    return __libc_calloc(count, size);
}

RAVELCORE_REPLACES void* realloc(void* block, std::size_t size) noexcept
{
    ++t_calls;
    return __libc_realloc(block, size);
}

RAVELCORE_REPLACES void free(void* block) noexcept
{
    if (block != nullptr) {
        ++t_calls;
    }
    __libc_free(block);
}

RAVELCORE_REPLACES void* memalign(std::size_t alignment, std::size_t size) noexcept
{
    ++t_calls;
    return __libc_memalign(alignment, size);
}

RAVELCORE_REPLACES void* aligned_alloc(std::size_t alignment, std::size_t size) noexcept
{
    ++t_calls;
    return __libc_memalign(alignment, size);
}

RAVELCORE_REPLACES int posix_memalign(void** block, std::size_t alignment, std::size_t size) noexcept
{
    ++t_calls;
    if (alignment % sizeof(void*) != 0 || alignment == 0 || (alignment & (alignment - 1)) != 0) {
        return EINVAL;
    }
    const int old_errno = errno;  // posix_memalign reports by its result only
    void* const made = __libc_memalign(alignment, size);
    errno = old_errno;
    if (made == nullptr) {
        return ENOMEM;
    }
    *block = made;
    return 0;
}

RAVELCORE_REPLACES void* valloc(std::size_t size) noexcept
{
    ++t_calls;
    return __libc_valloc(size);
}

RAVELCORE_REPLACES void* pvalloc(std::size_t size) noexcept
{
    ++t_calls;
    return __libc_pvalloc(size);
}

// The C library's own use of mappings (in malloc, for stacks) does not pass through these names.
// NOLINTBEGIN(performance-no-int-to-ptr): that is how system calls return addresses
RAVELCORE_REPLACES void* mmap(void* address, std::size_t length, int protection, int flags, int file,
                              off_t offset) noexcept
{
    ++t_calls;
    return reinterpret_cast<void*>(syscall(SYS_mmap, address, length, protection, flags, file, offset));
}

RAVELCORE_REPLACES void* mmap64(void* address, std::size_t length, int protection, int flags, int file,
                                off64_t offset) noexcept
{
    return mmap(address, length, protection, flags, file, offset);
}

RAVELCORE_REPLACES int munmap(void* address, std::size_t length) noexcept
{
    ++t_calls;
    return static_cast<int>(syscall(SYS_munmap, address, length));
}

RAVELCORE_REPLACES void* mremap(void* address, std::size_t old_length, std::size_t new_length, int flags, ...) noexcept
{
    ++t_calls;
    void* new_address = nullptr;
    if ((flags & MREMAP_FIXED) != 0) {
        va_list arguments;
        va_start(arguments, flags);
        new_address = va_arg(arguments, void*);
        va_end(arguments);
    }
    return reinterpret_cast<void*>(syscall(SYS_mremap, address, old_length, new_length, flags, new_address));
}
// NOLINTEND(performance-no-int-to-ptr)
}

#endif

namespace lumo::ravelcore::test {

namespace {

bool HooksWork()
{
    // Through volatile pointers: the compiler may not take the pair away.
    void* (*volatile const make)(std::size_t) = std::malloc;
    void (*volatile const drop)(void*) = std::free;
    const std::int64_t before = t_calls;
    drop(make(1));
    return t_calls - before == 2;
}

}  // namespace

AllocationGuard::AllocationGuard() : m_start(0)
{
    if (!HooksWork()) {
        throw std::logic_error(
            "Expected to see this program's calls of malloc but did not: something else replaces malloc as well.");
    }
    m_start = t_calls;
}

std::int64_t AllocationGuard::GetCount() const
{
    return t_calls - m_start;
}

bool AllocationGuard::AlignedFormsAreSeen()
{
#if defined(__SANITIZE_THREAD__)
    return false;
#else
    return true;
#endif
}

bool AllocationGuard::MappingsAreSeen()
{
    return RAVELCORE_SANITIZER_OWNS_MALLOC == 0;
}

}  // namespace lumo::ravelcore::test
