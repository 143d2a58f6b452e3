#include "hugePages.hpp"

#include <sys/mman.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>

namespace lumo::ravelctl {

namespace {

constexpr std::uintptr_t BLOCK = std::uintptr_t{2} << 20U;

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
    const auto begin = reinterpret_cast<std::uintptr_t>(data);
    const std::uintptr_t end = begin + bytes;
    for (std::uintptr_t block = begin / BLOCK * BLOCK; block < end; block += BLOCK) {
        const int error = collapse(reinterpret_cast<void*>(block), BLOCK);
        if (error == 0) {
            pages.granted_bytes += std::min(block + BLOCK, end) - std::max(block, begin);
        } else {
            pages.error = error;
        }
    }
    return pages;
}

}  // namespace lumo::ravelctl
