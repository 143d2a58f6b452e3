#include "support/testFolder.hpp"
#include "support/textFile.hpp"
#include "tableRows.hpp"

#include <lumo/ravelcore/utils.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace lumo::ravelctl {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class TableRowsTest : public testing::Test
{
protected:
    const test::TestFolder m_folder;
    const std::string m_file = (m_folder / "table.fits").string();
};

TEST_F(TableRowsTest, RowsAndTimeStampsAreThoseOfTheTable)
{
    const std::vector<double> timestamps = {0.25, 0.5, 1.0};
    ravelcore::SaveMatrixWithTimestamps(m_file, "M", 3, 2, std::vector<float>(6), timestamps);
    EXPECT_EQ(CountTableRows(m_file), 3);
    EXPECT_EQ(ReadTimestamps(m_file), timestamps);
}

TEST_F(TableRowsTest, ATableWithoutTimeStampsHasNone)
{
    ravelcore::SaveMatrix(m_file, "M", 3, 2, std::vector<float>(6));
    EXPECT_EQ(CountTableRows(m_file), 3);
    EXPECT_THAT(ReadTimestamps(m_file), IsEmpty());
}

TEST_F(TableRowsTest, WhatIsNoTableHasNeither)
{
    EXPECT_EQ(CountTableRows(m_file), std::nullopt);
    EXPECT_THAT(ReadTimestamps(m_file), IsEmpty());
    test::WriteBytes(m_file, "no table");
    EXPECT_EQ(CountTableRows(m_file), std::nullopt);
    EXPECT_THAT(ReadTimestamps(m_file), IsEmpty());
}

}  // namespace
}  // namespace lumo::ravelctl
