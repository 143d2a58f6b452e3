#include "support/allocationGuard.hpp"
#include "support/assertRecorder.hpp"
#include "support/logCapture.hpp"

#include <lumo/ravelcore/lazyBuffer.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <type_traits>
#include <vector>

namespace lumo::ravelcore {
namespace {

using test::AllocationGuard;
using test::AssertRecorder;
using test::LogCapture;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;
using ::testing::SizeIs;

/// Expects that there is nothing to take and that the reader's vector stays as it is.
void ExpectNothingToTake(LazyBuffer& sut)
{
    EXPECT_FALSE(sut.IsUpdated());
    std::vector<float> values = {-7.0F};
    EXPECT_FALSE(sut.TryRead(values));
    EXPECT_THAT(values, ElementsAre(-7.0F));
}

static_assert(std::has_virtual_destructor_v<LazyBuffer>);
static_assert(!std::is_copy_constructible_v<LazyBuffer> && !std::is_copy_assignable_v<LazyBuffer>);

TEST(LazyBufferTest, NewBufferHoldsZerosThatNobodyNeedsToTake)
{
    LazyBuffer sut("modes", 3);
    EXPECT_EQ(sut.GetName(), "modes");
    EXPECT_EQ(sut.GetSize(), 3);
    EXPECT_THAT(sut.Get(), ElementsAre(0.0F, 0.0F, 0.0F));
    ExpectNothingToTake(sut);
}

TEST(LazyBufferTest, NewBufferOfSizeZeroIsEmptyAndNothingIsPending)
{
    LazyBuffer sut("none", 0);
    EXPECT_EQ(sut.GetSize(), 0);
    EXPECT_THAT(sut.Get(), IsEmpty());
    ExpectNothingToTake(sut);
}

TEST(LazyBufferTest, EveryOperationBeginsWithItsTraceLine)
{
    const LogCapture log("ravelcore");
    std::vector<float> values(1);
    {
        LazyBuffer sut("modes", 1);
        sut.Write(values);
        sut.TryRead(values);
        sut.Get();
        sut.IsUpdated();
        sut.GetName();
        sut.GetSize();
    }
    const std::string source = "ravel/ravelcore/src/lazyBuffer\\.cpp ";
    const std::string header = "ravel/ravelcore/src/include/lumo/ravelcore/lazyBuffer\\.hpp ";
    std::vector<std::string> expected = {source + "LazyBuffer [0-9]+", source + "Init [0-9]+"};
    for (const char* name : {"Write", "TryRead", "Get", "IsUpdated", "GetName", "GetSize"}) {
        expected.push_back(header + name + " [0-9]+");
    }
    expected.push_back(source + "~LazyBuffer [0-9]+");
    const std::vector<test::LogEvent> seen = log.Events();
    ASSERT_THAT(seen, SizeIs(expected.size()));
    for (std::size_t i = 0; i < seen.size(); ++i) {
        EXPECT_THAT(seen[i].message, MatchesRegex(expected[i]));
        EXPECT_EQ(seen[i].level, log4cplus::TRACE_LOG_LEVEL);
        EXPECT_EQ(seen[i].logger, "ravelcore");
    }
}

TEST(LazyBufferTest, InitOfFiveAfterInitOfThreeLeavesExactlyFiveZeros)
{
    LazyBuffer sut("modes", 3);
    sut.Write({1.0F, 2.0F, 3.0F});
    sut.Init(3);
    EXPECT_THAT(sut.Get(), ElementsAre(0.0F, 0.0F, 0.0F));
    sut.Write({1.0F, 2.0F, 3.0F});
    sut.Init(5);
    EXPECT_EQ(sut.GetSize(), 5);
    EXPECT_THAT(sut.Get(), ElementsAre(0.0F, 0.0F, 0.0F, 0.0F, 0.0F));
    ExpectNothingToTake(sut);
}

TEST(LazyBufferTest, InitMayShrinkTheBuffer)
{
    LazyBuffer sut("modes", 5);
    sut.Init(2);
    EXPECT_EQ(sut.GetSize(), 2);
    EXPECT_THAT(sut.Get(), ElementsAre(0.0F, 0.0F));
}

TEST(LazyBufferTest, NegativeSizeIsReportedAndKeptWithNoData)
{
    LazyBuffer sut("modes", 2);
    const AssertRecorder asserts;
    sut.Init(-1);
    ASSERT_THAT(asserts.GetFailures(), SizeIs(1));
    EXPECT_EQ(asserts.GetFailures()[0].file, "ravel/ravelcore/src/lazyBuffer.cpp");
    EXPECT_EQ(asserts.GetFailures()[0].function, "Init");
    EXPECT_GT(asserts.GetFailures()[0].line, 0);
    EXPECT_EQ(sut.GetSize(), -1);
    EXPECT_THAT(sut.Get(), IsEmpty());
    EXPECT_FALSE(sut.IsUpdated());
}

TEST(LazyBufferTest, WriteReplacesTheDataAndRaisesTheMarker)
{
    LazyBuffer sut("modes", 2);
    sut.Write({1.0F, 2.0F});
    EXPECT_TRUE(sut.IsUpdated());
    EXPECT_THAT(sut.Get(), ElementsAre(1.0F, 2.0F));
    EXPECT_TRUE(sut.IsUpdated()) << "Get leaves the marker alone";
    sut.Write({3.0F, 4.0F});
    EXPECT_THAT(sut.Get(), ElementsAre(3.0F, 4.0F));
}

TEST(LazyBufferTest, TryReadTakesTheDataOnceAndLowersTheMarker)
{
    LazyBuffer sut("modes", 2);
    sut.Write({1.0F, 2.0F});
    sut.Write({3.0F, 4.0F});
    std::vector<float> values(2);
    EXPECT_TRUE(sut.TryRead(values));
    EXPECT_THAT(values, ElementsAre(3.0F, 4.0F));
    ExpectNothingToTake(sut);
    EXPECT_THAT(sut.Get(), ElementsAre(3.0F, 4.0F)) << "the data stay";
}

TEST(LazyBufferTest, TryReadSizesTheReadersVector)
{
    LazyBuffer sut("modes", 2);
    for (const std::size_t size : {0U, 1U, 10U}) {
        std::vector<float> values(size, -1.0F);
        sut.Write({1.0F, 2.0F});
        EXPECT_TRUE(sut.TryRead(values));
        EXPECT_THAT(values, ElementsAre(1.0F, 2.0F));
    }
}

TEST(LazyBufferTest, WriteOfAnotherLengthIsReportedAndChangesNothing)
{
    for (const bool pending : {false, true}) {
        for (const std::size_t size : {0U, 1U, 3U}) {
            LazyBuffer sut("modes", 2);
            std::vector<float> values(2);
            sut.Write({1.0F, 2.0F});
            if (!pending) {
                sut.TryRead(values);
            }
            const AssertRecorder asserts;
            sut.Write(std::vector<float>(size, 9.0F));
            ASSERT_THAT(asserts.GetFailures(), SizeIs(1));
            EXPECT_EQ(asserts.GetFailures()[0].file, "ravel/ravelcore/src/include/lumo/ravelcore/lazyBuffer.hpp");
            EXPECT_EQ(asserts.GetFailures()[0].function, "Write");
            EXPECT_EQ(sut.IsUpdated(), pending);
            EXPECT_THAT(sut.Get(), ElementsAre(1.0F, 2.0F));
            EXPECT_EQ(sut.GetSize(), 2);
        }
    }
}

TEST(LazyBufferTest, WriteIntoABufferOfNegativeSizeIsReported)
{
    const AssertRecorder asserts;
    LazyBuffer sut("modes", -1);
    sut.Write({});
    ASSERT_THAT(asserts.GetFailures(), SizeIs(2));
    EXPECT_EQ(asserts.GetFailures()[1].function, "Write");
    EXPECT_FALSE(sut.IsUpdated());
}

TEST(LazyBufferTest, TryReadIntoASizedVectorAndWriteNeverAllocate)
{
    const LogCapture log("ravelcore", log4cplus::DEBUG_LOG_LEVEL);
    LazyBuffer sut("modes", 6000);
    const std::vector<float> modes(6000, 2.0F);
    std::vector<float> values(6000);
    const AllocationGuard guard;
    for (int cycle = 0; cycle < 100; ++cycle) {
        sut.Write(modes);
        EXPECT_TRUE(sut.TryRead(values));
        EXPECT_FALSE(sut.TryRead(values));
    }
    EXPECT_EQ(guard.GetCount(), 0);
    EXPECT_THAT(log.Events(), IsEmpty()) << "above TRACE there is nothing to say";
}

}  // namespace
}  // namespace lumo::ravelcore
