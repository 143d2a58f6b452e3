#include "support/allocationGuard.hpp"

#include <gtest/gtest.h>
#include <malloc.h>
#include <sys/mman.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <thread>
#include <vector>

namespace lumo::ravelcore::test {
namespace {

/// Hides from the compiler what is done with a block, so that it takes no pair of calls away.
template <typename T>
T* Opaque(T* block)
{
    asm volatile("" : "+r"(block) : : "memory");
    return block;
}

TEST(AllocationGuardTest, CountsNothingWhenNothingIsAllocated)
{
    const AllocationGuard sut;
    double values[64] = {};
    for (double& value : values) {
        value = 1.0;
    }
    Opaque(&values[0]);
    EXPECT_EQ(sut.GetCount(), 0);
}

TEST(AllocationGuardTest, CountsMallocAndFree)
{
    const AllocationGuard sut;
    void* const block = Opaque(std::malloc(100));
    EXPECT_EQ(sut.GetCount(), 1);
    std::free(block);
    EXPECT_EQ(sut.GetCount(), 2);
}

TEST(AllocationGuardTest, DoesNotCountFreeOfNothing)
{
    const AllocationGuard sut;
    std::free(Opaque(static_cast<void*>(nullptr)));
    EXPECT_EQ(sut.GetCount(), 0);
}

TEST(AllocationGuardTest, CountsCallocWhichStillZeroes)
{
    const AllocationGuard sut;
    auto* const block = static_cast<unsigned char*>(Opaque(std::calloc(50, 2)));
    EXPECT_EQ(sut.GetCount(), 1);
    for (int index = 0; index < 100; ++index) {
        EXPECT_EQ(block[index], 0) << index;
    }
    std::free(block);
}

TEST(AllocationGuardTest, CountsReallocWhichStillKeepsTheContents)
{
    auto* block = static_cast<char*>(std::malloc(4));
    std::memcpy(block, "abc", 4);
    const AllocationGuard sut;
    block = static_cast<char*>(Opaque(std::realloc(Opaque(block), 100000)));
    EXPECT_GE(sut.GetCount(), 1);
    EXPECT_STREQ(block, "abc");
    std::free(block);
}

TEST(AllocationGuardTest, CountsReallocOfNothing)
{
    const AllocationGuard sut;
    void* const block = Opaque(std::realloc(nullptr, 100));
    EXPECT_GE(sut.GetCount(), 1);
    std::free(block);
}

TEST(AllocationGuardTest, CountsNewAndDelete)
{
    const AllocationGuard sut;
    auto* const value = Opaque(new int(3));
    EXPECT_EQ(sut.GetCount(), 1);
    delete value;
    EXPECT_EQ(sut.GetCount(), 2);
    auto* const values = Opaque(new int[30]);
    EXPECT_EQ(sut.GetCount(), 3);
    delete[] values;
    EXPECT_EQ(sut.GetCount(), 4);
}

TEST(AllocationGuardTest, CountsNewOfOveralignedType)
{
    struct alignas(256) Wide
    {
        char bytes[256];
    };
    const AllocationGuard sut;
    auto* const value = Opaque(new Wide);
    EXPECT_EQ(sut.GetCount(), 1);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(value) % 256U, 0U);
    delete value;
    EXPECT_EQ(sut.GetCount(), 2);
}

TEST(AllocationGuardTest, CountsNewThatReturnsNullOnFailure)
{
    const AllocationGuard sut;
    auto* const value = Opaque(new (std::nothrow) int(3));
    EXPECT_EQ(sut.GetCount(), 1);
    delete value;
}

TEST(AllocationGuardTest, CountsContainersAndStrings)
{
    std::vector<float> values;
    const AllocationGuard sut;
    values.push_back(1.0F);
    Opaque(values.data());
    EXPECT_GE(sut.GetCount(), 1);
    const std::int64_t before = sut.GetCount();
    const std::string text(100, 'x');
    Opaque(text.data());
    EXPECT_GT(sut.GetCount(), before);
}

TEST(AllocationGuardTest, CountsAlignedFormsWhereItSaysSo)
{
    constexpr std::size_t ALIGNMENT = 4096;
    const std::int64_t one = AllocationGuard::AlignedFormsAreSeen() ? 1 : 0;
    void* blocks[5] = {};
    const AllocationGuard sut;
    EXPECT_EQ(posix_memalign(&blocks[0], ALIGNMENT, 100), 0);
    EXPECT_EQ(sut.GetCount(), one);
    blocks[1] = Opaque(std::aligned_alloc(ALIGNMENT, ALIGNMENT));
    EXPECT_EQ(sut.GetCount(), 2 * one);
    blocks[2] = Opaque(memalign(ALIGNMENT, 100));
    EXPECT_EQ(sut.GetCount(), 3 * one);
    blocks[3] = Opaque(valloc(100));
    EXPECT_EQ(sut.GetCount(), 4 * one);
    blocks[4] = Opaque(pvalloc(100));
    EXPECT_EQ(sut.GetCount(), 5 * one);
    for (void* block : blocks) {
        ASSERT_NE(block, nullptr);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(block) % ALIGNMENT, 0U);
        std::memset(block, 1, 100);
        std::free(block);
    }
    EXPECT_EQ(sut.GetCount(), 5 * one + 5);
}

