#include "support/fitsBytes.hpp"
#include "support/logCapture.hpp"
#include "support/logHook.hpp"
#include "support/savedSeries.hpp"
#include "support/story.hpp"
#include "support/temporaryDirectory.hpp"
#include "support/thrown.hpp"

#include <lumo/ravelcore/recorder.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace lumo::ravelcore {
namespace {

using test::ExpectException;
using test::LogCapture;
using test::LogHook;
using test::ReadBytes;
using test::ReadSavedSeries;
using test::SavedSeries;
using test::Story;
using test::TemporaryDirectory;
using test::Thrown;
using test::WriteBytes;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class RecorderSaveTest : public ::testing::Test
{
protected:
    void Start(int num_samples, int sample_size, bool loopback = false, int decimation = 0)
    {
        m_sut.Init(num_samples, sample_size);
        m_sut.Start(loopback, decimation);
    }

    /// Adds calls number `from` to `to` with time stamp call / 8; element i of a sample is 10 call + i.
    void Add(int from, int to)
    {
        for (int call = from; call <= to; ++call) {
            std::vector<float> sample;
            for (int i = 0; i < m_sut.GetSampleSize(); ++i) {
                sample.push_back(static_cast<float>(10 * call + i));
            }
            m_sut.AddSample(call / 8.0, sample.data());
        }
    }

    SavedSeries SaveAndRead()
    {
        m_sut.Save(m_file);
        return ReadSavedSeries(m_file);
    }

    TemporaryDirectory m_directory;
    const std::string m_file = m_directory / "recording.fits";
    Recorder m_sut{"modes"};
};

TEST_F(RecorderSaveTest, WritesTheRecordedSlotsWithTheirTimeStampsUnderTheRecordersName)
{
    Start(5, 2);
    Add(1, 3);
    const SavedSeries saved = SaveAndRead();
    EXPECT_EQ(saved.rows, 3);
    EXPECT_EQ(saved.cols, 2);
    EXPECT_THAT(saved.values, ElementsAre(10.0F, 11.0F, 20.0F, 21.0F, 30.0F, 31.0F));
    EXPECT_THAT(saved.timestamps, ElementsAre(0.125, 0.25, 0.375));
    EXPECT_THAT(saved.columns, ElementsAre("Timestamps", "modes"));
}

TEST_F(RecorderSaveTest, SaysWhatItSaves)
{
    Start(5, 2);
    Add(1, 3);
    const LogCapture log("ravelcore");
    m_sut.Save(m_file);
    EXPECT_THAT(Story(log), ElementsAre("TRACE Save", "DEBUG Saving modes recorded samples from 0 to 2",
                                        "TRACE SaveMatrixWithTimestamps", "TRACE CheckForExitingFile",
                                        "TRACE SaveMatrixToFitsBinTable", "TRACE ConvertTypeToFitsType",
                                        "DEBUG Saved modes [3 x 2] to file: " + m_file));
}

TEST_F(RecorderSaveTest, FullRecorderIsSavedWhole)
{
    Start(3, 1);
    Add(1, 4);
    const SavedSeries saved = SaveAndRead();
    EXPECT_THAT(saved.values, ElementsAre(10.0F, 20.0F, 30.0F));
    EXPECT_THAT(saved.timestamps, ElementsAre(0.125, 0.25, 0.375));
}

TEST_F(RecorderSaveTest, AfterAWrapOnlyTheNewestSamplesAreSaved)
{
    Start(3, 1, true);
    Add(1, 4);
    EXPECT_THAT(SaveAndRead().values, ElementsAre(40.0F));
    Add(5, 5);
    EXPECT_THAT(SaveAndRead().values, ElementsAre(40.0F, 50.0F));
}

TEST_F(RecorderSaveTest, DecimatedRecordingKeepsTheTimeStampsOfTheCallsThatWereRecorded)
{
    Start(5, 1, false, 3);
    Add(1, 11);
    const SavedSeries saved = SaveAndRead();
    EXPECT_THAT(saved.values, ElementsAre(30.0F, 60.0F, 90.0F));
    EXPECT_THAT(saved.timestamps, ElementsAre(0.375, 0.75, 1.125));
}

TEST_F(RecorderSaveTest, RestartedRecorderSavesNothingOfTheRunBefore)
{
    Start(3, 1);
    Add(1, 3);
    m_sut.Start(false, 0);
    Add(4, 4);
    EXPECT_THAT(SaveAndRead().values, ElementsAre(40.0F));
}

TEST_F(RecorderSaveTest, WithoutSamplesItSaysSoAndTouchesNoFile)
{
    WriteBytes(m_file, "as it was");
    const LogCapture log("ravelcore", log4cplus::DEBUG_LOG_LEVEL);
    m_sut.Save(m_file);
    EXPECT_THAT(log.Messages(log4cplus::DEBUG_LOG_LEVEL), ElementsAre("Recorder modes has no samples to save."));
    EXPECT_EQ(ReadBytes(m_file), "as it was");
}

TEST_F(RecorderSaveTest, NegativeDecimationLeavesNothingToSave)
{
    Start(3, 1, false, -1);
    Add(1, 10);
    const LogCapture log("ravelcore", log4cplus::DEBUG_LOG_LEVEL);
    m_sut.Save(m_file);
    EXPECT_THAT(log.Messages(log4cplus::DEBUG_LOG_LEVEL), ElementsAre("Recorder modes has no samples to save."));
    EXPECT_THAT(m_directory.List(), IsEmpty());
}

TEST_F(RecorderSaveTest, BetweenAWrapAndTheNextSampleThereIsNothingToSave)
{
    Start(2, 1, true, 2);
    Add(1, 5);
    m_sut.Save(m_file);
    EXPECT_THAT(m_directory.List(), IsEmpty());
}

TEST_F(RecorderSaveTest, ReplacesTheFileThatIsThere)
{
    WriteBytes(m_file, "old");
    Start(3, 1);
    Add(1, 1);
    const LogCapture log("ravelcore", log4cplus::DEBUG_LOG_LEVEL);
    EXPECT_THAT(SaveAndRead().values, ElementsAre(10.0F));
    EXPECT_THAT(log.Messages(log4cplus::DEBUG_LOG_LEVEL),
                ElementsAre("Saving modes recorded samples from 0 to 0", "Overwriting file <" + m_file + ">.",
                            "Saved modes [1 x 1] to file: " + m_file));
}

TEST_F(RecorderSaveTest, EmptyFileNameIsSkipped)
{
    Start(3, 1);
    Add(1, 2);
    const LogCapture log("ravelcore", log4cplus::DEBUG_LOG_LEVEL);
    m_sut.Save("");
    EXPECT_THAT(log.Messages(log4cplus::DEBUG_LOG_LEVEL),
                ElementsAre("Saving modes recorded samples from 0 to 1", "Skipped saving empty filename for modes"));
}

TEST_F(RecorderSaveTest, ErrorsOfTheFileLayerReachTheCaller)
{
    Start(3, 1);
    Add(1, 2);
    const brisk::Exception seen = Thrown([&] { m_sut.Save(m_directory / "no such directory/recording.fits"); });
    EXPECT_EQ(seen.GetFunctionName(), "SaveMatrixWithTimestamps");
    EXPECT_EQ(seen.GetFileName(), "utils.cpp");
    EXPECT_EQ(m_sut.GetIndex(), 1);
    EXPECT_TRUE(m_sut.IsStarted());
}

TEST_F(RecorderSaveTest, SavingARecordingRecorderLeavesItRecording)
{
    Start(3, 1);
    Add(1, 1);
    SaveAndRead();
    EXPECT_TRUE(m_sut.IsStarted());
    Add(2, 2);
    EXPECT_THAT(SaveAndRead().values, ElementsAre(10.0F, 20.0F));
}

TEST_F(RecorderSaveTest, ASampleThatComesWhileTheSavingIsAnnouncedIsSavedToo)
{
    Start(3, 1);
    Add(1, 2);
    {
        const LogHook hook("ravelcore", log4cplus::DEBUG_LOG_LEVEL, [this](const std::string& message) {
            if (message == "Saving modes recorded samples from 0 to 1") {
                Add(3, 3);
            }
        });
        m_sut.Save(m_file);
    }
    const SavedSeries saved = ReadSavedSeries(m_file);
    EXPECT_THAT(saved.values, ElementsAre(10.0F, 20.0F, 30.0F));
    EXPECT_THAT(saved.timestamps, ElementsAre(0.125, 0.25, 0.375));
}

TEST_F(RecorderSaveTest, WhenTheIndexIsResetWhileTheSavingIsAnnouncedTheSizeIsInvalid)
{
    WriteBytes(m_file, "as it was");
    Start(3, 1);
    Add(1, 2);
    brisk::Exception seen("");
    {
        const LogHook hook("ravelcore", log4cplus::DEBUG_LOG_LEVEL, [this](const std::string& message) {
            if (message == "Saving modes recorded samples from 0 to 1") {
                m_sut.ResetIndex();
            }
        });
        seen = Thrown([this] { m_sut.Save(m_file); });
    }
    ExpectException(seen, "Matrix modes has invalid size [0,1] or no elements.", "SaveMatrixWithTimestamps",
                    "utils.cpp");
    EXPECT_EQ(ReadBytes(m_file), "as it was");
}

}  // namespace
}  // namespace lumo::ravelcore
