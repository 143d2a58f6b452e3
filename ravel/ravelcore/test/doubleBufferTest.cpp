#include "support/allocationGuard.hpp"
#include "support/assertRecorder.hpp"
#include "support/fitsBytes.hpp"
#include "support/logCapture.hpp"
#include "support/temporaryDirectory.hpp"
#include "support/thrown.hpp"

#include <lumo/ravelcore/doubleBuffer.hpp>
#include <lumo/ravelcore/utils.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <bit>
#include <cstdint>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace lumo::ravelcore {
namespace {

using test::AllocationGuard;
using test::AssertRecorder;
using test::ExpectException;
using test::LogCapture;
using test::ReadBytes;
using test::TemporaryDirectory;
using test::Thrown;
using test::WriteBytes;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;
using ::testing::SizeIs;

/// What a reader takes; it must find something to take.
std::vector<float> Take(DoubleBuffer& sut)
{
    std::vector<float> values;
    EXPECT_TRUE(sut.TryRead(values));
    return values;
}

/// Expects that there is nothing to take and that the reader's vector stays as it is.
void ExpectNothingToTake(DoubleBuffer& sut)
{
    EXPECT_FALSE(sut.IsUpdated());
    std::vector<float> values = {-7.0F};
    EXPECT_FALSE(sut.TryRead(values));
    EXPECT_THAT(values, ElementsAre(-7.0F));
}

/// Expects one report through brisk::Assert in `function`.
void ExpectReported(const AssertRecorder& asserts, const std::string& function)
{
    ASSERT_THAT(asserts.GetFailures(), SizeIs(1));
    EXPECT_EQ(asserts.GetFailures()[0].file, "ravel/ravelcore/src/doubleBuffer.cpp");
    EXPECT_EQ(asserts.GetFailures()[0].function, function);
    EXPECT_GT(asserts.GetFailures()[0].line, 0);
}

// ---- construction, Init ------------------------------------------------------------------------------------------

static_assert(std::has_virtual_destructor_v<DoubleBuffer>);
static_assert(!std::is_copy_constructible_v<DoubleBuffer> && !std::is_copy_assignable_v<DoubleBuffer>);

TEST(DoubleBufferTest, NewBufferHoldsZerosThatNobodyNeedsToTake)
{
    DoubleBuffer sut("gains", 3);
    EXPECT_EQ(sut.GetName(), "gains");
    EXPECT_EQ(sut.GetSize(), 3);
    EXPECT_THAT(sut.Get(), ElementsAre(0.0F, 0.0F, 0.0F));
    ExpectNothingToTake(sut);
}

TEST(DoubleBufferTest, NewBufferOfSizeZeroIsEmpty)
{
    DoubleBuffer sut("none", 0);
    EXPECT_EQ(sut.GetSize(), 0);
    EXPECT_THAT(sut.Get(), IsEmpty());
    ExpectNothingToTake(sut);
}

TEST(DoubleBufferTest, EveryOperationBeginsWithItsTraceLine)
{
    const LogCapture log("ravelcore");
    std::vector<float> values(1);
    {
        DoubleBuffer sut("gains", 1);
        sut.Init(1);
        sut.Init(values);
        sut.Set(values);
        sut.TryRead(values);
        sut.Get();
        sut.IsUpdated();
        sut.ClearUpdated();
        sut.GetName();
        sut.GetSize();
        sut.Init(0);
        sut.Save("");
    }
    const std::string source = "ravel/ravelcore/src/doubleBuffer\\.cpp ";
    const std::string header = "ravel/ravelcore/src/include/lumo/ravelcore/doubleBuffer\\.hpp ";
    std::vector<std::string> expected;
    for (const char* name : {"DoubleBuffer", "Init", "Init", "Init", "Set"}) {
        expected.push_back(source + name + " [0-9]+");
    }
    for (const char* name : {"TryRead", "Get", "IsUpdated", "ClearUpdated", "GetName", "GetSize"}) {
        expected.push_back(header + name + " [0-9]+");
    }
    for (const char* name : {"Init", "Save", "~DoubleBuffer"}) {
        expected.push_back(source + name + " [0-9]+");
    }
    const std::vector<test::LogEvent> seen = log.Events(log4cplus::TRACE_LOG_LEVEL);
    ASSERT_THAT(seen, SizeIs(expected.size()));
    for (std::size_t i = 0; i < seen.size(); ++i) {
        EXPECT_THAT(seen[i].message, MatchesRegex(expected[i]));
        EXPECT_EQ(seen[i].logger, "ravelcore");
    }
}

TEST(DoubleBufferTest, LoadBeginsWithItsTraceLineAndHandsOverToLoadMatrix)
{
    DoubleBuffer sut("gains", 1);
    const LogCapture log("ravelcore");
    sut.Load("");
    EXPECT_THAT(log.Messages(log4cplus::TRACE_LOG_LEVEL),
                ElementsAre(MatchesRegex("ravel/ravelcore/src/doubleBuffer\\.cpp Load [0-9]+"),
                            MatchesRegex("ravel/ravelcore/src/utils\\.cpp LoadMatrix [0-9]+")));
}

TEST(DoubleBufferTest, InitWithASizeRefillsBothCopiesAndLowersTheFlag)
{
    DoubleBuffer sut("gains", 2);
    sut.Set({1.0F, 2.0F});
    sut.Set({3.0F, 4.0F});
    sut.Init(3);
    EXPECT_EQ(sut.GetSize(), 3);
    EXPECT_THAT(sut.Get(), ElementsAre(0.0F, 0.0F, 0.0F));
    ExpectNothingToTake(sut);
    sut.Set({5.0F, 6.0F, 7.0F});
    sut.Set({0.0F, 0.0F, 0.0F});
    EXPECT_THAT(sut.Get(), Each(0.0F));
}

TEST(DoubleBufferTest, InitWithValuesFillsBothCopiesAndLowersTheFlag)
{
    DoubleBuffer sut("gains", 5);
    sut.Set({1.0F, 2.0F, 3.0F, 4.0F, 5.0F});
    sut.Init(std::vector<float>{8.0F, 9.0F});
    EXPECT_EQ(sut.GetSize(), 2);
    EXPECT_THAT(sut.Get(), ElementsAre(8.0F, 9.0F));
    ExpectNothingToTake(sut);
}

TEST(DoubleBufferTest, InitWithoutValuesMakesAnEmptyBuffer)
{
    DoubleBuffer sut("gains", 5);
    sut.Init(std::vector<float>{});
    EXPECT_EQ(sut.GetSize(), 0);
    EXPECT_THAT(sut.Get(), IsEmpty());
}

TEST(DoubleBufferTest, NegativeSizeIsReportedAndTheCopiesAreEmpty)
{
    DoubleBuffer sut("gains", 2);
    const AssertRecorder asserts;
    sut.Init(-1);
    ExpectReported(asserts, "Init");
    EXPECT_EQ(sut.GetSize(), -1);
    EXPECT_THAT(sut.Get(), IsEmpty());
    EXPECT_FALSE(sut.IsUpdated());
}

TEST(DoubleBufferTest, NegativeSizeIsReportedByTheConstructorToo)
{
    const AssertRecorder asserts;
    const DoubleBuffer sut("gains", -3);
    ExpectReported(asserts, "Init");
}

// ---- Set, the reader's side --------------------------------------------------------------------------------------

TEST(DoubleBufferTest, SetPublishesTheValuesAndRaisesTheFlag)
{
    DoubleBuffer sut("gains", 3);
    sut.Set({1.0F, 2.0F, 3.0F});
    EXPECT_TRUE(sut.IsUpdated());
    EXPECT_THAT(sut.Get(), ElementsAre(1.0F, 2.0F, 3.0F));
    EXPECT_TRUE(sut.IsUpdated()) << "Get leaves the flag alone";
}

TEST(DoubleBufferTest, TryReadTakesTheValuesOnceAndLowersTheFlag)
{
    DoubleBuffer sut("gains", 3);
    sut.Set({1.0F, 2.0F, 3.0F});
    std::vector<float> values(3);
    EXPECT_TRUE(sut.TryRead(values));
    EXPECT_THAT(values, ElementsAre(1.0F, 2.0F, 3.0F));
    ExpectNothingToTake(sut);
    EXPECT_THAT(sut.Get(), ElementsAre(1.0F, 2.0F, 3.0F)) << "they are still what readers see";
}

TEST(DoubleBufferTest, TryReadSizesTheReadersVector)
{
    DoubleBuffer sut("gains", 3);
    for (const std::size_t size : {0U, 2U, 10U}) {
        std::vector<float> values(size, -1.0F);
        sut.Set({1.0F, 2.0F, 3.0F});
        EXPECT_TRUE(sut.TryRead(values));
        EXPECT_THAT(values, ElementsAre(1.0F, 2.0F, 3.0F));
    }
}

TEST(DoubleBufferTest, AfterTwoSetsTheReaderTakesTheSecond)
{
    DoubleBuffer sut("gains", 2);
    sut.Set({1.0F, 2.0F});
    sut.Set({3.0F, 4.0F});
    EXPECT_THAT(sut.Get(), ElementsAre(3.0F, 4.0F));
    EXPECT_THAT(Take(sut), ElementsAre(3.0F, 4.0F));
    ExpectNothingToTake(sut);
}

TEST(DoubleBufferTest, EveryFurtherSetIsReadableInFull)
{
    DoubleBuffer sut("gains", 2);
    for (int i = 1; i <= 10; ++i) {
        const auto value = static_cast<float>(i);
        sut.Set({value, -value});
        EXPECT_THAT(Take(sut), ElementsAre(value, -value));
    }
}

TEST(DoubleBufferTest, SetOfAnotherLengthIsReportedAndChangesNothing)
{
    for (const std::size_t size : {0U, 1U, 3U}) {
        DoubleBuffer sut("gains", 2);
        sut.Set({1.0F, 2.0F});
        sut.ClearUpdated();
        const AssertRecorder asserts;
        sut.Set(std::vector<float>(size, 9.0F));
        ExpectReported(asserts, "Set");
        EXPECT_THAT(sut.Get(), ElementsAre(1.0F, 2.0F));
        ExpectNothingToTake(sut);
        EXPECT_EQ(sut.GetSize(), 2);
        sut.Set({3.0F, 4.0F});
        EXPECT_THAT(Take(sut), ElementsAre(3.0F, 4.0F));
    }
}

TEST(DoubleBufferTest, SetOfAnotherLengthLeavesARaisedFlagRaised)
{
    DoubleBuffer sut("gains", 2);
    sut.Set({1.0F, 2.0F});
    const AssertRecorder asserts;
    sut.Set({9.0F});
    EXPECT_TRUE(sut.IsUpdated());
    EXPECT_THAT(Take(sut), ElementsAre(1.0F, 2.0F));
}

TEST(DoubleBufferTest, SetIntoABufferOfNegativeSizeIsReported)
{
    const AssertRecorder asserts;
    DoubleBuffer sut("gains", -1);
    sut.Set({});
    ASSERT_THAT(asserts.GetFailures(), SizeIs(2));
    EXPECT_EQ(asserts.GetFailures()[1].function, "Set");
}

TEST(DoubleBufferTest, SetOfNothingIntoAnEmptyBufferRaisesTheFlag)
{
    DoubleBuffer sut("none", 0);
    sut.Set({});
    EXPECT_TRUE(sut.IsUpdated());
    EXPECT_THAT(Take(sut), IsEmpty());
}

TEST(DoubleBufferTest, ClearUpdatedForgetsWhatIsPendingButNotTheValues)
{
    DoubleBuffer sut("gains", 2);
    sut.Set({1.0F, 2.0F});
    sut.ClearUpdated();
    ExpectNothingToTake(sut);
    EXPECT_THAT(sut.Get(), ElementsAre(1.0F, 2.0F));
}

TEST(DoubleBufferTest, EveryBitPatternIsHandedOver)
{
    const std::uint32_t patterns[] = {0x7FC01234U, 0x7F801234U, 0x80000000U, 0x00000001U, 0xFF800000U};
    std::vector<float> values;
    for (const std::uint32_t pattern : patterns) {
        values.push_back(std::bit_cast<float>(pattern));
    }
    DoubleBuffer sut("patterns", 5);
    sut.Set(values);
    const std::vector<float> taken = Take(sut);
    for (std::size_t i = 0; i < taken.size(); ++i) {
        EXPECT_EQ(std::bit_cast<std::uint32_t>(taken[i]), patterns[i]);
    }
}

TEST(DoubleBufferTest, TryReadIntoASizedVectorAndSetNeverAllocate)
{
    const LogCapture log("ravelcore", log4cplus::DEBUG_LOG_LEVEL);
    DoubleBuffer sut("gains", 6000);
    const std::vector<float> gains(6000, 2.0F);
    std::vector<float> values(6000);
    const AllocationGuard guard;
    for (int cycle = 0; cycle < 100; ++cycle) {
        sut.Set(gains);
        EXPECT_TRUE(sut.TryRead(values));
        EXPECT_FALSE(sut.TryRead(values));
    }
    EXPECT_EQ(guard.GetCount(), 0);
    EXPECT_THAT(log.Events(), IsEmpty()) << "above TRACE there is nothing to say";
}

// ---- Load, Save --------------------------------------------------------------------------------------------------

class DoubleBufferFileTest : public ::testing::Test
{
protected:
    /// The DEBUG lines that `action` writes.
    template <typename Action>
    static std::vector<std::string> DebugLines(Action&& action)
    {
        const LogCapture log("ravelcore", log4cplus::DEBUG_LOG_LEVEL);
        action();
        return log.Messages(log4cplus::DEBUG_LOG_LEVEL);
    }

