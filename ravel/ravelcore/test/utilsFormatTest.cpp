#include "support/fitsBytes.hpp"
#include "support/logCapture.hpp"
#include "support/temporaryDirectory.hpp"

#include <brisk/exception.hpp>
#include <lumo/ravelcore/utils.hpp>

#include <CCfits/CCfits>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <numeric>
#include <string>
#include <vector>

/// The file format: what is written, bit by bit, and what is made of tables that others wrote.
namespace lumo::ravelcore {
namespace {

using test::BigEndian;
using test::FitsCard;
using test::FitsColumn;
using test::FitsTableFile;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

/// What a load gives back; sizes start at -7, the time stamps with one that is no time.
struct Loaded
{
    int rows = -7;
    int cols = -7;
    std::vector<float> values;
    std::vector<double> timestamps = {-99.0};
};

const std::vector<double> UNTOUCHED = {-99.0};

class UtilsFormatTest : public ::testing::Test
{
protected:
    /// Loads a file of these bytes into m_loaded.
    void Load(const std::string& bytes)
    {
        test::WriteBytes(m_file, bytes);
        LoadFile();
    }

    void LoadFile()
    {
        m_loaded = Loaded();
        LoadMatrixFromFitsBinTable(m_file, m_loaded.rows, m_loaded.cols, m_loaded.values, m_loaded.timestamps);
    }

    void ExpectLoaded(int rows, int cols, const std::vector<float>& values) const
    {
        EXPECT_EQ(m_loaded.rows, rows);
        EXPECT_EQ(m_loaded.cols, cols);
        EXPECT_EQ(m_loaded.values, values);
    }

