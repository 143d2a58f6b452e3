#include "support/allocationGuard.hpp"
#include "support/logCapture.hpp"
#include "support/ramp.hpp"
#include "support/thrown.hpp"

#include <lumo/ravelcore/names.hpp>
#include <lumo/ravelcore/taskSgemv.hpp>

#include <cblas.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <limits>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

namespace lumo::ravelcore {
namespace {

using std::chrono::nanoseconds;
using test::ExpectException;
using test::LogCapture;
using test::LogEvent;
using test::Ramp;
using test::Thrown;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr float NOT_A_NUMBER = std::numeric_limits<float>::quiet_NaN();

/// Counts the calls of its Initialize.
class CountingTask : public TaskSgemv
{
public:
    using TaskSgemv::TaskSgemv;
    void Initialize() override
    {
        ++calls;
        TaskSgemv::Initialize();
    }
    int calls = 0;
};

auto IsEntryOf(const std::string& function)
{
    return testing::MatchesRegex("ravel/ravelcore/src/taskSgemv\\.cpp " + function + " [0-9]+");
}

auto IsEntryOfBase(const std::string& function)
{
    return testing::MatchesRegex("ravel/ravelcore/src/task\\.cpp " + function + " [0-9]+");
}

/// A task of 2 x 3 with a matrix and an input vector whose product is 14, 32.
void FillTwoByThree(TaskSgemv& sut)
{
    sut.Initialize();
    sut.SetMatrix({1.0F, 2.0F, 3.0F, 4.0F, 5.0F, 6.0F});
    sut.SetInputVector({1.0F, 2.0F, 3.0F});
}

// ---- construction and Initialize -----------------------------------------------------------------------------------

TEST(TaskSgemvTest, ConstructorStoresTheCountsAndLeavesTheVectorsEmpty)
{
    const TaskSgemv sut(3, 4);
    EXPECT_EQ(sut.GetName(), "TaskSgemv");
    EXPECT_EQ(sut.GetNumRows(), 3);
    EXPECT_EQ(sut.GetNumCols(), 4);
    EXPECT_THAT(sut.GetMatrix(), IsEmpty());
    EXPECT_THAT(sut.GetInputVector(), IsEmpty());
    EXPECT_THAT(sut.GetOutputVector(), IsEmpty());
}

TEST(TaskSgemvTest, InitializeSizesAndZeroesAllThreeVectors)
{
    TaskSgemv sut(3, 4);
    sut.Initialize();
    EXPECT_EQ(sut.GetMatrix(), std::vector<float>(12, 0.0F));
    EXPECT_EQ(sut.GetInputVector(), std::vector<float>(4, 0.0F));
    EXPECT_EQ(sut.GetOutputVector(), std::vector<float>(3, 0.0F));
}

TEST(TaskSgemvTest, InitializeDiscardsEarlierContents)
{
    TaskSgemv sut(2, 3);
    FillTwoByThree(sut);
    sut.Execute(0.0, true);
    sut.Initialize();
    EXPECT_THAT(sut.GetMatrix(), Each(0.0F));
    EXPECT_THAT(sut.GetInputVector(), Each(0.0F));
    EXPECT_THAT(sut.GetOutputVector(), Each(0.0F));
}

TEST(TaskSgemvTest, InitializeMakesTheBlasSingleThreaded)
{
    openblas_set_num_threads(2);
    ASSERT_EQ(openblas_get_num_threads(), 2);
    TaskSgemv sut(1, 1);
    EXPECT_EQ(openblas_get_num_threads(), 2) << "before Initialize the setting is the application's";
    sut.Initialize();
    EXPECT_EQ(openblas_get_num_threads(), 1);
}

/// A case of counts that no matrix can have, as the keys give them and as the message shows them.
struct ImpossibleCounts
{
    std::map<std::string, std::string> keys;
    int rows;
    int cols;
};

/// For a task of 2 x 3. 65536 x 65536 is 0 when the product wraps around in int.
std::vector<ImpossibleCounts> AllImpossibleCounts()
{
    return {{{{KEY_TASK_SGEMV_NUM_ROWS, "-2"}}, -2, 3},
            {{{KEY_TASK_SGEMV_NUM_COLS, "-1"}}, 2, -1},
            {{{KEY_TASK_SGEMV_NUM_COLS, "1073741824"}}, 2, 1073741824},
            {{{KEY_TASK_SGEMV_NUM_ROWS, "65536"}, {KEY_TASK_SGEMV_NUM_COLS, "65536"}}, 65536, 65536}};
}

TEST(TaskSgemvTest, CountsThatNoMatrixCanHaveAreRefusedEachTimeAndStayAsTheyWereSet)
{
    for (const ImpossibleCounts& counts : AllImpossibleCounts()) {
        TaskSgemv sut(2, 3);
        FillTwoByThree(sut);
        const std::string message =
            "Expected a matrix with counts of 0 or more and at most 2147483647 elements but received one of " +
            std::to_string(counts.rows) + " x " + std::to_string(counts.cols) + ".";
        ExpectException(Thrown([&] { sut.Configure(counts.keys); }), message, "Initialize", "taskSgemv.cpp");
        EXPECT_EQ(sut.GetNumRows(), counts.rows);
        EXPECT_EQ(sut.GetNumCols(), counts.cols);
        ExpectException(Thrown([&] { sut.Initialize(); }), message, "Initialize", "taskSgemv.cpp");
        EXPECT_EQ(sut.GetNumRows(), counts.rows);
        EXPECT_EQ(sut.GetNumCols(), counts.cols);
        EXPECT_EQ(sut.GetMatrix(), Ramp(6));
        EXPECT_EQ(sut.GetInputVector(), Ramp(3));
        EXPECT_THAT(sut.GetOutputVector(), SizeIs(2));
    }
}

TEST(TaskSgemvTest, ExecuteGoesOnWithTheOldProductAfterCountsThatWereRefused)
{
    for (const ImpossibleCounts& counts : AllImpossibleCounts()) {
        TaskSgemv sut(2, 3);
        FillTwoByThree(sut);
        EXPECT_THROW(sut.Configure(counts.keys), brisk::Exception);
        sut.Execute(0.0, false);
        EXPECT_THAT(sut.GetOutputVector(), ElementsAre(14.0F, 32.0F));
    }
}

TEST(TaskSgemvTest, CountThatWasRefusedIsNotTakenBackByAnotherKey)
{
    TaskSgemv sut(2, 3);
    sut.Initialize();
    EXPECT_THROW(sut.Configure({{KEY_TASK_SGEMV_NUM_ROWS, "65536"}, {KEY_TASK_SGEMV_NUM_COLS, "65536"}}),
                 brisk::Exception);
    sut.Configure({{KEY_TASK_SGEMV_NUM_COLS, "1"}});
    EXPECT_EQ(sut.GetNumRows(), 65536);
    EXPECT_THAT(sut.GetMatrix(), SizeIs(65536));
    EXPECT_THAT(sut.GetOutputVector(), SizeIs(65536));
}

TEST(TaskSgemvTest, ExecuteBeforeAnyInitializeIsAnEmptyProduct)
{
    TaskSgemv sut(3, 4);
    sut.Execute(0.0, true);
    EXPECT_THAT(sut.GetOutputVector(), IsEmpty());
}

// ---- Configure -----------------------------------------------------------------------------------------------------

TEST(TaskSgemvTest, ConfigureWithoutAKeyOfItsOwnLeavesTheTaskUnchanged)
{
    CountingTask sut(2, 3);
    FillTwoByThree(sut);
    sut.calls = 0;
    sut.Configure({{KEY_TASK_SGEMV_NUMA_NODE, "letters"},
                   {KEY_TASK_EDC_NUM_PACT, "7"},
                   {KEY_TASK_EDC_NUM_ES, "8"},
                   {KEY_TASK_EDC_SLICE_SIZE, "9"},
                   {"num_rows", "10"},
                   {"cfg.task_sgemv.num_row", "11"},
                   {"cfg.task_sgemv.num_rowss", "12"},
                   {"cfg.task_sgemv.num_rows ", "13"},
                   {"CFG.TASK_SGEMV.NUM_ROWS", "14"},
                   {"cfg.task_sgemv.Num_cols", "15"},
                   {"", "16"}});
    EXPECT_EQ(sut.calls, 0);
    EXPECT_EQ(sut.GetNumRows(), 2);
    EXPECT_EQ(sut.GetNumCols(), 3);
    EXPECT_EQ(sut.GetMatrix(), (std::vector<float>{1.0F, 2.0F, 3.0F, 4.0F, 5.0F, 6.0F}));
}

TEST(TaskSgemvTest, ConfigureWithAnEmptyMapLeavesTheTaskUnchanged)
{
    CountingTask sut(2, 3);
    sut.Configure({});
    EXPECT_EQ(sut.calls, 0);
    EXPECT_THAT(sut.GetMatrix(), IsEmpty());
}

TEST(TaskSgemvTest, ConfigureOfColumnsAloneInitialisesAllThreeVectorsAgain)
{
    CountingTask sut(2, 3);
    FillTwoByThree(sut);
    sut.Execute(0.0, true);
    sut.calls = 0;
    sut.Configure({{KEY_TASK_SGEMV_NUM_COLS, "5"}});
    EXPECT_EQ(sut.calls, 1) << "through the virtual Initialize";
    EXPECT_EQ(sut.GetNumRows(), 2);
    EXPECT_EQ(sut.GetNumCols(), 5);
    EXPECT_EQ(sut.GetMatrix(), std::vector<float>(10, 0.0F));
    EXPECT_EQ(sut.GetInputVector(), std::vector<float>(5, 0.0F));
    EXPECT_EQ(sut.GetOutputVector(), std::vector<float>(2, 0.0F));
}

TEST(TaskSgemvTest, ConfigureOfRowsAloneInitialisesAllThreeVectorsAgain)
{
    CountingTask sut(2, 3);
    FillTwoByThree(sut);
    sut.calls = 0;
    sut.Configure({{KEY_TASK_SGEMV_NUM_ROWS, "4"}});
    EXPECT_EQ(sut.calls, 1);
    EXPECT_EQ(sut.GetMatrix(), std::vector<float>(12, 0.0F));
    EXPECT_EQ(sut.GetInputVector(), std::vector<float>(3, 0.0F));
    EXPECT_EQ(sut.GetOutputVector(), std::vector<float>(4, 0.0F));
}

TEST(TaskSgemvTest, ConfigureOfBothInitialisesOnce)
{
    CountingTask sut(2, 3);
    sut.Configure({{KEY_TASK_SGEMV_NUM_ROWS, "4"}, {KEY_TASK_SGEMV_NUM_COLS, "6"}, {"another", "x"}});
    EXPECT_EQ(sut.calls, 1);
    EXPECT_THAT(sut.GetMatrix(), SizeIs(24));
    EXPECT_THAT(sut.GetInputVector(), SizeIs(6));
    EXPECT_THAT(sut.GetOutputVector(), SizeIs(4));
}

TEST(TaskSgemvTest, ConfigureOfTheSameCountsStillZeroesTheData)
{
    TaskSgemv sut(2, 3);
    FillTwoByThree(sut);
    sut.Configure({{KEY_TASK_SGEMV_NUM_ROWS, "2"}});
    EXPECT_EQ(sut.GetMatrix(), std::vector<float>(6, 0.0F));
}

TEST(TaskSgemvTest, ConfigureReadsDigitsAndIgnoresWhatFollowsThem)
{
    TaskSgemv sut(2, 3);
    sut.Configure({{KEY_TASK_SGEMV_NUM_ROWS, "12letters"}, {KEY_TASK_SGEMV_NUM_COLS, " +5.9"}});
    EXPECT_EQ(sut.GetNumRows(), 12);
    EXPECT_EQ(sut.GetNumCols(), 5);
}

TEST(TaskSgemvTest, ConfigureReadsBaseTenOnly)
{
    TaskSgemv sut(2, 3);
    sut.Configure({{KEY_TASK_SGEMV_NUM_ROWS, "0x10"}, {KEY_TASK_SGEMV_NUM_COLS, "010"}});
    EXPECT_EQ(sut.GetNumRows(), 0);
    EXPECT_EQ(sut.GetNumCols(), 10);
}

TEST(TaskSgemvTest, ConfigureOfLettersEndsWithInvalidArgument)
{
    for (const std::string value : {"letters", "", " ", "-", "."}) {
        CountingTask sut(2, 3);
        try {
            sut.Configure({{KEY_TASK_SGEMV_NUM_ROWS, value}});
            ADD_FAILURE() << "accepted \"" << value << '"';
        } catch (const std::invalid_argument& seen) {
            EXPECT_STREQ(seen.what(), "stoi");
        }
        EXPECT_EQ(sut.GetNumRows(), 2);
        EXPECT_EQ(sut.calls, 0);
    }
}

TEST(TaskSgemvTest, ConfigureBeyondIntEndsWithOutOfRange)
{
    for (const std::string value : {"2147483648", "-2147483649", "99999999999999999999999"}) {
        CountingTask sut(2, 3);
        try {
            sut.Configure({{KEY_TASK_SGEMV_NUM_COLS, value}});
            ADD_FAILURE() << "accepted \"" << value << '"';
        } catch (const std::out_of_range& seen) {
            EXPECT_STREQ(seen.what(), "stoi");
        }
        EXPECT_EQ(sut.GetNumCols(), 3);
        EXPECT_EQ(sut.calls, 0);
    }
}

TEST(TaskSgemvTest, ConfigureKeepsAKeyReadBeforeTheBadOneAndDoesNotInitialise)
{
    CountingTask sut(2, 3);
    FillTwoByThree(sut);
    sut.calls = 0;
    // The map is walked in the order of its keys: columns before rows.
    EXPECT_THROW(sut.Configure({{KEY_TASK_SGEMV_NUM_ROWS, "bad"}, {KEY_TASK_SGEMV_NUM_COLS, "7"}}),
                 std::invalid_argument);
    EXPECT_EQ(sut.GetNumCols(), 7);
    EXPECT_EQ(sut.GetNumRows(), 2);
    EXPECT_EQ(sut.calls, 0);
    EXPECT_EQ(sut.GetMatrix(), (std::vector<float>{1.0F, 2.0F, 3.0F, 4.0F, 5.0F, 6.0F}));
    EXPECT_THAT(sut.GetInputVector(), SizeIs(3));
}

TEST(TaskSgemvTest, ExecuteGoesOnWithTheOldProductAfterAValueThatIsNoNumber)
{
    TaskSgemv sut(2, 3);
    FillTwoByThree(sut);
    EXPECT_THROW(sut.Configure({{KEY_TASK_SGEMV_NUM_ROWS, "bad"}, {KEY_TASK_SGEMV_NUM_COLS, "7000000"}}),
                 std::invalid_argument);
    sut.Execute(0.0, false);
    EXPECT_THAT(sut.GetOutputVector(), ElementsAre(14.0F, 32.0F));
}

TEST(TaskSgemvTest, ConfigureDoesNotReadTheKeyAfterTheBadOne)
{
    TaskSgemv sut(2, 3);
    EXPECT_THROW(sut.Configure({{KEY_TASK_SGEMV_NUM_ROWS, "7"}, {KEY_TASK_SGEMV_NUM_COLS, "bad"}}),
                 std::invalid_argument);
    EXPECT_EQ(sut.GetNumRows(), 2);
    EXPECT_EQ(sut.GetNumCols(), 3);
}

// ---- SetMatrix and SetInputVector ----------------------------------------------------------------------------------

TEST(TaskSgemvTest, SettersCopyInPlaceWithoutAllocating)
{
    TaskSgemv sut(3, 4);
    sut.Initialize();
    const std::vector<float> matrix = Ramp(12);
    const std::vector<float> input = Ramp(4, 100.0F);
    const float* const matrix_data = sut.GetMatrix().data();
    const float* const input_data = sut.GetInputVector().data();
    const test::AllocationGuard guard;
    sut.SetMatrix(matrix);
    sut.SetInputVector(input);
    EXPECT_EQ(guard.GetCount(), 0);
    EXPECT_EQ(sut.GetMatrix(), matrix);
    EXPECT_EQ(sut.GetInputVector(), input);
    EXPECT_EQ(sut.GetMatrix().data(), matrix_data);
    EXPECT_EQ(sut.GetInputVector().data(), input_data);
}

TEST(TaskSgemvTest, SettersLeaveTheOutputVectorUntilTheNextCycle)
{
    TaskSgemv sut(2, 3);
    FillTwoByThree(sut);
    sut.Execute(0.0, true);
    sut.SetMatrix(std::vector<float>(6, 0.0F));
    sut.SetInputVector(std::vector<float>(3, 0.0F));
    EXPECT_THAT(sut.GetOutputVector(), ElementsAre(14.0F, 32.0F));
}

TEST(TaskSgemvTest, SetMatrixOfAnotherSizeThrowsAndChangesNothing)
{
    TaskSgemv sut(3, 4);
    sut.Initialize();
    sut.SetMatrix(Ramp(12));
    for (const std::size_t size : {0U, 11U, 13U, 24U}) {
        ExpectException(Thrown([&] { sut.SetMatrix(Ramp(size, 50.0F)); }),
                        "Expected matrix of 12 but received one of " + std::to_string(size) + " elements.", "SetMatrix",
                        "taskSgemv.cpp");
        EXPECT_EQ(sut.GetMatrix(), Ramp(12));
    }
}

TEST(TaskSgemvTest, SetInputVectorOfAnotherSizeNamesTheMatrixsElementCountOnPurpose)
{
    TaskSgemv sut(3, 4);
    sut.Initialize();
    sut.SetInputVector(Ramp(4));
    ExpectException(Thrown([&] { sut.SetInputVector(Ramp(5, 50.0F)); }),
                    "Expected input vector of 12 but received one of 5 elements.", "SetInputVector", "taskSgemv.cpp");
    EXPECT_EQ(sut.GetInputVector(), Ramp(4));
}

TEST(TaskSgemvTest, SettersTakeTheTasksOwnVectors)
{
    TaskSgemv sut(3, 4);
    sut.Initialize();
    sut.SetMatrix(Ramp(12));
    sut.SetInputVector(Ramp(4, 100.0F));
    sut.SetMatrix(sut.GetMatrix());
    sut.SetInputVector(sut.GetInputVector());
    EXPECT_EQ(sut.GetMatrix(), Ramp(12));
    EXPECT_EQ(sut.GetInputVector(), Ramp(4, 100.0F));
}

TEST(TaskSgemvTest, SetInputVectorComparesWithTheInputVectorNotWithTheMatrix)
{
    TaskSgemv sut(3, 4);
    sut.Initialize();
    EXPECT_EQ(Thrown([&] { sut.SetInputVector(Ramp(12)); }).GetMessage(),
              "Expected input vector of 12 but received one of 12 elements.");
    EXPECT_NO_THROW(sut.SetInputVector(Ramp(4)));
}

TEST(TaskSgemvTest, SettersBeforeInitializeAcceptOnlyEmptyVectors)
{
    TaskSgemv sut(3, 4);
    EXPECT_NO_THROW(sut.SetMatrix({}));
    EXPECT_NO_THROW(sut.SetInputVector({}));
    EXPECT_EQ(Thrown([&] { sut.SetMatrix(Ramp(12)); }).GetMessage(),
              "Expected matrix of 0 but received one of 12 elements.");
    EXPECT_EQ(Thrown([&] { sut.SetInputVector(Ramp(4)); }).GetMessage(),
              "Expected input vector of 0 but received one of 4 elements.");
}

// ---- Execute -------------------------------------------------------------------------------------------------------

TEST(TaskSgemvTest, ExecuteMultipliesTheRowMajorMatrixByTheInput)
{
    TaskSgemv sut(2, 3);
    FillTwoByThree(sut);
    sut.Execute(0.0, true);
    EXPECT_THAT(sut.GetOutputVector(), ElementsAre(14.0F, 32.0F));
}

TEST(TaskSgemvTest, IdentityLeavesTheInputInTheOutput)
{
    constexpr int SIZE = 37;
    TaskSgemv sut(SIZE, SIZE);
    sut.Initialize();
    std::vector<float> identity(SIZE * SIZE, 0.0F);
    for (std::size_t index = 0; index < identity.size(); index += SIZE + 1) {
        identity[index] = 1.0F;
    }
    sut.SetMatrix(identity);
    sut.SetInputVector(Ramp(SIZE, -18.5F));
    sut.Execute(0.0, true);
    EXPECT_EQ(sut.GetOutputVector(), Ramp(SIZE, -18.5F));
}

TEST(TaskSgemvTest, EachRowMeetsOnlyItsOwnElements)
{
    // Powers of two: every sum is exact, so that one element out of place shows in whatever order the BLAS adds.
    TaskSgemv sut(5, 8);
    sut.Initialize();
    std::vector<float> matrix(40, 0.0F);
    std::vector<float> input(8);
    for (int col = 0; col < 8; ++col) {
        input[static_cast<std::size_t>(col)] = std::ldexp(1.0F, col);
    }
    for (int row = 0; row < 5; ++row) {
        matrix[static_cast<std::size_t>(row * 8 + row)] = 1.0F;
        matrix[static_cast<std::size_t>(row * 8 + 7)] = -1.0F;
    }
    sut.SetMatrix(matrix);
    sut.SetInputVector(input);
    sut.Execute(0.0, true);
    EXPECT_THAT(sut.GetOutputVector(), ElementsAre(-127.0F, -126.0F, -124.0F, -120.0F, -112.0F));
}

TEST(TaskSgemvTest, ExecuteIgnoresBothArguments)
{
    TaskSgemv sut(2, 3);
    FillTwoByThree(sut);
    for (const double time_stamp : {0.0, -1.0, 1e300, static_cast<double>(NOT_A_NUMBER)}) {
        for (const bool first : {true, false}) {
            sut.Execute(time_stamp, first);
            EXPECT_THAT(sut.GetOutputVector(), ElementsAre(14.0F, 32.0F));
        }
    }
}

TEST(TaskSgemvTest, ExecuteReplacesTheOutputInsteadOfAddingToIt)
{
    TaskSgemv sut(2, 3);
    FillTwoByThree(sut);
    for (int cycle = 0; cycle < 10; ++cycle) {
        sut.Execute(0.0, cycle == 0);
    }
    EXPECT_THAT(sut.GetOutputVector(), ElementsAre(14.0F, 32.0F));
}

TEST(TaskSgemvTest, NanInTheOutputOfOneCycleDoesNotSurviveTheNext)
{
    for (const int cols : {3, 4788}) {
        TaskSgemv sut(20, cols);
        sut.Initialize();
        sut.SetMatrix(std::vector<float>(static_cast<std::size_t>(20 * cols), 1.0F));
        sut.SetInputVector(std::vector<float>(static_cast<std::size_t>(cols), NOT_A_NUMBER));
        sut.Execute(0.0, true);
        ASSERT_THAT(sut.GetOutputVector(), Each(testing::IsNan()));
        sut.SetInputVector(std::vector<float>(static_cast<std::size_t>(cols), 1.0F));
        sut.Execute(0.0, false);
        EXPECT_THAT(sut.GetOutputVector(), Each(static_cast<float>(cols)));
        sut.SetInputVector(std::vector<float>(static_cast<std::size_t>(cols), std::numeric_limits<float>::infinity()));
        sut.Execute(0.0, false);
        ASSERT_THAT(sut.GetOutputVector(), Each(std::numeric_limits<float>::infinity()));
        sut.SetInputVector(std::vector<float>(static_cast<std::size_t>(cols), 0.0F));
        sut.Execute(0.0, false);
        EXPECT_THAT(sut.GetOutputVector(), Each(0.0F));
    }
}

TEST(TaskSgemvTest, NanInOneRowOfTheMatrixStaysInThatRow)
{
    TaskSgemv sut(2, 3);
    FillTwoByThree(sut);
    sut.SetMatrix({NOT_A_NUMBER, 2.0F, 3.0F, 4.0F, 5.0F, 6.0F});
    sut.Execute(0.0, true);
    EXPECT_TRUE(std::isnan(sut.GetOutputVector()[0]));
    EXPECT_EQ(sut.GetOutputVector()[1], 32.0F);
}

/// Initialises and executes a task without elements and returns what came on standard error meanwhile.
std::string StandardErrorOfCycle(TaskSgemv& sut)
{
    testing::internal::CaptureStderr();
    sut.Initialize();
    sut.Execute(0.0, true);
    return testing::internal::GetCapturedStderr();
}

TEST(TaskSgemvTest, NoRowsAreAnEmptyProduct)
{
    TaskSgemv sut(0, 4);
    EXPECT_EQ(StandardErrorOfCycle(sut), "");
    EXPECT_THAT(sut.GetMatrix(), IsEmpty());
    EXPECT_THAT(sut.GetInputVector(), SizeIs(4));
    EXPECT_THAT(sut.GetOutputVector(), IsEmpty());
    EXPECT_NO_THROW(sut.SetMatrix({}));
    EXPECT_EQ(Thrown([&] { sut.SetMatrix({1.0F}); }).GetMessage(),
              "Expected matrix of 0 but received one of 1 elements.");
}

TEST(TaskSgemvTest, NoColumnsGiveZeros)
{
    TaskSgemv sut(3, 0);
    EXPECT_EQ(StandardErrorOfCycle(sut), "");
    EXPECT_THAT(sut.GetMatrix(), IsEmpty());
    EXPECT_THAT(sut.GetInputVector(), IsEmpty());
    EXPECT_EQ(sut.GetOutputVector(), std::vector<float>(3, 0.0F));
    EXPECT_NO_THROW(sut.SetMatrix({}));
    EXPECT_NO_THROW(sut.SetInputVector({}));
    EXPECT_EQ(Thrown([&] { sut.SetInputVector({1.0F}); }).GetMessage(),
              "Expected input vector of 0 but received one of 1 elements.");
}

TEST(TaskSgemvTest, NeitherRowsNorColumnsIsANormalCycle)
{
    TaskSgemv sut(0, 0);
    EXPECT_EQ(StandardErrorOfCycle(sut), "");
    EXPECT_THAT(sut.GetOutputVector(), IsEmpty());
    EXPECT_EQ(sut.GetExecTime(), sut.GetMaxExecTime());
}

TEST(TaskSgemvTest, OneRowAndOneColumnWorkAsAnyOther)
{
    TaskSgemv row(1, 4);
    row.Initialize();
    row.SetMatrix(Ramp(4));
    row.SetInputVector(Ramp(4));
    row.Execute(0.0, true);
    EXPECT_THAT(row.GetOutputVector(), ElementsAre(30.0F));
    TaskSgemv col(4, 1);
    col.Initialize();
    col.SetMatrix(Ramp(4));
    col.SetInputVector({2.0F});
    col.Execute(0.0, true);
    EXPECT_THAT(col.GetOutputVector(), ElementsAre(2.0F, 4.0F, 6.0F, 8.0F));
}

TEST(TaskSgemvTest, ExecuteBooksItsDuration)
{
    TaskSgemv sut(600, 4788);
    sut.Initialize();
    sut.Execute(0.0, true);
    EXPECT_GT(sut.GetExecTime(), nanoseconds(0));
    EXPECT_EQ(sut.GetExecTime(), sut.GetMaxExecTime());
    nanoseconds longest = sut.GetExecTime();
    for (int cycle = 0; cycle < 20; ++cycle) {
        sut.Execute(0.0, false);
        longest = std::max(longest, sut.GetExecTime());
        EXPECT_EQ(sut.GetMaxExecTime(), longest);
    }
}

TEST(TaskSgemvTest, NeitherInitializeNorConfigureResetsTheDurations)
{
    TaskSgemv sut(20, 4788);
    sut.Initialize();
    sut.Execute(0.0, true);
    const nanoseconds seen = sut.GetExecTime();
    sut.Initialize();
    sut.Configure({{KEY_TASK_SGEMV_NUM_ROWS, "2"}});
    EXPECT_EQ(sut.GetExecTime(), seen);
    EXPECT_EQ(sut.GetMaxExecTime(), seen);
}

TEST(TaskSgemvTest, ExecuteNeverAllocates)
{
    TaskSgemv sut(600, 4788);
    sut.Initialize();
    const test::AllocationGuard guard;
    for (int cycle = 0; cycle < 1000; ++cycle) {
        sut.Execute(0.0, cycle == 0);
    }
    EXPECT_EQ(guard.GetCount(), 0);
}

TEST(TaskSgemvTest, ExecuteOfNoElementsNeverAllocates)
{
    TaskSgemv sut(3, 0);
    sut.Initialize();
    const test::AllocationGuard guard;
    sut.Execute(0.0, true);
    EXPECT_EQ(guard.GetCount(), 0);
}

// ---- log lines -----------------------------------------------------------------------------------------------------

TEST(TaskSgemvTest, EachOperationBeginsWithItsEntryLineOnTheTasksLogger)
{
    const LogCapture log("ravelcore.TaskSgemv");
    {
        TaskSgemv sut(1, 1);
        sut.Initialize();
        sut.Configure({{KEY_TASK_SGEMV_NUM_ROWS, "1"}});
        sut.SetMatrix({1.0F});
        sut.SetInputVector({1.0F});
        sut.Execute(0.0, true);
    }
    EXPECT_THAT(
        log.Messages(log4cplus::TRACE_LOG_LEVEL),
        ElementsAre(IsEntryOfBase("Task"), IsEntryOf("TaskSgemv"), IsEntryOf("Initialize"), IsEntryOf("Configure"),
                    IsEntryOf("Initialize"), IsEntryOf("SetMatrix"), IsEntryOf("SetInputVector"), IsEntryOf("Execute"),
                    IsEntryOf("~TaskSgemv"), IsEntryOfBase("~Task")));
    EXPECT_THAT(log.Events(), Each(testing::Field(&LogEvent::logger, "ravelcore.TaskSgemv")));
    EXPECT_THAT(log.Events(), Each(testing::Field(&LogEvent::level, log4cplus::TRACE_LOG_LEVEL)));
}

TEST(TaskSgemvTest, AccessorsBeginWithTheirEntryLines)
{
    const TaskSgemv sut(1, 1);
    const LogCapture log("ravelcore.TaskSgemv");
    sut.GetNumRows();
    sut.GetNumCols();
    sut.GetMatrix();
    sut.GetInputVector();
    sut.GetOutputVector();
    EXPECT_THAT(log.Messages(log4cplus::TRACE_LOG_LEVEL),
                ElementsAre(IsEntryOf("GetNumRows"), IsEntryOf("GetNumCols"), IsEntryOf("GetMatrix"),
                            IsEntryOf("GetInputVector"), IsEntryOf("GetOutputVector")));
}

TEST(TaskSgemvTest, RefusedSettersStillBeginWithTheirEntryLines)
{
    TaskSgemv sut(1, 1);
    sut.Initialize();
    const LogCapture log("ravelcore.TaskSgemv");
    EXPECT_THROW(sut.SetMatrix({}), brisk::Exception);
    EXPECT_THROW(sut.SetInputVector({}), brisk::Exception);
    EXPECT_THAT(log.Messages(log4cplus::TRACE_LOG_LEVEL),
                ElementsAre(IsEntryOf("SetMatrix"), IsEntryOf("SetInputVector")));
}

TEST(TaskSgemvTest, CycleIsSilentAboveTrace)
{
    const LogCapture log("ravelcore.TaskSgemv", log4cplus::DEBUG_LOG_LEVEL);
    TaskSgemv sut(2, 3);
    FillTwoByThree(sut);
    sut.Execute(0.0, true);
    EXPECT_THAT(log.Events(), IsEmpty());
}

}  // namespace
}  // namespace lumo::ravelcore