    /// A file of one matrix whose elements are 0.5, 1.5, ...
    void WriteMatrix(int rows, int cols)
    {
        std::vector<float> values(static_cast<std::size_t>(rows * cols));
        for (std::size_t i = 0; i < values.size(); ++i) {
            values[i] = static_cast<float>(i) + 0.5F;
        }
        SaveMatrix(m_file, "gains", rows, cols, values);
    }

    TemporaryDirectory m_directory;
    const std::string m_file = m_directory / "gains.fits";
    DoubleBuffer m_sut{"gains", 3};
};

TEST_F(DoubleBufferFileTest, LoadPublishesTheRowOfTheFileAndRaisesTheFlag)
{
    WriteMatrix(1, 3);
    EXPECT_THAT(DebugLines([&] { m_sut.Load(m_file); }), ElementsAre("Loaded gains [1 x 3] from file: " + m_file));
    EXPECT_TRUE(m_sut.IsUpdated());
    EXPECT_EQ(m_sut.GetSize(), 3);
    EXPECT_THAT(Take(m_sut), ElementsAre(0.5F, 1.5F, 2.5F));
}

TEST_F(DoubleBufferFileTest, LoadAfterAnOddNumberOfSetsPublishesTheFileToo)
{
    WriteMatrix(1, 3);
    m_sut.Set({7.0F, 8.0F, 9.0F});  // the indices have changed places
    m_sut.Load(m_file);
    EXPECT_THAT(Take(m_sut), ElementsAre(0.5F, 1.5F, 2.5F));
    m_sut.Set({4.0F, 5.0F, 6.0F});
    EXPECT_THAT(Take(m_sut), ElementsAre(4.0F, 5.0F, 6.0F));
}

TEST_F(DoubleBufferFileTest, LoadOfAnotherShapeFailsInLoadMatrixAndChangesNothing)
{
    m_sut.Set({7.0F, 8.0F, 9.0F});
    m_sut.ClearUpdated();
    for (const auto& [rows, cols] : {std::pair{3, 1}, std::pair{1, 2}, std::pair{1, 4}, std::pair{2, 3}}) {
        WriteMatrix(rows, cols);
        ExpectException(Thrown([&] { m_sut.Load(m_file); }),
                        "Matrix gains (" + m_file + ") has dimension [" + std::to_string(rows) + "," +
                            std::to_string(cols) + "], expecting [1,3]",
                        "LoadMatrix", "utils.cpp");
        EXPECT_THAT(m_sut.Get(), ElementsAre(7.0F, 8.0F, 9.0F));
        EXPECT_EQ(m_sut.GetSize(), 3);
        ExpectNothingToTake(m_sut);
    }
}

TEST_F(DoubleBufferFileTest, FailedLoadLeavesTheWriteSideWhereItWas)
{
    m_sut.Set({7.0F, 8.0F, 9.0F});
    EXPECT_THROW(m_sut.Load("no such file"), brisk::Exception);
    EXPECT_TRUE(m_sut.IsUpdated());
    EXPECT_THAT(Take(m_sut), ElementsAre(7.0F, 8.0F, 9.0F));
    m_sut.Set({4.0F, 5.0F, 6.0F});
    EXPECT_THAT(Take(m_sut), ElementsAre(4.0F, 5.0F, 6.0F));
}

TEST_F(DoubleBufferFileTest, LoadPassesOnWhatLoadMatrixThrows)
{
    ExpectException(Thrown([&] { m_sut.Load("no such file"); }), "Not able to find file <no such file>.", "LoadMatrix",
                    "utils.cpp");
}

TEST_F(DoubleBufferFileTest, LoadWithAnEmptyNameChangesNothing)
{
    m_sut.Set({7.0F, 8.0F, 9.0F});
    m_sut.ClearUpdated();
    EXPECT_THAT(DebugLines([&] { m_sut.Load(""); }), ElementsAre("Empty filename, skipped loading of gains matrix."));
    EXPECT_THAT(m_sut.Get(), ElementsAre(7.0F, 8.0F, 9.0F));
    ExpectNothingToTake(m_sut);
}

TEST_F(DoubleBufferFileTest, SaveWritesWhatReadersSeeAsOneRowAndSaysSo)
{
    m_sut.Set({7.0F, 8.0F, 9.0F});
    m_sut.Set({4.0F, 5.0F, 6.0F});
    EXPECT_THAT(
        DebugLines([&] { m_sut.Save(m_file); }),
        ElementsAre("Saved gains [1 x 3] to file: " + m_file, "Saved gains to file " + m_file + " with 3 elements."));
    int rows = -1;
    int cols = -1;
    std::vector<float> values;
    LoadMatrix(m_file, "gains", rows, cols, values);
    EXPECT_EQ(rows, 1);
    EXPECT_EQ(cols, 3);
    EXPECT_THAT(values, ElementsAre(4.0F, 5.0F, 6.0F));
    EXPECT_NE(ReadBytes(m_file).find("TTYPE1  = 'gains   '"), std::string::npos);
}

TEST_F(DoubleBufferFileTest, SaveLeavesTheBufferAndTheFlagAlone)
{
    m_sut.Set({7.0F, 8.0F, 9.0F});
    m_sut.Save(m_file);
    EXPECT_TRUE(m_sut.IsUpdated());
    EXPECT_THAT(Take(m_sut), ElementsAre(7.0F, 8.0F, 9.0F));
    m_sut.Save(m_file);
    EXPECT_FALSE(m_sut.IsUpdated());
}

TEST_F(DoubleBufferFileTest, SaveReplacesAnExistingFile)
{
    WriteBytes(m_file, "old");
    m_sut.Save(m_file);
    m_sut.Load(m_file);
    EXPECT_THAT(Take(m_sut), ElementsAre(0.0F, 0.0F, 0.0F));
}

TEST_F(DoubleBufferFileTest, SavePassesOnWhatSaveMatrixThrows)
{
    const LogCapture log("ravelcore", log4cplus::DEBUG_LOG_LEVEL);
    EXPECT_EQ(Thrown([&] { m_sut.Save(m_directory / "no such directory" + "/gains.fits"); }).GetFunctionName(),
              "SaveMatrix");
    EXPECT_THAT(log.Events(), IsEmpty());
}

TEST_F(DoubleBufferFileTest, SaveOfAnEmptyBufferWarnsAndLeavesTheFileAlone)
{
    for (const bool file_exists : {false, true}) {
        if (file_exists) {
            WriteBytes(m_file, "as it was");
        }
        m_sut.Init(0);
        const LogCapture log("ravelcore", log4cplus::DEBUG_LOG_LEVEL);
        m_sut.Save(m_file);
        ASSERT_THAT(log.Events(), SizeIs(1));
        EXPECT_EQ(log.Events()[0].message, "DoubleBuffer gains is empty, nothing to save.");
        EXPECT_EQ(log.Events()[0].level, log4cplus::WARN_LOG_LEVEL);
        EXPECT_EQ(log.Events()[0].logger, "ravelcore");
        EXPECT_THAT(m_directory.List(), SizeIs(file_exists ? 1 : 0));
    }
    EXPECT_EQ(ReadBytes(m_file), "as it was");
}

TEST_F(DoubleBufferFileTest, SaveOfABufferOfNegativeSizeWarnsToo)
{
    const AssertRecorder asserts;
    m_sut.Init(-2);
    const LogCapture log("ravelcore", log4cplus::DEBUG_LOG_LEVEL);
    m_sut.Save(m_file);
    EXPECT_THAT(log.Messages(log4cplus::WARN_LOG_LEVEL), ElementsAre("DoubleBuffer gains is empty, nothing to save."));
    EXPECT_THAT(m_directory.List(), IsEmpty());
}

TEST_F(DoubleBufferFileTest, WhatOneBufferSavesAnotherLoads)
{
    m_sut.Set({1.5F, -2.5F, 1e-40F});
    m_sut.Save(m_file);
    DoubleBuffer other("others", 3);
    other.Load(m_file);
    EXPECT_THAT(Take(other), ElementsAre(1.5F, -2.5F, 1e-40F));
}

}  // namespace
}  // namespace lumo::ravelcore