    test::TemporaryDirectory m_dir;
    std::string m_file = m_dir / "table.fits";
    Loaded m_loaded;
    test::LogCapture m_log{"ravelcore"};  // also keeps entry lines off the terminal
};

using UtilsFormatDeathTest = UtilsFormatTest;

/// The keywords of one header of a file, in order, up to END; `start` is where the header begins.
std::vector<std::string> Keywords(const std::string& bytes, std::size_t start)
{
    std::vector<std::string> keywords;
    for (std::size_t card = start; keywords.empty() || keywords.back() != "END"; card += 80) {
        const std::string keyword = bytes.substr(card, 8);  // throws past the end
        keywords.push_back(keyword.substr(0, keyword.find(' ')));
    }
    return keywords;
}

// ---- writing

TEST_F(UtilsFormatTest, ThreeByTwoIsOneColumnOfTwoElementsNamedAfterTheMatrix)
{
    SaveMatrixToFitsBinTable(m_file, "M2", 3, 2, {}, std::vector<float>{1, 2, 3, 4, 5, 6});
    const std::string bytes = test::ReadBytes(m_file);
    ASSERT_EQ(bytes.size(), 3U * 2880U);  // primary header, table header, data
    const std::string header = bytes.substr(2880, 2880);
    EXPECT_THAT(bytes.substr(0, 2880), HasSubstr("NAXIS   =                    0"));
    EXPECT_THAT(header, HasSubstr("XTENSION= 'BINTABLE'"));
    EXPECT_THAT(header, HasSubstr("NAXIS1  =                    8"));
    EXPECT_THAT(header, HasSubstr("NAXIS2  =                    3"));
    EXPECT_THAT(header, HasSubstr("TFIELDS =                    1"));
    EXPECT_THAT(header, HasSubstr("TTYPE1  = 'M2      '"));
    EXPECT_THAT(header, HasSubstr("TFORM1  = '2E      '"));
    EXPECT_THAT(header, HasSubstr("EXTNAME = 'TABLE_BINARY'"));
    EXPECT_THAT(header, Not(HasSubstr("EXTVER"))) << "version 1 is what a header without it says";
    EXPECT_EQ(bytes.substr(2U * 2880U), test::FitsData(BigEndian<float>({1, 2, 3, 4, 5, 6})));
    LoadFile();
    ExpectLoaded(3, 2, {1, 2, 3, 4, 5, 6});
    EXPECT_EQ(m_loaded.timestamps, UNTOUCHED);
}

TEST_F(UtilsFormatTest, SixteenColumnsHaveFormat16E)
{
    SaveMatrixToFitsBinTable(m_file, "M", 1, 16, {}, std::vector<float>(16, 1.0F));
    EXPECT_THAT(test::ReadBytes(m_file), HasSubstr("TFORM1  = '16E     '"));
}

TEST_F(UtilsFormatTest, TimestampsAreTheFirstColumnInSeconds)
{
    SaveMatrixToFitsBinTable(m_file, "M", 2, 2, {0.5, 0.25}, std::vector<float>{1, 2, 3, 4});
    const std::string bytes = test::ReadBytes(m_file);
    const std::string header = bytes.substr(2880, 2880);
    EXPECT_THAT(header, HasSubstr("TTYPE1  = 'Timestamps'"));
    EXPECT_THAT(header, HasSubstr("TFORM1  = '1D      '"));
    EXPECT_THAT(header, HasSubstr("TUNIT1  = 's       '"));
    EXPECT_THAT(header, HasSubstr("TTYPE2  = 'M       '"));
    EXPECT_THAT(header, HasSubstr("TFORM2  = '2E      '"));
    EXPECT_THAT(header, Not(HasSubstr("TUNIT2  = 's")));
    EXPECT_EQ(bytes.substr(2U * 2880U), test::FitsData(BigEndian<double>({0.5}) + BigEndian<float>({1, 2}) +
                                                       BigEndian<double>({0.25}) + BigEndian<float>({3, 4})));
}

TEST_F(UtilsFormatTest, NoOtherKeywordsAreWritten)
{
    const std::vector<float> values = {1, 2, 3, 4};
    const std::vector<std::string> primary = {"SIMPLE", "BITPIX", "NAXIS", "EXTEND", "COMMENT", "COMMENT", "END"};
    SaveMatrixToFitsBinTable(m_file, "M", 2, 2, {}, values);
    std::string bytes = test::ReadBytes(m_file);
    EXPECT_EQ(Keywords(bytes, 0), primary);
    EXPECT_THAT(Keywords(bytes, 2880), ElementsAre("XTENSION", "BITPIX", "NAXIS", "NAXIS1", "NAXIS2", "PCOUNT",
                                                   "GCOUNT", "TFIELDS", "TTYPE1", "TFORM1", "EXTNAME", "END"));
    m_file = m_dir / "stamped.fits";
    SaveMatrixToFitsBinTable(m_file, "M", 2, 2, {0.5, 0.25}, values);
    bytes = test::ReadBytes(m_file);
    EXPECT_EQ(Keywords(bytes, 0), primary);
    EXPECT_THAT(Keywords(bytes, 2880),
                ElementsAre("XTENSION", "BITPIX", "NAXIS", "NAXIS1", "NAXIS2", "PCOUNT", "GCOUNT", "TFIELDS", "TTYPE1",
                            "TFORM1", "TUNIT1", "TTYPE2", "TFORM2", "EXTNAME", "END"));
}

TEST_F(UtilsFormatTest, FourTimestampsForThreeRowsStoreThree)
{
    SaveMatrixToFitsBinTable(m_file, "M", 3, 2, {1, 2, 3, 4}, std::vector<float>{1, 2, 3, 4, 5, 6});
    LoadFile();
    ExpectLoaded(3, 2, {1, 2, 3, 4, 5, 6});
    EXPECT_THAT(m_loaded.timestamps, ElementsAre(1, 2, 3));
}

TEST_F(UtilsFormatTest, SurplusValuesAreNotStored)
{
    for (const int cols : {1, 2}) {
        SaveMatrixToFitsBinTable(m_dir / std::to_string(cols), "M", 2, cols, {}, std::vector<float>{1, 2, 3, 4, 5});
    }
    EXPECT_THAT(test::ReadBytes(m_dir / "1").substr(2U * 2880U), test::FitsData(BigEndian<float>({1, 2})));
    EXPECT_THAT(test::ReadBytes(m_dir / "2").substr(2U * 2880U), test::FitsData(BigEndian<float>({1, 2, 3, 4})));
}

TEST_F(UtilsFormatTest, OneColumnAndOneRowAreMatricesToo)
{
    for (const bool with_timestamps : {false, true}) {
        for (const auto& [rows, cols] : {std::pair{4, 1}, {1, 4}, {1, 1}}) {
            std::vector<float> values(static_cast<std::size_t>(rows * cols));
            for (std::size_t index = 0; index < values.size(); ++index) {
                values[index] = 0.5F + static_cast<float>(index);
            }
            const std::vector<double> timestamps(with_timestamps ? static_cast<std::size_t>(rows) : 0U, 3.0);
            std::remove(m_file.c_str());
            SaveMatrixToFitsBinTable(m_file, "M", rows, cols, timestamps, values);
            LoadFile();
            ExpectLoaded(rows, cols, values);
            EXPECT_EQ(m_loaded.timestamps, with_timestamps ? timestamps : UNTOUCHED);
        }
    }
}

TEST_F(UtilsFormatTest, MoreColumnsThanATableCanHaveAreOneVectorColumn)
{
    std::vector<float> values(3U * 40000U);
    for (std::size_t index = 0; index < values.size(); ++index) {
        values[index] = static_cast<float>(index);
    }
    SaveMatrixToFitsBinTable(m_file, "M", 3, 40000, {}, values);
    LoadFile();
    ExpectLoaded(3, 40000, values);
}

TEST_F(UtilsFormatTest, EveryBitOfAValueSurvives)
{
    std::vector<float> values;
    for (const std::uint32_t bits :
         {0x7FC00000U, 0xFFC00000U, 0x7FC12345U, 0x7F812345U, 0xFF800001U, 0x7FFFFFFFU,  // quiet and signalling NaNs
          0x7F800000U, 0xFF800000U, 0x00000000U, 0x80000000U, 0x00000001U, 0x807FFFFFU,  // infinities, zeros, denormals
          0x00800000U, 0x7F7FFFFFU, 0xFF7FFFFFU, 0x3F800001U, 0x33333333U, 0xCAFEBABEU}) {
        values.push_back(std::bit_cast<float>(bits));
    }
    const std::vector<double> timestamps = {std::numeric_limits<double>::quiet_NaN(), -0.0, 5e-324, 0.1, 1.0 / 3.0,
                                            std::numeric_limits<double>::infinity()};
    const auto bits_of = [](const auto& numbers) {
        return BigEndian(numbers);
    };
    for (const int cols : {3, 18, 1}) {
        std::remove(m_file.c_str());
        const int rows = static_cast<int>(values.size()) / cols;
        const std::vector<double> stamps = cols == 3 ? timestamps : std::vector<double>();
        SaveMatrixToFitsBinTable(m_file, "M", rows, cols, stamps, values);
        LoadFile();
        EXPECT_EQ(bits_of(m_loaded.values), bits_of(values)) << cols << " columns";
        if (cols == 3) {
            EXPECT_EQ(bits_of(m_loaded.timestamps), bits_of(timestamps));
        }
    }
}

TEST_F(UtilsFormatTest, FloatsHaveLetterEAndAnEntryLineEachTime)
{
    EXPECT_EQ(ConvertTypeToFitsType<float>(), "E");
    EXPECT_EQ(ConvertTypeToFitsType<float>(), "E");
    EXPECT_EQ(m_log.Events(log4cplus::TRACE_LOG_LEVEL).size(), 2U);
}

TEST_F(UtilsFormatTest, NamesThatLookLikeOthersOrLikePatternsKeepTheColumnsApart)
{
    const std::vector<float> values = {1, 2, 3, 4};
    int number = 0;
    for (const std::string& name :
         {std::string("Timestamps"), std::string("TIMESTAMPS"), std::string("T*"), std::string("*"), std::string("#"),
          std::string("a?"), std::string(""), std::string("with blank"), std::string("o'clock"), std::string("1"),
          std::string("x=1"), std::string(68, 'n'), std::string(34, '\'')}) {
        m_file = m_dir / std::to_string(++number);
        SaveMatrixWithTimestamps(m_file, name, 2, 2, values, {7, 8});
        LoadFile();
        ExpectLoaded(2, 2, values);
        EXPECT_THAT(m_loaded.timestamps, ElementsAre(7, 8)) << name;
        std::remove(m_file.c_str());
        SaveMatrix(m_file, name, 4, 1, values);
        LoadFile();
        ExpectLoaded(4, 1, values);
    }
}

TEST_F(UtilsFormatTest, NamesThatAHeaderCannotHoldAreRefusedBeforeAnythingIsWritten)
{
    const std::vector<float> values = {1, 2, 3, 4};
    for (const std::string& name : {std::string(69, 'n'), std::string(35, '\''), std::string(67, 'n') + "'",
                                    std::string("line\nbreak"), std::string("\xc3\xa4"), std::string("nul\0", 4)}) {
        EXPECT_THROW(SaveMatrixToFitsBinTable(m_file, name, 2, 2, {}, values), brisk::Exception) << name;
        EXPECT_THROW(SaveMatrix(m_file, name, 2, 2, values), brisk::Exception) << name;
    }
    EXPECT_THAT(m_dir.List(), IsEmpty());
}

// ---- reading what others wrote

TEST_F(UtilsFormatTest, LoadingAppendsToTheValuesAndReplacesTheTimestamps)
{
    SaveMatrixToFitsBinTable(m_file, "M", 1, 2, {4.0}, std::vector<float>{1, 2});
    int rows = 0;
    int cols = 0;
    std::vector<float> values = {-1.0F};
    std::vector<double> timestamps = {9, 9, 9};
    LoadMatrixFromFitsBinTable(m_file, rows, cols, values, timestamps);
    EXPECT_THAT(values, ElementsAre(-1.0F, 1.0F, 2.0F));
    EXPECT_THAT(timestamps, ElementsAre(4.0));
}

TEST_F(UtilsFormatTest, LoadingAppendsAColumnOfSingleElementsToo)
{
    SaveMatrixToFitsBinTable(m_file, "M", 2, 1, {}, std::vector<float>{1, 2});
    int rows = 0;
    int cols = 0;
    std::vector<float> values = {-1.0F};
    std::vector<double> timestamps;
    LoadMatrixFromFitsBinTable(m_file, rows, cols, values, timestamps);
    EXPECT_THAT(values, ElementsAre(-1.0F, 1.0F, 2.0F));
}

TEST_F(UtilsFormatTest, AnyNumberOfRowsIsReadInTheirOrder)
{
    // Around the number of rows that are read at once.
    for (const int rows : {1, 63, 64, 65, 128, 200}) {
        for (const int cols : {1, 3}) {
            std::vector<std::int32_t> numbers(static_cast<std::size_t>(rows * cols));
            std::iota(numbers.begin(), numbers.end(), 1);
            const std::vector<float> values(numbers.begin(), numbers.end());
            const auto num_rows = static_cast<std::size_t>(rows);
            Load(FitsTableFile({{"a", std::to_string(cols) + "E"}}, num_rows, BigEndian(values)));
            ExpectLoaded(rows, cols, values);
            Load(FitsTableFile({{"a", std::to_string(cols) + "J"}}, num_rows, BigEndian(numbers)));
            ExpectLoaded(rows, cols, values);
        }
    }
}

TEST_F(UtilsFormatTest, ThreeColumnsAreReadFromTheFirst)
{
    const std::string row1 = BigEndian<float>({1, 2}) + BigEndian<double>({9}) + BigEndian<float>({9});
    const std::string row2 = BigEndian<float>({3, 4}) + BigEndian<double>({9}) + BigEndian<float>({9});
    Load(FitsTableFile({{"a", "2E"}, {"Timestamps", "1D"}, {"c", "1E"}}, 2, row1 + row2));
    ExpectLoaded(2, 2, {1, 2, 3, 4});
    EXPECT_EQ(m_loaded.timestamps, UNTOUCHED);
}

TEST_F(UtilsFormatTest, TwoColumnsAreTimestampsAndMatrixWhateverTheirNames)
{
    for (const auto& [first, second] : {std::pair{"x", "Timestamps"}, {"same", "same"}, {"a", "A"}, {"", ""}}) {
        const std::string row1 = BigEndian<float>({7}) + BigEndian<double>({1, 2});
        const std::string row2 = BigEndian<float>({8}) + BigEndian<double>({3, 4});
        Load(FitsTableFile({{first, "E"}, {second, "2D"}}, 2, row1 + row2));
        ExpectLoaded(2, 2, {1, 2, 3, 4});
        EXPECT_THAT(m_loaded.timestamps, ElementsAre(7, 8)) << first;
    }
}

TEST_F(UtilsFormatTest, TheExtensionsNameDoesNotMatter)
{
    for (const std::string& name : std::vector<std::string>{"'SOMETHING ELSE'", "'*'", "''"}) {
        Load(FitsTableFile({{"a", "2E"}}, 1, BigEndian<float>({1, 2}), "", {FitsCard("EXTNAME", name)}));
        ExpectLoaded(1, 2, {1, 2});
    }
}

TEST_F(UtilsFormatTest, OtherNumericColumnsAreConverted)
{
    Load(FitsTableFile({{"a", "2D"}}, 1, BigEndian<double>({1.5, -2})));
    ExpectLoaded(1, 2, {1.5F, -2});
    Load(FitsTableFile({{"a", "D"}}, 2, BigEndian<double>({1.5, -2})));
    ExpectLoaded(2, 1, {1.5F, -2});
    Load(FitsTableFile({{"a", "2I"}}, 1, BigEndian<std::int16_t>({-3, 32767})));
    ExpectLoaded(1, 2, {-3, 32767});
    Load(FitsTableFile({{"a", "2J"}}, 1, BigEndian<std::int32_t>({-3, 65536})));
    ExpectLoaded(1, 2, {-3, 65536});
    Load(FitsTableFile({{"a", "K"}}, 2, BigEndian<std::int64_t>({-3, 65536})));
    ExpectLoaded(2, 1, {-3, 65536});
    Load(FitsTableFile({{"a", "3B"}}, 1, BigEndian<std::uint8_t>({0, 1, 255})));
    ExpectLoaded(1, 3, {0, 1, 255});
    Load(FitsTableFile({{"a", "2L"}}, 1, "TF"));
    ExpectLoaded(1, 2, {1, 0});
    Load(FitsTableFile({{"a", "10X"}}, 1, "\xA0\x40"));
    ExpectLoaded(1, 10, {1, 0, 1, 0, 0, 0, 0, 0, 0, 1});
}

TEST_F(UtilsFormatTest, ScaledIntegersComeInPhysicalUnits)
{
    const std::vector<std::string> scaled = {FitsCard("TSCAL1", "0.5"), FitsCard("TZERO1", "10.0")};
    Load(FitsTableFile({{"a", "2I"}}, 1, BigEndian<std::int16_t>({-20, 3}), "", scaled));
    ExpectLoaded(1, 2, {0.0F, 11.5F});
    Load(FitsTableFile({{"a", "I"}}, 2, BigEndian<std::int16_t>({-20, 3}), "", scaled));
    ExpectLoaded(2, 1, {0.0F, 11.5F});
    Load(FitsTableFile({{"t", "J"}, {"m", "1E"}}, 1, BigEndian<std::int32_t>({-20}) + BigEndian<float>({1}), "",
                       scaled));
    EXPECT_THAT(m_loaded.timestamps, ElementsAre(0.0));
    Load(FitsTableFile({{"a", "2I"}}, 1, BigEndian<std::int16_t>({-32768, 32767}), "", {FitsCard("TZERO1", "32768")}));
    ExpectLoaded(1, 2, {0.0F, 65535.0F});
}

TEST_F(UtilsFormatTest, AnUndefinedIntegerIsReadAsTheNumberThatMarksIt)
{
    Load(FitsTableFile({{"a", "2J"}}, 1, BigEndian<std::int32_t>({-99, 3}), "", {FitsCard("TNULL1", "-99")}));
    ExpectLoaded(1, 2, {-99, 3});
}

TEST_F(UtilsFormatTest, TextAndComplexNumbersRaiseTheColumnTypeException)
{
    for (const auto& [format, data] : {std::pair{"4A", std::string("1234")},
                                       {"1A", std::string("1")},
                                       {"1C", BigEndian<float>({1, 2})},
                                       {"2M", BigEndian<double>({1, 2, 3, 4})}}) {
        EXPECT_THROW(Load(FitsTableFile({{"a", format}}, 1, data)), CCfits::Column::InvalidDataType) << format;
        EXPECT_EQ(m_loaded.rows, 1) << "the rows are known before they are read";
        EXPECT_EQ(m_loaded.cols, -7);
        EXPECT_THAT(m_loaded.values, IsEmpty());
    }
}

TEST_F(UtilsFormatTest, TimestampsThatAreNoNumbersOrVectorsRaiseTheColumnTypeException)
{
    EXPECT_THROW(Load(FitsTableFile({{"t", "4A"}, {"m", "1E"}}, 1, "1234" + BigEndian<float>({1}))),
                 CCfits::Column::InvalidDataType);
    EXPECT_THROW(Load(FitsTableFile({{"t", "2D"}, {"m", "1E"}}, 1, BigEndian<double>({1, 2}) + BigEndian<float>({1}))),
                 CCfits::Column::WrongColumnType);
    EXPECT_EQ(m_loaded.rows, -7);
}

TEST_F(UtilsFormatTest, AColumnOfNoElementsIsAMatrixOfNoColumns)
{
    Load(FitsTableFile({{"t", "J"}, {"m", "0E"}}, 2, BigEndian<std::int32_t>({1, 2})));
    ExpectLoaded(2, 0, {});
    EXPECT_THAT(m_loaded.timestamps, ElementsAre(1, 2));
}

TEST_F(UtilsFormatTest, VariableLengthRowsOfOneLengthAreAMatrix)
{
    const std::string heap = BigEndian<float>({1, 2, 3, 4});
    Load(FitsTableFile({{"a", "1PE(2)"}}, 2, BigEndian<std::int32_t>({2, 0, 2, 8}), heap));
    ExpectLoaded(2, 2, {1, 2, 3, 4});
    Load(FitsTableFile({{"a", "1QE(2)"}}, 2, BigEndian<std::int64_t>({2, 0, 2, 8}), heap));
    ExpectLoaded(2, 2, {1, 2, 3, 4});
    Load(FitsTableFile({{"a", "PE(1)"}}, 2, BigEndian<std::int32_t>({1, 4, 1, 0}), heap));
    ExpectLoaded(2, 1, {2, 1});
}

TEST_F(UtilsFormatTest, VariableLengthRowsThatAreAllEmptyAreAMatrixOfNoColumns)
{
    for (const std::string& format : std::vector<std::string>{"1PE(0)", "PE", "1PE(5)", "1PJ(0)", "1PD(0)"}) {
        Load(FitsTableFile({{"a", format}}, 3, BigEndian<std::int32_t>({0, 0, 0, 0, 0, 0})));
        ExpectLoaded(3, 0, {});
    }
}

TEST_F(UtilsFormatTest, RowsOfDifferentLengthsAreIllFormedAndLeaveTheRowsBeforeThem)
{
    const std::string heap = BigEndian<float>({1, 2, 3, 4, 5});
    const auto load = [&](const std::vector<std::int32_t>& descriptors) {
        try {
            Load(FitsTableFile({{"a", "1PE(2)"}}, descriptors.size() / 2, BigEndian(descriptors), heap));
            ADD_FAILURE() << "nothing was thrown";
        } catch (const brisk::Exception& exception) {
            EXPECT_EQ(exception.GetMessage(), "Ill formed matrix in <" + m_file + "> binary table.");
            EXPECT_EQ(exception.GetFunctionName(), "LoadMatrixFromFitsBinTable");
            EXPECT_EQ(exception.GetFileName(), "utils.cpp");
        }
    };
    load({2, 0, 2, 8, 1, 16});
    ExpectLoaded(3, 2, {1, 2, 3, 4});
    load({2, 0, 0, 0});
    ExpectLoaded(2, 2, {1, 2});
    load({0, 0, 2, 0});
    ExpectLoaded(2, 0, {});
}

TEST_F(UtilsFormatTest, AnErrorOfTheFitsLibraryComesBeforeAnIllFormedRow)
{
    constexpr std::size_t ROWS = 200;  // more than are read at once
    std::vector<std::int32_t> descriptors;
    for (std::size_t row = 0; row < ROWS; ++row) {
        descriptors.push_back(row == 1 ? 1 : 2);
        descriptors.push_back(row == ROWS - 2 ? 1'000'000 : 0);  // past the end
    }
    const std::string heap = BigEndian<float>({1, 2});
    EXPECT_THROW(Load(FitsTableFile({{"a", "1PE(2)"}}, ROWS, BigEndian(descriptors), heap)), CCfits::FitsException);
    EXPECT_EQ(m_loaded.cols, -7);
}

TEST_F(UtilsFormatTest, RowsThatAreOnlyPromisedAreAnErrorOfTheFitsLibraryAndTakeNoMemory)
{
    rusage before = {};
    ::getrusage(RUSAGE_SELF, &before);
    constexpr std::size_t PROMISED = 50'000'000;
    for (const auto& [format, row_bytes] : {std::pair{"E", 4U}, {"2E", 8U}, {"1PE(0)", 8U}}) {
        EXPECT_THROW(Load(test::FitsPrimary() + test::FitsTableHeader({{"a", format}}, row_bytes, PROMISED) +
                          test::FitsData(std::string(8000, '\0'))),
                     CCfits::FitsException)
            << format;
        EXPECT_EQ(m_loaded.rows, PROMISED);
        EXPECT_EQ(m_loaded.cols, -7);
        EXPECT_EQ(m_loaded.values.capacity(), 0U) << format;
    }
    rusage after = {};
    ::getrusage(RUSAGE_SELF, &after);
    EXPECT_LT(after.ru_maxrss - before.ru_maxrss, 100'000) << "KiB; one float per row would be twice as much";
}

TEST_F(UtilsFormatTest, WhatIsNoTableIsAnErrorOfTheFitsLibrary)
{
    EXPECT_THROW(Load(""), CCfits::FitsException);
    EXPECT_THROW(Load(std::string(10000, 'x')), CCfits::FitsException);
    EXPECT_THROW(Load(test::FitsPrimary()), CCfits::FitsException);
    EXPECT_THROW(
        Load(test::FitsPrimary() +
             test::FitsHeader({FitsCard("XTENSION", "'IMAGE'"), FitsCard("BITPIX", "8"), FitsCard("NAXIS", "1"),
                               FitsCard("NAXIS1", "4"), FitsCard("PCOUNT", "0"), FitsCard("GCOUNT", "1")}) +
             test::FitsData("1234")),
        CCfits::FitsException);
    EXPECT_THROW(Load(FitsTableFile({}, 1, "")), CCfits::FitsException);
    m_file = m_dir / "missing.fits";
    EXPECT_THROW(LoadFile(), CCfits::FITS::CantOpen);
    m_file = m_dir.GetPath();
    EXPECT_THROW(LoadFile(), CCfits::FITS::CantOpen);
    m_file = "/dev/null";
    EXPECT_THROW(LoadFile(), CCfits::FITS::CantOpen);
}

TEST_F(UtilsFormatDeathTest, ATableOfNoRowsStopsTheProcess)
{
    test::WriteBytes(m_file, test::FitsPrimary() + test::FitsTableHeader({{"a", "2E"}}, 8, 0));
    EXPECT_DEATH(LoadFile(), "Assertion");
}

TEST_F(UtilsFormatDeathTest, FewerValuesThanPromisedStopTheProcessInsteadOfReadingPastThem)
{
    const std::vector<float> five(5, 1.0F);
    EXPECT_DEATH(SaveMatrixToFitsBinTable(m_file, "M", 2, 3, {}, five), "Assertion");
    EXPECT_DEATH(SaveMatrixToFitsBinTable(m_file, "M", 6, 1, {}, five), "Assertion");
    EXPECT_DEATH(SaveMatrixToFitsBinTable(m_file, "M", 5, 1, {1, 2}, five), "Assertion");
}

}  // namespace
}  // namespace lumo::ravelcore
