#include "support/fitsBytes.hpp"
#include "support/logCapture.hpp"
#include "support/savedSeries.hpp"
#include "support/temporaryDirectory.hpp"
#include "support/thrown.hpp"

#include <lumo/ravelcore/recorder.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

namespace lumo::ravelcore {
namespace {

using test::ExpectException;
using test::LogCapture;
using test::ReadBytes;
using test::ReadSavedSeries;
using test::SavedSeries;
using test::TemporaryDirectory;
using test::Thrown;
using test::WriteBytes;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;
using ::testing::SizeIs;

constexpr double NOT_A_NUMBER = std::numeric_limits<double>::quiet_NaN();

/// A recorder of ten slots that has recorded one sample for each time stamp; element i of sample k is
/// `base` + 10 k + i.
Recorder MakeRecorder(const std::string& name, int sample_size, const std::vector<double>& timestamps, float base)
{
    Recorder recorder(name);
    recorder.Init(10, sample_size);
    recorder.Start(false, 0);
    for (std::size_t k = 0; k < timestamps.size(); ++k) {
        std::vector<float> sample;
        for (int i = 0; i < sample_size; ++i) {
            sample.push_back(base + 10.0F * static_cast<float>(k) + static_cast<float>(i));
        }
        recorder.AddSample(timestamps[k], sample.data());
    }
    return recorder;
}

/// `count` time stamps from 0.5 on, a quarter of a second apart.
std::vector<double> Times(int count)
{
    std::vector<double> times;
    for (int k = 0; k < count; ++k) {
        times.push_back(0.5 + 0.25 * k);
    }
    return times;
}

class SaveCombinedRecordersTest : public ::testing::Test
{
protected:
    SavedSeries SaveAndRead(const std::vector<Recorder>& recorders)
    {
        SaveCombinedRecorders(m_file, "combined", recorders);
        return ReadSavedSeries(m_file);
    }

    /// Expects the list to be refused with this message, logged and thrown, and the file that is there to be left
    /// alone.
    void ExpectRefused(const std::vector<Recorder>& recorders, const std::string& message)
    {
        WriteBytes(m_file, "as it was");
        const LogCapture log("ravelcore", log4cplus::INFO_LOG_LEVEL);
        ExpectException(Thrown([&] { SaveCombinedRecorders(m_file, "combined", recorders); }), message,
                        "SaveCombinedRecorders", "recorder.cpp");
        EXPECT_THAT(log.Messages(log4cplus::ERROR_LOG_LEVEL), ElementsAre(message));
        EXPECT_THAT(log.Events(), SizeIs(1));
        EXPECT_EQ(ReadBytes(m_file), "as it was");
    }

