#include "support/fitsBytes.hpp"
#include "support/logCapture.hpp"
#include "support/story.hpp"
#include "support/temporaryDirectory.hpp"

#include <brisk/exception.hpp>
#include <brisk/helper.hpp>
#include <lumo/ravelcore/utils.hpp>

#include <CCfits/CCfits>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <new>
#include <string>
#include <vector>

/// The front end: sizes, empty names, overwriting, look-up, expectations, log lines, conversion of exceptions.
namespace lumo::ravelcore {
namespace {

using log4cplus::DEBUG_LOG_LEVEL;
using log4cplus::INFO_LOG_LEVEL;
using log4cplus::TRACE_LOG_LEVEL;
using test::LogEvent;
using test::Story;
using test::TemporaryDirectory;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

const std::vector<float> SIX = {1.0F, 2.0F, 3.0F, 4.0F, 5.0F, 6.0F};

/// The brisk::Exception that `action` throws; a test failure and an empty one if it throws none or another.
brisk::Exception Caught(const std::function<void()>& action)
{
    try {
        action();
        ADD_FAILURE() << "nothing was thrown";
    } catch (const brisk::Exception& exception) {
        return exception;
    } catch (const CCfits::FitsException& exception) {
        ADD_FAILURE() << "an exception of the FITS library: " << exception.message();
    } catch (const std::exception& exception) {
        ADD_FAILURE() << "another exception: " << exception.what();
    }
    return brisk::Exception("");
}

std::string Message(const std::function<void()>& action)
{
    return Caught(action).GetMessage();
}

class UtilsTest : public ::testing::Test
{
protected:
    void SaveOld(const std::string& filename) { SaveMatrix(filename, "old", 2, 2, std::vector<float>{9, 9, 9, 9}); }

