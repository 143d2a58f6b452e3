// In a program of its own: it replaces the C library's allocation functions, on which Eigen and operator new stand.

#include <lumo/mirrorsim/mirror.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <memory>
#include <vector>

namespace {

std::atomic<long> num_allocations{0};

}  // namespace

extern "C" {

void* __libc_malloc(std::size_t size);                           // NOLINT(bugprone-reserved-identifier)
void* __libc_calloc(std::size_t count, std::size_t size);        // NOLINT(bugprone-reserved-identifier)
void* __libc_realloc(void* block, std::size_t size);             // NOLINT(bugprone-reserved-identifier)
void* __libc_memalign(std::size_t alignment, std::size_t size);  // NOLINT(bugprone-reserved-identifier)

void* malloc(std::size_t size)
{
    num_allocations.fetch_add(1, std::memory_order_relaxed);
    return __libc_malloc(size);
}

void* calloc(std::size_t count, std::size_t size)
{
    num_allocations.fetch_add(1, std::memory_order_relaxed);
    return __libc_calloc(count, size);
}

void* realloc(void* block, std::size_t size)
{
    num_allocations.fetch_add(1, std::memory_order_relaxed);
    return __libc_realloc(block, size);
}

void* aligned_alloc(std::size_t alignment, std::size_t size)
{
    num_allocations.fetch_add(1, std::memory_order_relaxed);
    return __libc_memalign(alignment, size);
}

int posix_memalign(void** block, std::size_t alignment, std::size_t size)
{
    num_allocations.fetch_add(1, std::memory_order_relaxed);
    *block = __libc_memalign(alignment, size);
    return *block == nullptr ? ENOMEM : 0;
}

}  // extern "C"

namespace lumo::mirrorsim {
namespace {

TEST(MirrorAllocationTest, CountingSeesAllocationsOfOperatorNewAndOfEigen)
{
    const long before = num_allocations.load();
    const auto from_new = std::make_unique<std::vector<double>>(100);
    const long between = num_allocations.load();
    const Eigen::VectorXd from_eigen = Eigen::VectorXd::Zero(100);
    EXPECT_GE(between - before, 2);
    EXPECT_GE(num_allocations.load() - between, 1);
    EXPECT_EQ(from_eigen.sum() + from_new->at(0), 0.0);
}

TEST(MirrorAllocationTest, StepAndRecordsNeverAllocate)
{
    const std::vector<float> shape(NUM_PACT, 0.02F);
    MirrorConfig config;
    config.tones = {{0, 10.0, 1.0}};
    Mirror sut(Geometry{}, config, shape, 1);
    const std::vector<float> command(NUM_PACT, 1.0F);
    const auto es_record = std::make_unique<EsRecord>();
    const auto pact_record = std::make_unique<PactRecord>();
    const long before = num_allocations.load();
    for (int cycle = 0; cycle < 1000; ++cycle) {
        sut.FillEsMeas(0.002 * cycle, cycle, *es_record);
        sut.FillPactMeas(0.002 * cycle, cycle, *pact_record);
        sut.Step(command);
    }
    EXPECT_EQ(num_allocations.load() - before, 0);
}

}  // namespace
}  // namespace lumo::mirrorsim