    TemporaryDirectory m_directory;
    const std::string m_file = m_directory / "combined.fits";
};

TEST_F(SaveCombinedRecordersTest, RecordersStandSideBySideInTheOrderOfTheListForAsManyRowsAsAllHave)
{
    const SavedSeries saved =
        SaveAndRead({MakeRecorder("a", 2, Times(10), 0.0F), MakeRecorder("b", 3, Times(5), 1000.0F)});
    EXPECT_EQ(saved.rows, 5);
    EXPECT_EQ(saved.cols, 5);
    EXPECT_THAT(saved.columns, ElementsAre("Timestamps", "combined"));
    EXPECT_EQ(saved.timestamps, Times(5));
    ASSERT_THAT(saved.values, SizeIs(25));
    for (std::size_t k = 0; k < 5; ++k) {
        const float first = 10.0F * static_cast<float>(k);
        const std::vector<float> row(saved.values.begin() + static_cast<std::ptrdiff_t>(5 * k),
                                     saved.values.begin() + static_cast<std::ptrdiff_t>(5 * k + 5));
        EXPECT_THAT(row, ElementsAre(first, first + 1.0F, 1000.0F + first, 1001.0F + first, 1002.0F + first))
            << "row " << k;
    }
}

TEST_F(SaveCombinedRecordersTest, ShortestRecorderLimitsTheRowsWhereverItStands)
{
    for (std::size_t shortest = 0; shortest < 3; ++shortest) {
        std::vector<Recorder> recorders;
        for (std::size_t i = 0; i < 3; ++i) {
            recorders.push_back(MakeRecorder("r", 1, Times(i == shortest ? 2 : 7), 100.0F * static_cast<float>(i)));
        }
        EXPECT_THAT(SaveAndRead(recorders).values, ElementsAre(0.0F, 100.0F, 200.0F, 10.0F, 110.0F, 210.0F))
            << "with recorder " << shortest << " the shortest";
    }
}

TEST_F(SaveCombinedRecordersTest, OneRecorderGivesTheSameFileAsItsOwnSave)
{
    const Recorder recorder = MakeRecorder("combined", 4, {0.5, NOT_A_NUMBER, 0.25}, 0.0F);
    SaveCombinedRecorders(m_file, "combined", {recorder});
    recorder.Save(m_directory / "own.fits");
    EXPECT_EQ(ReadBytes(m_file), ReadBytes(m_directory / "own.fits"));
}

TEST_F(SaveCombinedRecordersTest, OldSamplesBehindTheIndexAreLeftOut)
{
    Recorder wrapped("wrapped");
    wrapped.Init(3, 1);
    wrapped.Start(true, 0);
    for (int call = 1; call <= 5; ++call) {
        const auto value = static_cast<float>(call);
        wrapped.AddSample(call, &value);
    }
    const SavedSeries saved = SaveAndRead({wrapped, wrapped});
    EXPECT_THAT(saved.values, ElementsAre(4.0F, 4.0F, 5.0F, 5.0F));
    EXPECT_THAT(saved.timestamps, ElementsAre(4.0, 5.0));
}

TEST_F(SaveCombinedRecordersTest, ListsEveryRecorderThenSaves)
{
    const std::vector<Recorder> recorders{MakeRecorder("a", 2, Times(10), 0.0F), MakeRecorder("b", 3, Times(5), 0.0F)};
    const LogCapture log("ravelcore", log4cplus::DEBUG_LOG_LEVEL);
    SaveCombinedRecorders(m_file, "combined", recorders);
    EXPECT_THAT(log.Messages(log4cplus::DEBUG_LOG_LEVEL),
                ElementsAre("Recorder a, index = 9, sample_size = 2, num_samples = 10",
                            "Recorder b, index = 4, sample_size = 3, num_samples = 10",
                            "Saved combined [5 x 5] to file: " + m_file));
    EXPECT_THAT(log.Events(), SizeIs(3));
}

TEST_F(SaveCombinedRecordersTest, BeginsWithItsTraceLine)
{
    const std::vector<Recorder> recorders{Recorder("a")};
    const LogCapture log("ravelcore");
    SaveCombinedRecorders(m_file, "combined", recorders);
    EXPECT_THAT(log.Messages(log4cplus::TRACE_LOG_LEVEL).front(),
                MatchesRegex("ravel/ravelcore/src/recorder\\.cpp SaveCombinedRecorders [0-9]+"));
}

TEST_F(SaveCombinedRecordersTest, RecorderThatWasNotStartedIsNamedByItsPlaceAndNothingIsWritten)
{
    const std::vector<Recorder> recorders{MakeRecorder("a", 2, Times(3), 0.0F), MakeRecorder("b", 3, Times(3), 0.0F),
                                          MakeRecorder("c", 1, {}, 0.0F), MakeRecorder("d", 1, Times(3), 0.0F)};
    WriteBytes(m_file, "as it was");
    const LogCapture log("ravelcore", log4cplus::DEBUG_LOG_LEVEL);
    SaveCombinedRecorders(m_file, "combined", recorders);
    EXPECT_THAT(log.Messages(log4cplus::DEBUG_LOG_LEVEL),
                ElementsAre("Recorder a, index = 2, sample_size = 2, num_samples = 10",
                            "Recorder b, index = 2, sample_size = 3, num_samples = 10",
                            "Recorder c, index = -1, sample_size = 1, num_samples = 10"))
        << "the recorders behind it are not listed";
    EXPECT_THAT(log.Messages(log4cplus::WARN_LOG_LEVEL), ElementsAre("Recorder 2 was not started."));
    EXPECT_EQ(log.Events().back().level, log4cplus::WARN_LOG_LEVEL);
    EXPECT_EQ(ReadBytes(m_file), "as it was");
}

TEST_F(SaveCombinedRecordersTest, FirstRecorderThatWasNotStartedIsNumberZero)
{
    const LogCapture log("ravelcore", log4cplus::WARN_LOG_LEVEL);
    SaveCombinedRecorders(m_file, "combined", {Recorder("a"), Recorder("b")});
    EXPECT_THAT(log.Messages(log4cplus::WARN_LOG_LEVEL), ElementsAre("Recorder 0 was not started."));
    EXPECT_THAT(m_directory.List(), IsEmpty());
}

TEST_F(SaveCombinedRecordersTest, RecorderThatWasNotStartedIsFoundBeforeTimeStampsAreCompared)
{
    const LogCapture log("ravelcore", log4cplus::WARN_LOG_LEVEL);
    SaveCombinedRecorders(m_file, "combined",
                          {MakeRecorder("a", 1, {1.0}, 0.0F), MakeRecorder("b", 1, {2.0}, 0.0F), Recorder("c")});
    EXPECT_THAT(log.Messages(log4cplus::WARN_LOG_LEVEL), ElementsAre("Recorder 2 was not started."));
    EXPECT_THAT(log.Events(), SizeIs(1));
}

TEST_F(SaveCombinedRecordersTest, DifferentTimeStampsAreRefusedWithBothAndTheirPlace)
{
    ExpectRefused({MakeRecorder("a", 2, {0.5, 0.75, 1.0, 1.5, 2.0}, 0.0F),
                   MakeRecorder("b", 3, {0.5, 0.75, 1.0, 1.25, 2.0}, 0.0F)},
                  "Recorders 0 and 1 have different SYNC timestamp for sample 3: 1.500000 != 1.250000");
}

TEST_F(SaveCombinedRecordersTest, EveryRecorderIsComparedWithTheFirst)
{
    ExpectRefused({MakeRecorder("a", 1, {1e6, 2e6}, 0.0F), MakeRecorder("b", 1, {1e6, 2e6}, 0.0F),
                   MakeRecorder("c", 1, {1e6, 2e6 + 0.5}, 0.0F)},
                  "Recorders 0 and 2 have different SYNC timestamp for sample 1: 2000000.000000 != 2000000.500000");
}

TEST_F(SaveCombinedRecordersTest, FirstRowThatDiffersIsReportedAndInItTheFirstRecorder)
{
    ExpectRefused({MakeRecorder("a", 1, {1.0, 2.0, 3.0}, 0.0F), MakeRecorder("b", 1, {1.0, 2.0, 9.0}, 0.0F),
                   MakeRecorder("c", 1, {1.0, 8.0, 9.0}, 0.0F), MakeRecorder("d", 1, {1.0, 7.0, 9.0}, 0.0F)},
                  "Recorders 0 and 2 have different SYNC timestamp for sample 1: 2.000000 != 8.000000");
}

TEST_F(SaveCombinedRecordersTest, DifferenceBelowWhatIsPrintedIsADifference)
{
    ExpectRefused({MakeRecorder("a", 1, {1.0}, 0.0F), MakeRecorder("b", 1, {std::nextafter(1.0, 2.0)}, 0.0F)},
                  "Recorders 0 and 1 have different SYNC timestamp for sample 0: 1.000000 != 1.000000");
}

TEST_F(SaveCombinedRecordersTest, NanOnEitherSideIsADifference)
{
    ExpectRefused({MakeRecorder("a", 1, {NOT_A_NUMBER}, 0.0F), MakeRecorder("b", 1, {1.0}, 0.0F)},
                  "Recorders 0 and 1 have different SYNC timestamp for sample 0: nan != 1.000000");
    ExpectRefused({MakeRecorder("a", 1, {1.0}, 0.0F), MakeRecorder("b", 1, {NOT_A_NUMBER}, 0.0F)},
                  "Recorders 0 and 1 have different SYNC timestamp for sample 0: 1.000000 != nan");
    ExpectRefused({MakeRecorder("a", 1, {NOT_A_NUMBER}, 0.0F), MakeRecorder("b", 1, {NOT_A_NUMBER}, 0.0F)},
                  "Recorders 0 and 1 have different SYNC timestamp for sample 0: nan != nan");
}

TEST_F(SaveCombinedRecordersTest, ZerosOfBothSignsAreTheSameTimeAndTheFirstIsStored)
{
    const SavedSeries saved = SaveAndRead({MakeRecorder("a", 1, {-0.0}, 0.0F), MakeRecorder("b", 1, {0.0}, 5.0F)});
    EXPECT_THAT(saved.values, ElementsAre(0.0F, 5.0F));
    EXPECT_TRUE(std::signbit(saved.timestamps.at(0)));
}

TEST_F(SaveCombinedRecordersTest, RowsThatAreNotSavedAreNotCompared)
{
    const SavedSeries saved =
        SaveAndRead({MakeRecorder("a", 1, {1.0, 2.0, 3.0}, 0.0F), MakeRecorder("b", 1, {1.0, 2.0}, 0.0F),
                     MakeRecorder("c", 1, {1.0, 2.0, 9.0}, 0.0F)});
    EXPECT_THAT(saved.timestamps, ElementsAre(1.0, 2.0));
}

TEST_F(SaveCombinedRecordersTest, EmptyListEndsInALengthErrorAndTouchesNoFile)
{
    WriteBytes(m_file, "as it was");
    const LogCapture log("ravelcore", log4cplus::DEBUG_LOG_LEVEL);
    EXPECT_THROW(SaveCombinedRecorders(m_file, "combined", {}), std::length_error);
    EXPECT_THAT(log.Events(), IsEmpty());
    EXPECT_EQ(ReadBytes(m_file), "as it was");
}

TEST_F(SaveCombinedRecordersTest, ReplacesTheFileThatIsThere)
{
    WriteBytes(m_file, "old");
    EXPECT_THAT(SaveAndRead({MakeRecorder("a", 1, Times(1), 0.0F)}).values, ElementsAre(0.0F));
}

TEST_F(SaveCombinedRecordersTest, EmptyFileNameIsSkipped)
{
    const std::vector<Recorder> recorders{MakeRecorder("a", 1, Times(1), 0.0F)};
    const LogCapture log("ravelcore", log4cplus::DEBUG_LOG_LEVEL);
    SaveCombinedRecorders("", "combined", recorders);
    EXPECT_EQ(log.Messages(log4cplus::DEBUG_LOG_LEVEL).back(), "Skipped saving empty filename for combined");
}

TEST_F(SaveCombinedRecordersTest, ErrorsOfTheFileLayerReachTheCaller)
{
    const std::vector<Recorder> recorders{MakeRecorder("a", 1, Times(1), 0.0F)};
    const brisk::Exception seen =
        Thrown([&] { SaveCombinedRecorders(m_directory / "no such directory/file.fits", "combined", recorders); });
    EXPECT_EQ(seen.GetFunctionName(), "SaveMatrixWithTimestamps");
    EXPECT_THAT(seen.GetMessage(), HasSubstr("no such directory"));
}

}  // namespace
}  // namespace lumo::ravelcore
