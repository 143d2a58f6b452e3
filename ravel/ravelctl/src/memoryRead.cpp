#include "memoryRead.hpp"

#include <cstring>

namespace lumo::ravelctl {

namespace {

/// As wide as the widest registers; the compiler splits it up where these are narrower.
using Wide = std::uint64_t __attribute__((vector_size(64)));
constexpr std::size_t WORDS_PER_WIDE = sizeof(Wide) / sizeof(std::uint64_t);

/// Folds words one by one; the last one may be a part.
std::uint64_t ReadRest(const char* bytes, std::size_t size)
{
    std::uint64_t sum = 0;
    while (size > 0) {
        std::uint64_t word = 0;
        const std::size_t length = size < sizeof(word) ? size : sizeof(word);
        std::memcpy(&word, bytes, length);
        sum ^= word;
        bytes += length;
        size -= length;
    }
    return sum;
}

[[gnu::always_inline]] inline void Fold(Wide& sum, const char* bytes)
{
    Wide read;
    std::memcpy(&read, bytes, sizeof(read));
    sum ^= read;
}

/// Four parts side by side, as a product reads several rows at once: more is under way from memory than in one row.
[[gnu::always_inline]] inline std::uint64_t ReadWide(const char* bytes, std::size_t size)
{
    constexpr std::size_t NUM_PARTS = 4;
    const std::size_t part = size / NUM_PARTS / sizeof(Wide) * sizeof(Wide);
    Wide sum0{};
    Wide sum1{};
    Wide sum2{};
    Wide sum3{};
    for (std::size_t at = 0; at < part; at += sizeof(Wide)) {
        Fold(sum0, bytes + at);
        Fold(sum1, bytes + part + at);
        Fold(sum2, bytes + 2 * part + at);
        Fold(sum3, bytes + 3 * part + at);
    }
    sum0 ^= sum1 ^ sum2 ^ sum3;
    std::uint64_t words = 0;
    for (std::size_t i = 0; i < WORDS_PER_WIDE; ++i) {
        words ^= sum0[i];
    }
    return words ^ ReadRest(bytes + NUM_PARTS * part, size - NUM_PARTS * part);
}

#if defined(__x86_64__)

[[gnu::target("avx512f")]] std::uint64_t ReadByAvx512(const char* bytes, std::size_t size)
{
    return ReadWide(bytes, size);
}

[[gnu::target("avx2")]] std::uint64_t ReadByAvx2(const char* bytes, std::size_t size)
{
    return ReadWide(bytes, size);
}

#endif

}  // namespace

std::uint64_t ReadMemory(const void* memory, std::size_t size)
{
    const char* const bytes = static_cast<const char*>(memory);
#if defined(__x86_64__)
    if (__builtin_cpu_supports("avx512f") != 0) {
        return ReadByAvx512(bytes, size);
    }
    if (__builtin_cpu_supports("avx2") != 0) {
        return ReadByAvx2(bytes, size);
    }
#endif
    return ReadWide(bytes, size);
}

}  // namespace lumo::ravelctl
