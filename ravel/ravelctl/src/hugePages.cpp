#include "hugePages.hpp"

#include <sys/mman.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>

namespace lumo::ravelctl {

namespace {

constexpr std::size_t BLOCK = std::size_t{2} << 20U;

int Collapse(void* address, std::size_t bytes)
{
#ifdef MADV_COLLAPSE
    constexpr int ADVICE = MADV_COLLAPSE;
#else
    constexpr int ADVICE = 25;  // Linux 6.1; the headers of the C library may be older than the kernel
#endif
    return madvise(address, bytes, ADVICE) == 0 ? 0 : errno;
}

}  // namespace

void HugePages::Add(const HugePages& other)
{
    wanted_bytes += other.wanted_bytes;
    granted_bytes += other.granted_bytes;
    error = other.error != 0 ? other.error : error;
}

HugePages PutIntoHugePages(const void* data, std::size_t bytes)
{
    return PutIntoHugePages(data, bytes, Collapse);
}

HugePages PutIntoHugePages(const void* data, std::size_t bytes, int (*collapse)(void* address, std::size_t bytes))
{
    HugePages pages;
    if (bytes < BLOCK) {
        return pages;
    }
    pages.wanted_bytes = bytes;
    // From the beginning of the block in which the data begin.
    const std::size_t before = reinterpret_cast<std::uintptr_t>(data) % BLOCK;
    char* const first = static_cast<char*>(const_cast<void*>(data)) - before;
    const std::size_t end = before + bytes;
    for (std::size_t block = 0; block < end; block += BLOCK) {
        const int error = collapse(first + block, BLOCK);
        if (error == 0) {
            pages.granted_bytes += std::min(block + BLOCK, end) - std::max(block, before);
        } else {
            pages.error = error;
        }
    }
    return pages;
}

}  // namespace lumo::ravelctl