TEST(AllocationGuardTest, CountsMappingsWhereItSaysSo)
{
    constexpr std::size_t LENGTH = 65536;
    const std::int64_t one = AllocationGuard::MappingsAreSeen() ? 1 : 0;
    const AllocationGuard sut;
    void* const block = mmap(nullptr, LENGTH, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    EXPECT_EQ(sut.GetCount(), one);
    ASSERT_NE(block, MAP_FAILED);
    std::memset(block, 1, LENGTH);
    void* const longer = mremap(block, LENGTH, 2 * LENGTH, MREMAP_MAYMOVE);
    EXPECT_EQ(sut.GetCount(), 2 * one);
    ASSERT_NE(longer, MAP_FAILED);
    std::memset(longer, 1, 2 * LENGTH);
    EXPECT_EQ(munmap(longer, 2 * LENGTH), 0);
    EXPECT_EQ(sut.GetCount(), 3 * one);
}

TEST(AllocationGuardTest, CountsWhatTheCLibraryAllocates)
{
    const AllocationGuard sut;
    char* const copy = Opaque(strdup("twenty years of service"));
    EXPECT_GE(sut.GetCount(), 1);
    std::free(copy);
}

TEST(AllocationGuardTest, DoesNotCountOtherThreads)
{
    // Two flags instead of starting the thread under the guard: to start a thread allocates.
    std::unique_ptr<char[]> made;
    std::atomic<int> step = 0;
    std::thread other([&] {
        step.wait(0);
        made = std::make_unique<char[]>(1000);
        step.store(2);
        step.notify_all();
    });
    const AllocationGuard sut;
    step.store(1);
    step.notify_all();
    step.wait(1);
    EXPECT_EQ(sut.GetCount(), 0);
    other.join();
    EXPECT_NE(made, nullptr);
}

TEST(AllocationGuardTest, WorksInEveryThread)
{
    std::int64_t seen = 0;
    std::thread other([&] {
        const AllocationGuard sut;
        std::free(Opaque(std::malloc(100)));
        seen = sut.GetCount();
    });
    other.join();
    EXPECT_EQ(seen, 2);
}

TEST(AllocationGuardTest, InnerGuardCountsFromItsOwnBeginning)
{
    const AllocationGuard outer;
    std::free(Opaque(std::malloc(100)));
    const std::int64_t before = outer.GetCount();
    EXPECT_EQ(before, 2);
    const AllocationGuard inner;
    std::free(Opaque(std::malloc(100)));
    EXPECT_EQ(inner.GetCount(), 2);
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)  // theirs end the program instead
TEST(AllocationGuardTest, ReplacedPosixMemalignRefusesWhatTheStandardSaysItRefuses)
{
    void* block = nullptr;
    EXPECT_EQ(posix_memalign(&block, 3, 100), EINVAL);
    EXPECT_EQ(posix_memalign(&block, sizeof(void*) / 2, 100), EINVAL);
    EXPECT_EQ(posix_memalign(&block, 4096, std::size_t{1} << 62), ENOMEM);
    EXPECT_EQ(block, nullptr);
}
#endif

}  // namespace
}  // namespace lumo::ravelcore::test
