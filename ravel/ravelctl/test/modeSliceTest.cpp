#include "modeSlice.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace lumo::ravelctl {
namespace {

using testing::ElementsAre;

TEST(ModeSliceTest, SlicesCoverEveryModeOnceInOrder)
{
    for (const int num_modes : {1, 7, 600, 2390}) {
        for (int num_slices = 1; num_slices <= 9; ++num_slices) {
            int next = 0;
            for (const ModeSlice& slice : SliceModes(num_modes, num_slices)) {
                EXPECT_EQ(slice.first, next) << num_modes << " modes in " << num_slices << " slices";
                EXPECT_GT(slice.count, 0);
                next += slice.count;
            }
            EXPECT_EQ(next, num_modes) << num_modes << " modes in " << num_slices << " slices";
        }
    }
}

TEST(ModeSliceTest, TheLastSliceTakesWhatIsLeft)
{
    const std::vector<ModeSlice> slices = SliceModes(7, 3);
    ASSERT_EQ(slices.size(), 3U);
    EXPECT_EQ(slices[0].count, 3);
    EXPECT_EQ(slices[1].count, 3);
    EXPECT_EQ(slices[2].count, 1);
}

TEST(ModeSliceTest, RowsOfTakesWholeRows)
{
    const std::vector<float> matrix = {1, 2, 3, 4, 5, 6, 7, 8};  // 4 x 2
    EXPECT_THAT(RowsOf(matrix, 2, {1, 2}), ElementsAre(3, 4, 5, 6));
}

TEST(ModeSliceTest, ColumnsOfTakesTheColumnsOfEveryRow)
{
    const std::vector<float> matrix = {1, 2, 3, 4, 5, 6, 7, 8};  // 2 x 4
    EXPECT_THAT(ColumnsOf(matrix, 4, {1, 2}), ElementsAre(2, 3, 6, 7));
    EXPECT_THAT(ColumnsOf(matrix, 4, {3, 1}), ElementsAre(4, 8));
}

}  // namespace
}  // namespace lumo::ravelctl