    TemporaryDirectory m_dir;
    std::string m_file = m_dir / "matrix.fits";
    test::LogCapture m_log{"ravelcore"};
};

// ---- saving

TEST_F(UtilsTest, SavedMatrixIsLoadedAgain)
{
    SaveMatrix(m_file, "M", 3, 2, SIX);
    int rows = -1;
    int cols = -1;
    std::vector<float> values = {99.0F};
    LoadMatrix(m_file, "M", rows, cols, values);
    EXPECT_EQ(rows, 3);
    EXPECT_EQ(cols, 2);
    EXPECT_EQ(values, SIX);
}

TEST_F(UtilsTest, SavingTellsItsStoryInOrder)
{
    SaveMatrix(m_file, "M", 3, 2, SIX);
    EXPECT_THAT(Story(m_log),
                ElementsAre("TRACE SaveMatrix", "TRACE CheckForExitingFile", "TRACE SaveMatrixToFitsBinTable",
                            "TRACE ConvertTypeToFitsType", "DEBUG Saved M [3 x 2] to file: " + m_file));
}

TEST_F(UtilsTest, SavingOverAnOldFileSaysSoBeforeItWrites)
{
    SaveOld(m_file);
    m_log.Clear();
    SaveMatrix(m_file, "M", 3, 2, SIX);
    EXPECT_THAT(Story(m_log), ElementsAre("TRACE SaveMatrix", "TRACE CheckForExitingFile",
                                          "DEBUG Overwriting file <" + m_file + ">.", "TRACE SaveMatrixToFitsBinTable",
                                          "TRACE ConvertTypeToFitsType", "DEBUG Saved M [3 x 2] to file: " + m_file));
}

TEST_F(UtilsTest, SavingWithTimestampsTellsItsStoryInOrder)
{
    SaveMatrixWithTimestamps(m_file, "M", 3, 2, SIX, {1, 2, 3});
    EXPECT_THAT(Story(m_log), ElementsAre("TRACE SaveMatrixWithTimestamps", "TRACE CheckForExitingFile",
                                          "TRACE SaveMatrixToFitsBinTable", "TRACE ConvertTypeToFitsType",
                                          "DEBUG Saved M [3 x 2] to file: " + m_file));
}

TEST_F(UtilsTest, NothingIsLoggedAtInfoOrAbove)
{
    m_log.SetLevel(INFO_LOG_LEVEL);
    SaveMatrix(m_file, "M", 3, 2, SIX);
    SaveMatrixWithTimestamps(m_file, "M", 3, 2, SIX, {1, 2, 3});
    int rows = -1;
    int cols = -1;
    std::vector<float> values;
    LoadMatrix(m_file, "M", rows, cols, values);
    SaveMatrix("", "M", 3, 2, SIX);
    LoadMatrix("", "M", rows, cols, values);
    EXPECT_THAT(m_log.Events(), IsEmpty());
}

TEST_F(UtilsTest, DebugLinesCarryTheSignatureOfTheirFunction)
{
    SaveMatrix(m_file, "M", 3, 2, SIX);
    const std::vector<LogEvent> events = m_log.Events(DEBUG_LOG_LEVEL);
    ASSERT_EQ(events.size(), 1U);
    EXPECT_THAT(events[0].function, ::testing::StartsWith("void lumo::ravelcore::SaveMatrix("));
    EXPECT_EQ(events[0].file, "ravel/ravelcore/src/utils.cpp");
}

TEST_F(UtilsTest, EmptyFilenameIsSkippedQuietlyEvenWithInvalidSizes)
{
    SaveMatrix("", "M", 0, -3, std::vector<float>());
    SaveMatrixWithTimestamps("", "N", 7, 7, std::vector<float>(), {});
    EXPECT_THAT(Story(m_log),
                ElementsAre("TRACE SaveMatrix", "DEBUG Skipped saving empty filename for M",
                            "TRACE SaveMatrixWithTimestamps", "DEBUG Skipped saving empty filename for N"));
}

TEST_F(UtilsTest, ZeroSizesAndNoElementsAreInvalidSizes)
{
    const auto save = [&](int rows, int cols, const std::vector<float>& values) {
        return Message([&] { SaveMatrix(m_file, "M1", rows, cols, values); });
    };
    EXPECT_EQ(save(0, 3, SIX), "Matrix M1 has invalid size [0,3] or no elements.");
    EXPECT_EQ(save(2, 0, SIX), "Matrix M1 has invalid size [2,0] or no elements.");
    EXPECT_EQ(save(2, 3, {}), "Matrix M1 has invalid size [2,3] or no elements.");
    EXPECT_EQ(save(-1, 3, {}), "Matrix M1 has invalid size [-1,3] or no elements.");
    EXPECT_EQ(Message([&] { SaveMatrixWithTimestamps(m_file, "M1", 0, 3, SIX, {}); }),
              "Matrix M1 has invalid size [0,3] or no elements.");
    EXPECT_THAT(m_dir.List(), IsEmpty());
}

TEST_F(UtilsTest, SevenValuesForTwoByThreeStoreSix)
{
    std::vector<float> seven = SIX;
    seven.push_back(7.0F);
    SaveMatrix(m_file, "M", 2, 3, seven);
    int rows = 2;
    int cols = 3;
    std::vector<float> values;
    LoadMatrix(m_file, "M", rows, cols, values);
    EXPECT_EQ(values, SIX);
}

TEST_F(UtilsTest, FewerValuesThanElementsAreASizeMismatch)
{
    const std::vector<float> five(5, 0.0F);
    const std::string expected = "Size mismatch: values size is 5 but file should contain 6 elements!";
    EXPECT_EQ(Message([&] { SaveMatrix(m_file, "M", 2, 3, five); }), expected);
    EXPECT_EQ(Message([&] { SaveMatrixWithTimestamps(m_file, "M", 2, 3, five, {1, 2}); }), expected);
    EXPECT_THAT(m_dir.List(), IsEmpty());
}

TEST_F(UtilsTest, OneNegativeSizeIsASizeMismatchWithTheNegativeProduct)
{
    EXPECT_EQ(Message([&] { SaveMatrix(m_file, "M", -1, 3, SIX); }),
              "Size mismatch: values size is 6 but file should contain -3 elements!");
    EXPECT_EQ(Message([&] { SaveMatrix(m_file, "M", 2, -3, SIX); }),
              "Size mismatch: values size is 6 but file should contain -6 elements!");
}

TEST_F(UtilsTest, TheProductOfTheMessageWrapsAroundAt32Bits)
{
    EXPECT_EQ(Message([&] { SaveMatrix(m_file, "M", 65536, 32768, SIX); }),
              "Size mismatch: values size is 6 but file should contain -2147483648 elements!");
    EXPECT_EQ(Message([&] { SaveMatrix(m_file, "M", 65537, 65537, SIX); }),
              "Size mismatch: values size is 6 but file should contain 131073 elements!");
    EXPECT_EQ(Message([&] { SaveMatrix(m_file, "M", INT32_MIN, INT32_MIN + 1, SIX); }),
              "Size mismatch: values size is 6 but file should contain -2147483648 elements!");
}

TEST_F(UtilsTest, SizesThatOnlyTheWrappedProductLetsPassTouchNoFile)
{
    SaveOld(m_file);
    const std::string old = test::ReadBytes(m_file);
    EXPECT_EQ(Message([&] { SaveMatrix(m_file, "M", 65536, 65536, SIX); }),
              "Size mismatch: values size is 6 but file should contain 4294967296 elements!");
    EXPECT_EQ(test::ReadBytes(m_file), old);
}

TEST_F(UtilsTest, TwoNegativeSizesAreAnInvalidSizeAlthoughThereAreValuesForTheirProduct)
{
    SaveOld(m_file);
    const std::string old = test::ReadBytes(m_file);
    EXPECT_EQ(Message([&] { SaveMatrix(m_file, "M", -2, -3, SIX); }),
              "Matrix M has invalid size [-2,-3] or no elements.");
    EXPECT_EQ(Message([&] {
                  SaveMatrixWithTimestamps(m_file, "M", -2, -3, SIX, {1, 2});
              }),
              "Size mismatch: timestamps size is 2 but file should contain -2 rows.");
    EXPECT_EQ(test::ReadBytes(m_file), old);
}

TEST_F(UtilsTest, NinetyNineTimestampsForAHundredRowsAreASizeMismatch)
{
    const std::vector<float> values(100, 1.0F);
    EXPECT_EQ(Message([&] { SaveMatrixWithTimestamps(m_file, "M", 100, 1, values, std::vector<double>(99)); }),
              "Size mismatch: timestamps size is 99 but file should contain 100 rows.");
    EXPECT_EQ(Message([&] { SaveMatrixWithTimestamps(m_file, "M", 100, 1, values, {}); }),
              "Size mismatch: timestamps size is 0 but file should contain 100 rows.");
    EXPECT_THAT(m_dir.List(), IsEmpty());
}

TEST_F(UtilsTest, SurplusTimestampsAreNotStored)
{
    std::vector<double> timestamps(101);
    for (std::size_t index = 0; index < timestamps.size(); ++index) {
        timestamps[index] = 0.002 * static_cast<double>(index);
    }
    SaveMatrixWithTimestamps(m_file, "M", 100, 1, std::vector<float>(100, 1.0F), timestamps);
    int rows = 0;
    int cols = 0;
    std::vector<float> values;
    std::vector<double> loaded;
    LoadMatrixFromFitsBinTable(m_file, rows, cols, values, loaded);
    timestamps.pop_back();
    EXPECT_EQ(loaded, timestamps);
}

TEST_F(UtilsTest, ChecksComeInTheirOrder)
{
    // Each call has every later flaw too.
    SaveOld(m_file);
    const std::string bad_name(80, 'n');
    EXPECT_EQ(Message([&] { SaveMatrixWithTimestamps(m_file, bad_name, 0, 3, SIX, {}, false); }),
              "Matrix " + bad_name + " has invalid size [0,3] or no elements.");
    EXPECT_EQ(Message([&] { SaveMatrixWithTimestamps(m_file, bad_name, 3, 3, SIX, {}, false); }),
              "Size mismatch: values size is 6 but file should contain 9 elements!");
    EXPECT_EQ(Message([&] { SaveMatrixWithTimestamps(m_file, bad_name, 2, 3, SIX, {1}, false); }),
              "Size mismatch: timestamps size is 1 but file should contain 2 rows.");
    EXPECT_EQ(
        Message([&] {
            SaveMatrixWithTimestamps(m_file, bad_name, 2, 3, SIX, {1, 2}, false);
        }),
        "Matrix name <" + bad_name + "> cannot name a column: it takes 80 characters where a file has room for 68.");
    EXPECT_EQ(Message([&] {
                  SaveMatrixWithTimestamps(m_file, "M", 2, 3, SIX, {1, 2}, false);
              }),
              "File " + m_file + " exists already.");
}

TEST_F(UtilsTest, FailedChecksLeaveTheOldFileAsItIs)
{
    SaveOld(m_file);
    const std::string old = test::ReadBytes(m_file);
    Caught([&] { SaveMatrix(m_file, "M", 0, 3, SIX); });
    Caught([&] { SaveMatrix(m_file, "M", 4, 3, SIX); });
    Caught([&] { SaveMatrix(m_file, std::string(69, 'n'), 2, 3, SIX); });
    Caught([&] { SaveMatrix(m_file, "tab\tin name", 2, 3, SIX); });
    Caught([&] { SaveMatrix(m_file, "M", 2, 3, SIX, true, static_cast<FileFormat>(1)); });
    Caught([&] { SaveMatrix(m_file, "M", 2, 3, SIX, false); });
    Caught([&] { SaveMatrixWithTimestamps(m_file, "M", 2, 3, SIX, {1}); });
    EXPECT_EQ(test::ReadBytes(m_file), old);
    EXPECT_THAT(m_dir.List(), ElementsAre("matrix.fits"));
}

TEST_F(UtilsTest, WithoutOverwriteAnExistingFileIsRefused)
{
    SaveOld(m_file);
    EXPECT_EQ(Message([&] { SaveMatrix(m_file, "M", 3, 2, SIX, false); }), "File " + m_file + " exists already.");
}

TEST_F(UtilsTest, WithoutOverwriteANewFileIsWritten)
{
    SaveMatrix(m_file, "M", 3, 2, SIX, false);
    EXPECT_THAT(m_dir.List(), ElementsAre("matrix.fits"));
}

TEST_F(UtilsTest, NothingOfAnOverwrittenFileRemains)
{
    SaveMatrix(m_file, "old", 600, 9, std::vector<float>(5400, 9.0F));
    SaveMatrix(m_file, "M", 3, 2, SIX);
    const std::string over = test::ReadBytes(m_file);
    SaveMatrix(m_dir / "other.fits", "M", 3, 2, SIX);
    EXPECT_EQ(over, test::ReadBytes(m_dir / "other.fits"));
}

TEST_F(UtilsTest, ErrorsOfTheFitsLibraryWhileWritingBecomeBriskExceptionsWithItsText)
{
    const std::string nowhere = m_dir / "no such directory/m.fits";
    std::string text;
    try {
        SaveMatrixToFitsBinTable(nowhere, "M", 3, 2, {}, SIX);
    } catch (const CCfits::FitsException& exception) {
        text = exception.message();
    }
    EXPECT_EQ(text, "FITS Error: Cannot open file " + nowhere);
    EXPECT_EQ(Message([&] { SaveMatrix(nowhere, "M", 3, 2, SIX); }), text);
    EXPECT_EQ(Message([&] { SaveMatrixWithTimestamps(nowhere, "M", 3, 2, SIX, {1, 2, 3}); }), text);
}

TEST_F(UtilsTest, AFailedSaveIsNotLoggedAsSaved)
{
    Caught([&] { SaveMatrix(m_dir / "nowhere/m.fits", "M", 3, 2, SIX); });
    EXPECT_THAT(m_log.Messages(DEBUG_LOG_LEVEL), IsEmpty());
}

TEST_F(UtilsTest, ExceptionsCarryFileLineAndTheFunctionThatWasCalled)
{
    const auto expect = [](const brisk::Exception& exception, const std::string& function) {
        EXPECT_EQ(exception.GetFileName(), "utils.cpp");
        EXPECT_EQ(exception.GetFunctionName(), function);
        EXPECT_GT(exception.GetLineNumber(), 0);
        EXPECT_EQ(exception.GetClassName(), "brisk::Exception");
        EXPECT_EQ(exception.GetExceptionStack(), std::list<std::string>{"brisk::Exception"});
    };
    int rows = -1;
    int cols = -1;
    std::vector<float> values;
    SaveOld(m_file);
    expect(Caught([&] { SaveMatrix(m_file, "M", 0, 2, SIX); }), "SaveMatrix");
    expect(Caught([&] { SaveMatrix(m_file, "M", 9, 2, SIX); }), "SaveMatrix");
    expect(Caught([&] { SaveMatrix(m_dir / "nowhere/m", "M", 3, 2, SIX); }), "SaveMatrix");
    expect(Caught([&] { SaveMatrixWithTimestamps(m_file, "M", 3, 2, SIX, {1}); }), "SaveMatrixWithTimestamps");
    expect(Caught([&] { CheckForExitingFile(m_file, false); }), "CheckForExitingFile");
    expect(Caught([&] { SaveMatrix(m_file, "M", 3, 2, SIX, false); }), "CheckForExitingFile");
    expect(Caught([&] { SaveMatrixWithTimestamps(m_file, "M", 3, 2, SIX, {1, 2, 3}, false); }), "CheckForExitingFile");
    expect(Caught([&] {
               SaveMatrixWithTimestamps(m_dir / "nowhere/m", "M", 3, 2, SIX, {1, 2, 3});
           }),
           "SaveMatrixWithTimestamps");
    expect(Caught([&] { LoadMatrix(m_dir / "nothing", "M", rows, cols, values); }), "LoadMatrix");
}

// ---- loading

TEST_F(UtilsTest, LoadingTellsItsStoryInOrder)
{
    SaveMatrix(m_file, "M", 3, 2, SIX);
    m_log.Clear();
    int rows = -1;
    int cols = -1;
    std::vector<float> values;
    LoadMatrix(m_file, "N", rows, cols, values);
    EXPECT_THAT(Story(m_log), ElementsAre("TRACE LoadMatrix", "TRACE LoadMatrixFromFitsBinTable",
                                          "TRACE CheckForExpectedSize", "DEBUG Loaded N [3 x 2] from file: " + m_file));
}

TEST_F(UtilsTest, LoadingAnEmptyFilenameLeavesEverythingUntouched)
{
    int rows = -5;
    int cols = 7;
    std::vector<float> values = {1.0F};
    LoadMatrix("", "M", rows, cols, values);
    EXPECT_EQ(rows, -5);
    EXPECT_EQ(cols, 7);
    EXPECT_EQ(values, std::vector<float>{1.0F});
    EXPECT_THAT(Story(m_log), ElementsAre("TRACE LoadMatrix", "DEBUG Empty filename, skipped loading of M matrix."));
}

TEST_F(UtilsTest, AMissingFileIsReportedUnderItsGivenNameAndTouchesNothing)
{
    int rows = -1;
    int cols = -1;
    std::vector<float> values = {1.0F};
    EXPECT_EQ(Message([&] { LoadMatrix("no/such.fits", "M", rows, cols, values); }),
              "Not able to find file <no/such.fits>.");
    EXPECT_EQ(Message([&] { LoadMatrix(m_dir.GetPath(), "M", rows, cols, values); }),
              "Not able to find file <" + m_dir.GetPath() + ">.");
    EXPECT_EQ(rows, -1);
    EXPECT_EQ(cols, -1);
    EXPECT_EQ(values, std::vector<float>{1.0F});
}

TEST_F(UtilsTest, NegativeExpectationsAcceptAnySizeAndReportIt)
{
    SaveMatrix(m_file, "M", 2, 3, SIX);
    for (const auto& [rows_in, cols_in] : {std::pair{-1, -1}, {-7, 3}, {2, -7}, {2, 3}}) {
        int rows = rows_in;
        int cols = cols_in;
        std::vector<float> values;
        LoadMatrix(m_file, "M", rows, cols, values);
        EXPECT_EQ(rows, 2);
        EXPECT_EQ(cols, 3);
    }
}

TEST_F(UtilsTest, AnotherSizeIsReportedWithTheExpectationAfterTheCheck)
{
    SaveMatrix(m_file, "M", 10, 5, std::vector<float>(50, 1.0F));
    int rows = -1;
    int cols = 4;
    std::vector<float> values;
    EXPECT_EQ(Message([&] { LoadMatrix(m_file, "P2EDC", rows, cols, values); }),
              "Matrix P2EDC (" + m_file + ") has dimension [10,5], expecting [10,4]");
    EXPECT_EQ(rows, 10);
    EXPECT_EQ(cols, 4);
    rows = 0;
    cols = 5;
    EXPECT_EQ(Message([&] { LoadMatrix(m_file, "P2EDC", rows, cols, values); }),
              "Matrix P2EDC (" + m_file + ") has dimension [10,5], expecting [0,5]");
}

TEST_F(UtilsTest, TimestampsAreLeftAsideWhenLoading)
{
    SaveMatrixWithTimestamps(m_file, "M", 3, 2, SIX, {7, 8, 9});
    int rows = -1;
    int cols = -1;
    std::vector<float> values;
    LoadMatrix(m_file, "M", rows, cols, values);
    EXPECT_EQ(rows, 3);
    EXPECT_EQ(cols, 2);
    EXPECT_EQ(values, SIX);
}

TEST_F(UtilsTest, ErrorsOfTheFitsLibraryWhileReadingPassAsTheyAre)
{
    test::WriteBytes(m_file, "no FITS file at all");
    int rows = -1;
    int cols = -1;
    std::vector<float> values;
    EXPECT_THROW(LoadMatrix(m_file, "M", rows, cols, values), CCfits::FitsException);
}

TEST_F(UtilsTest, RowsOfDifferentLengthsAreReportedWithTheResolvedPathAndRaisedAgain)
{
    const std::string heap = test::BigEndian<float>({1, 2, 3});
    test::WriteBytes(m_file,
                     test::FitsTableFile({{"a", "1PE(2)"}}, 2, test::BigEndian<std::int32_t>({2, 0, 1, 8}), heap));
    int rows = -1;
    int cols = -1;
    std::vector<float> values;
    const brisk::Exception seen = Caught([&] { LoadMatrix(m_file, "M", rows, cols, values); });
    EXPECT_EQ(seen.GetMessage(), "Ill formed matrix in <" + m_file + "> binary table.");
    EXPECT_EQ(seen.GetFunctionName(), "LoadMatrix");
}

TEST_F(UtilsTest, AnExceptionOfTheLanguageWhileReadingBecomesABriskExceptionWithItsText)
{
    // A row that promises more elements than there can be bytes.
    const std::string promise = test::BigEndian<std::int64_t>({std::int64_t{1} << 62, 0});
    test::WriteBytes(m_file, test::FitsTableFile({{"a", "1QE"}}, 1, promise, test::BigEndian<float>({1})));
    int rows = -1;
    int cols = -1;
    std::vector<float> values;
    std::vector<double> timestamps;
    EXPECT_THROW(LoadMatrixFromFitsBinTable(m_file, rows, cols, values, timestamps), std::bad_array_new_length);
    const brisk::Exception seen = Caught([&] { LoadMatrix(m_file, "M", rows, cols, values); });
    EXPECT_EQ(seen.GetMessage(), std::bad_array_new_length().what());
    EXPECT_EQ(seen.GetFunctionName(), "LoadMatrix");
}

TEST_F(UtilsTest, AnUnknownFormatIsRefusedByName)
{
    SaveMatrix(m_file, "M", 2, 3, SIX);
    const auto format = static_cast<FileFormat>(7);
    int rows = -1;
    int cols = -1;
    std::vector<float> values;
    const std::string expected = "Unknown file format 7, expecting FileFormat::FitsBinTable.";
    EXPECT_EQ(Message([&] { SaveMatrix(m_file, "M", 2, 3, SIX, true, format); }), expected);
    EXPECT_EQ(Message([&] { SaveMatrixWithTimestamps(m_file, "M", 2, 3, SIX, {1, 2}, true, format); }), expected);
    EXPECT_EQ(Message([&] { LoadMatrix(m_file, "M", rows, cols, values, format); }), expected);
}

// ---- the two checks

TEST_F(UtilsTest, CheckForExitingFileReturnsQuietlyWhenThereIsNone)
{
    CheckForExitingFile(m_file, false);
    CheckForExitingFile(m_file, true);
    EXPECT_THAT(Story(m_log), ElementsAre("TRACE CheckForExitingFile", "TRACE CheckForExitingFile"));
}

TEST_F(UtilsTest, CheckForExitingFileRemovesTheFileWithOverwrite)
{
    test::WriteBytes(m_file, "old");
    CheckForExitingFile(m_file, true);
    EXPECT_THAT(m_dir.List(), IsEmpty());
    EXPECT_THAT(m_log.Messages(DEBUG_LOG_LEVEL), ElementsAre("Overwriting file <" + m_file + ">."));
}

TEST_F(UtilsTest, CheckForExitingFileThrowsAndKeepsTheFileWithoutOverwrite)
{
    test::WriteBytes(m_file, "old");
    EXPECT_EQ(Message([&] { CheckForExitingFile(m_file, false); }), "File " + m_file + " exists already.");
    EXPECT_EQ(test::ReadBytes(m_file), "old");
    EXPECT_THAT(m_log.Messages(DEBUG_LOG_LEVEL), IsEmpty());
}

TEST_F(UtilsTest, CheckForExpectedSizeReplacesNegativeExpectationsOnly)
{
    struct Case
    {
        int expected_rows, expected_cols;
        bool fits;
        int rows_after, cols_after;
    };
    for (const Case& c :
         {Case{-1, -1, true, 4, 5}, Case{4, 5, true, 4, 5}, Case{-9, 5, true, 4, 5}, Case{-1, 6, false, 4, 6},
          Case{3, -1, false, 3, 5}, Case{0, 5, false, 0, 5}, Case{4, 0, false, 4, 0}, Case{5, 4, false, 5, 4}}) {
        int rows = c.expected_rows;
        int cols = c.expected_cols;
        EXPECT_EQ(CheckForExpectedSize(4, 5, rows, cols), c.fits) << c.expected_rows << ' ' << c.expected_cols;
        EXPECT_EQ(rows, c.rows_after);
        EXPECT_EQ(cols, c.cols_after);
    }
    EXPECT_THAT(m_log.Events(DEBUG_LOG_LEVEL), IsEmpty());
    EXPECT_EQ(m_log.Events(TRACE_LOG_LEVEL).size(), 8U);
}

TEST_F(UtilsTest, CheckForExpectedSizeTakesZeroAsAnExpectation)
{
    int rows = 0;
    int cols = -1;
    EXPECT_TRUE(CheckForExpectedSize(0, 5, rows, cols));
}

}  // namespace
}  // namespace lumo::ravelcore
