#include "support/allocationGuard.hpp"
#include "support/logCapture.hpp"

#include <lumo/ravelcore/doubleMap.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <map>
#include <string>
#include <type_traits>
#include <vector>

namespace lumo::ravelcore {
namespace {

using test::AllocationGuard;
using test::LogCapture;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;
using ::testing::Pair;
using ::testing::SizeIs;

using Map = std::map<int, float>;

/// Expects that there is nothing to take and that the reader's vector stays as it is.
void ExpectNothingToTake(DoubleMap& sut)
{
    EXPECT_FALSE(sut.IsUpdated());
    std::vector<float> values = {-7.0F};
    EXPECT_FALSE(sut.TryRead(values));
    EXPECT_THAT(values, ElementsAre(-7.0F));
}

static_assert(std::has_virtual_destructor_v<DoubleMap>);
static_assert(!std::is_copy_constructible_v<DoubleMap> && !std::is_copy_assignable_v<DoubleMap>);

TEST(DoubleMapTest, NewMapIsEmpty)
{
    DoubleMap sut("offsets");
    EXPECT_EQ(sut.GetName(), "offsets");
    EXPECT_THAT(sut.Get(), IsEmpty());
    ExpectNothingToTake(sut);
}

TEST(DoubleMapTest, EveryOperationBeginsWithItsTraceLine)
{
    const LogCapture log("ravelcore");
    std::vector<float> values(1);
    {
        DoubleMap sut("offsets");
        sut.Init(Map{});
        sut.Set(Map{});
        sut.Set(values);
        sut.TryRead(values);
        sut.Get();
        sut.IsUpdated();
        sut.ClearUpdated();
        sut.GetName();
    }
    const std::string source = "ravel/ravelcore/src/doubleMap\\.cpp ";
    const std::string header = "ravel/ravelcore/src/include/lumo/ravelcore/doubleMap\\.hpp ";
    std::vector<std::string> expected;
    for (const char* name : {"DoubleMap", "Init", "Set", "Set"}) {
        expected.push_back(source + name + " [0-9]+");
    }
    for (const char* name : {"TryRead", "Get", "IsUpdated", "ClearUpdated", "GetName"}) {
        expected.push_back(header + name + " [0-9]+");
    }
    expected.push_back(source + "~DoubleMap [0-9]+");
    const std::vector<test::LogEvent> seen = log.Events();
    ASSERT_THAT(seen, SizeIs(expected.size()));
    for (std::size_t i = 0; i < seen.size(); ++i) {
        EXPECT_THAT(seen[i].message, MatchesRegex(expected[i]));
        EXPECT_EQ(seen[i].level, log4cplus::TRACE_LOG_LEVEL);
        EXPECT_EQ(seen[i].logger, "ravelcore");
    }
}

TEST(DoubleMapTest, InitFillsBothCopiesAndLowersTheFlag)
{
    DoubleMap sut("offsets");
    sut.Set(Map{{1, 1.0F}});
    sut.Init({{3, 1.5}, {7, 2.5}});
    EXPECT_THAT(sut.Get(), ElementsAre(Pair(3, 1.5F), Pair(7, 2.5F)));
    ExpectNothingToTake(sut);
    sut.Set(std::vector<float>{});  // shows the other copy
    EXPECT_THAT(sut.Get(), ElementsAre(Pair(3, 1.5F), Pair(7, 2.5F)));
}

// ---- Set with a map ----------------------------------------------------------------------------------------------

TEST(DoubleMapTest, SetWithAMapPublishesItAndRaisesTheFlag)
{
    DoubleMap sut("offsets");
    sut.Set(Map{{-2, 0.25F}, {5, 1.5F}});
    EXPECT_TRUE(sut.IsUpdated());
    EXPECT_THAT(sut.Get(), ElementsAre(Pair(-2, 0.25F), Pair(5, 1.5F)));
    EXPECT_TRUE(sut.IsUpdated()) << "Get leaves the flag alone";
}

TEST(DoubleMapTest, AlternatingMapsWithDisjointKeysPublishExactlyTheLastOne)
{
    DoubleMap sut("offsets");
    const Map even = {{0, 1.0F}, {2, 2.0F}};
    const Map odd = {{1, 3.0F}, {3, 4.0F}, {5, 5.0F}};
    for (int i = 0; i < 5; ++i) {
        sut.Set(even);
        EXPECT_EQ(sut.Get(), even);
        sut.Set(odd);
        EXPECT_EQ(sut.Get(), odd);
    }
}

TEST(DoubleMapTest, SetWithAnEmptyMapPublishesAnEmptyMap)
{
    DoubleMap sut("offsets");
    sut.Init({{3, 1.5F}});
    sut.Set(Map{});
    EXPECT_THAT(sut.Get(), IsEmpty());
    EXPECT_TRUE(sut.IsUpdated());
}

// ---- Set with a vector -------------------------------------------------------------------------------------------

TEST(DoubleMapTest, SetWithAVectorPublishesItsPositionsAsKeys)
{
    DoubleMap sut("offsets");
    sut.Set(std::vector<float>{0.5F, 1.5F, 2.5F});
    EXPECT_TRUE(sut.IsUpdated());
    EXPECT_THAT(sut.Get(), ElementsAre(Pair(0, 0.5F), Pair(1, 1.5F), Pair(2, 2.5F)));
}

TEST(DoubleMapTest, SetWithAVectorAfterInitMergesIntoWhatInitHasLeft)
{
    DoubleMap sut("offsets");
    sut.Init({{3, 1.5}});
    sut.Set(std::vector<float>{0.5});
    EXPECT_THAT(sut.Get(), ElementsAre(Pair(0, 0.5F), Pair(3, 1.5F)));
}

TEST(DoubleMapTest, SetWithAVectorMergesIntoTheMapOfTwoPublicationsEarlier)
{
    DoubleMap sut("offsets");
    sut.Set(Map{{0, 10.0F}, {7, 17.0F}});
    sut.Set(Map{{1, 21.0F}, {8, 28.0F}});
    sut.Set(std::vector<float>{30.0F, 31.0F});
    EXPECT_THAT(sut.Get(), ElementsAre(Pair(0, 30.0F), Pair(1, 31.0F), Pair(7, 17.0F)))
        << "key 7 is from the first map; keys of the second one are not there";
    sut.Set(std::vector<float>{40.0F});
    EXPECT_THAT(sut.Get(), ElementsAre(Pair(0, 40.0F), Pair(1, 21.0F), Pair(8, 28.0F)));
}

TEST(DoubleMapTest, SetWithAShorterVectorRemovesNoKeys)
{
    DoubleMap sut("offsets");
    sut.Set(std::vector<float>{1.0F, 2.0F, 3.0F});
    sut.Set(std::vector<float>{4.0F, 5.0F, 6.0F});
    sut.Set(std::vector<float>{7.0F});
    EXPECT_THAT(sut.Get(), ElementsAre(Pair(0, 7.0F), Pair(1, 2.0F), Pair(2, 3.0F)));
}

TEST(DoubleMapTest, SetWithAnEmptyVectorShowsTheOlderCopyAgainAndRaisesTheFlag)
{
    DoubleMap sut("offsets");
    sut.Set(Map{{1, 1.0F}});
    sut.Set(Map{{2, 2.0F}});
    sut.ClearUpdated();
    sut.Set(std::vector<float>{});
    EXPECT_TRUE(sut.IsUpdated());
    EXPECT_THAT(sut.Get(), ElementsAre(Pair(1, 1.0F)));
    sut.Set(std::vector<float>{});
    EXPECT_THAT(sut.Get(), ElementsAre(Pair(2, 2.0F)));
}

TEST(DoubleMapTest, MapAfterAVectorPublishesExactlyTheMap)
{
    DoubleMap sut("offsets");
    sut.Set(std::vector<float>{1.0F, 2.0F});
    sut.Set(std::vector<float>{1.0F, 2.0F});
    sut.Set(Map{{9, 9.0F}});
    EXPECT_THAT(sut.Get(), ElementsAre(Pair(9, 9.0F)));
}

// ---- the reader's side -------------------------------------------------------------------------------------------

TEST(DoubleMapTest, TryReadWritesTheKeysThatAreThereOnceAndLowersTheFlag)
{
    DoubleMap sut("offsets");
    sut.Set(Map{{0, 10.0F}, {3, 13.0F}});
    std::vector<float> values = {1.0F, 2.0F, 3.0F, 4.0F, 5.0F};
    EXPECT_TRUE(sut.TryRead(values));
    EXPECT_THAT(values, ElementsAre(10.0F, 2.0F, 3.0F, 13.0F, 5.0F));
    ExpectNothingToTake(sut);
    EXPECT_THAT(sut.Get(), SizeIs(2)) << "they are still what readers see";
}

TEST(DoubleMapTest, TryReadLeavesKeysOutsideTheVectorAsideAndItsSizeAlone)
{
    DoubleMap sut("offsets");
    sut.Set(Map{{std::numeric_limits<int>::min(), 1.0F},
                {-1, 2.0F},
                {1, 3.0F},
                {2, 4.0F},
                {std::numeric_limits<int>::max(), 5.0F}});
    std::vector<float> values = {-7.0F, -8.0F};
    EXPECT_TRUE(sut.TryRead(values));
    EXPECT_THAT(values, ElementsAre(-7.0F, 3.0F));
}

TEST(DoubleMapTest, TryReadOfAnEmptyMapTakesItAndChangesNoElement)
{
    DoubleMap sut("offsets");
    sut.Set(Map{});
    std::vector<float> values = {-7.0F};
    EXPECT_TRUE(sut.TryRead(values));
    EXPECT_THAT(values, ElementsAre(-7.0F));
    EXPECT_FALSE(sut.IsUpdated());
}

TEST(DoubleMapTest, TryReadIntoAnEmptyVectorLowersTheFlag)
{
    DoubleMap sut("offsets");
    sut.Set(Map{{0, 1.0F}});
    std::vector<float> values;
    EXPECT_TRUE(sut.TryRead(values));
    EXPECT_THAT(values, IsEmpty());
    EXPECT_FALSE(sut.IsUpdated());
}

TEST(DoubleMapTest, ClearUpdatedForgetsWhatIsPendingButNotTheValues)
{
    DoubleMap sut("offsets");
    sut.Set(Map{{0, 1.0F}});
    sut.ClearUpdated();
    ExpectNothingToTake(sut);
    EXPECT_THAT(sut.Get(), ElementsAre(Pair(0, 1.0F)));
}

TEST(DoubleMapTest, TryReadNeverAllocates)
{
    const LogCapture log("ravelcore", log4cplus::DEBUG_LOG_LEVEL);
    DoubleMap sut("offsets");
    std::vector<float> values(10);
    const Map keys = {{-1, 1.0F}, {0, 2.0F}, {9, 3.0F}, {10, 4.0F}};
    for (int cycle = 0; cycle < 100; ++cycle) {
        sut.Set(keys);
        const AllocationGuard guard;
        EXPECT_TRUE(sut.TryRead(values));
        EXPECT_FALSE(sut.TryRead(values));
        EXPECT_EQ(guard.GetCount(), 0);
    }
    EXPECT_THAT(log.Events(), IsEmpty()) << "above TRACE there is nothing to say";
}

TEST(DoubleMapTest, RepeatedSetWithAVectorReusesTheNodes)
{
    const LogCapture log("ravelcore", log4cplus::DEBUG_LOG_LEVEL);
    DoubleMap sut("offsets");
    const std::vector<float> values(10, 1.0F);
    sut.Set(values);
    sut.Set(values);
    const AllocationGuard guard;
    sut.Set(values);
    EXPECT_EQ(guard.GetCount(), 0);
}

}  // namespace
}  // namespace lumo::ravelcore
