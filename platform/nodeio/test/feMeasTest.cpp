#include <nodeio/feMeas.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <memory>
#include <type_traits>

namespace elsewhere {

// Both spellings, from a namespace that is not the front end's.
using EsMeas = nodeio::SingleFEMeasType<FE_TYPES_COLLECT_ES_MEAS>;
using PactMeas = nodeio::SingleFEMeasType<nodeio::FE_TYPES_COLLECT_PACT_MEAS>;

static_assert(std::is_same_v<EsMeas, nodeio::EsMeas>);
static_assert(std::is_same_v<PactMeas, nodeio::PactMeas>);
static_assert(!std::is_same_v<EsMeas, PactMeas>);

}  // namespace elsewhere

namespace nodeio {

namespace {

template <typename Value>
Value ReadAt(const void* record, std::size_t offset)
{
    Value value{};
    std::memcpy(&value, static_cast<const std::byte*>(record) + offset, sizeof(value));
    return value;
}

}  // namespace

TEST(FeMeasTest, LastElementsOfTheEsRecordAreWhereTheFrontEndReadsThem)
{
    const auto sut = std::make_unique<EsMeas>();
    sut->timestamp = 1.5;
    sut->tag = -7;
    sut->time = 2.5;
    sut->block1[4787] = 1.0F;
    sut->block2[4787] = 2.0F;
    sut->block3[4787] = 3.0F;
    sut->status1[797] = 0xFFFFFFFFU;
    sut->status2[797] = 0xF0000001U;

    EXPECT_EQ(ReadAt<double>(sut.get(), 0), 1.5);
    EXPECT_EQ(ReadAt<std::int32_t>(sut.get(), 8), -7);
    EXPECT_EQ(ReadAt<double>(sut.get(), 16), 2.5);
    EXPECT_EQ(ReadAt<float>(sut.get(), 19176 - 4), 1.0F);
    EXPECT_EQ(ReadAt<float>(sut.get(), 38328 - 4), 2.0F);
    EXPECT_EQ(ReadAt<float>(sut.get(), 57480 - 4), 3.0F);
    EXPECT_EQ(ReadAt<std::uint32_t>(sut.get(), 60672 - 4), 0xFFFFFFFFU);
    EXPECT_EQ(ReadAt<std::uint32_t>(sut.get(), sizeof(EsMeas) - 4), 0xF0000001U);
}

TEST(FeMeasTest, LastElementsOfThePactRecordAreWhereTheFrontEndReadsThem)
{
    const auto sut = std::make_unique<PactMeas>();
    sut->timestamp = 1.5;
    sut->tag = -7;
    sut->time = 2.5;
    sut->block1[2393] = 1.0F;
    sut->block2[2393] = 2.0F;
    sut->status[797] = 0xF0000001U;

    EXPECT_EQ(ReadAt<double>(sut.get(), 0), 1.5);
    EXPECT_EQ(ReadAt<std::int32_t>(sut.get(), 8), -7);
    EXPECT_EQ(ReadAt<double>(sut.get(), 16), 2.5);
    EXPECT_EQ(ReadAt<float>(sut.get(), 9600 - 4), 1.0F);
    EXPECT_EQ(ReadAt<float>(sut.get(), 19176 - 4), 2.0F);
    EXPECT_EQ(ReadAt<std::uint32_t>(sut.get(), sizeof(PactMeas) - 4), 0xF0000001U);
}

TEST(FeMeasTest, TimestampCanBeAccessedAtomicallyWithoutALock)
{
    static_assert(alignof(EsMeas) >= std::atomic_ref<double>::required_alignment);
    static_assert(alignof(PactMeas) >= std::atomic_ref<double>::required_alignment);
    static_assert(std::atomic_ref<double>::is_always_lock_free);
    const auto sut = std::make_unique<EsMeas>();
    std::atomic_ref<double>(sut->timestamp).store(3.25);
    EXPECT_EQ(sut->timestamp, 3.25);
}

TEST(FeMeasTest, BlocksHoldTheValuesOfAllSegments)
{
    EXPECT_EQ(decltype(EsMeas::block1)().size(), 798U * 6U);
    EXPECT_EQ(decltype(EsMeas::status1)().size(), 798U);
    EXPECT_EQ(decltype(PactMeas::block1)().size(), 798U * 3U);
    EXPECT_EQ(decltype(PactMeas::status)().size(), 798U);
}

}  // namespace nodeio
