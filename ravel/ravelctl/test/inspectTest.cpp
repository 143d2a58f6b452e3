#include "error.hpp"
#include "inspect.hpp"
#include "support/quietLog.hpp"
#include "support/testFolder.hpp"
#include "support/textFile.hpp"
#include "support/thrown.hpp"

#include <lumo/ravelcore/utils.hpp>

#include <fitsio.h>
#include <fmt/core.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sys/stat.h>

#include <charconv>
#include <functional>
#include <limits>
#include <numeric>
#include <sstream>

namespace lumo::ravelctl {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using testing::HasSubstr;

constexpr float NAN_VALUE = std::numeric_limits<float>::quiet_NaN();

/// What the program would print, and its exit status.
struct Printed
{
    std::string out;
    std::string err;
    int status = -1;
};

struct ForeignColumn
{
    std::string name;
    std::string format;
    std::string unit = "";
};

class InspectTest : public testing::Test
{
protected:
    InspectTest() { test::QuietLog(); }

    fs::path Save(const std::string& name, int cols, const std::vector<float>& values,
                  const std::vector<double>& stamps = {}) const
    {
        const fs::path file = m_folder / name;
        const int rows = static_cast<int>(values.size()) / cols;
        if (stamps.empty()) {
            ravelcore::SaveMatrix(file.string(), "M", rows, cols, values);
        } else {
            ravelcore::SaveMatrixWithTimestamps(file.string(), "modes_in", rows, cols, values, stamps);
        }
        return file;
    }

    /// A table that is not ours, of zeros and of what `fill` writes into it.
    fs::path MakeForeign(const std::vector<ForeignColumn>& columns, int rows, int type = BINARY_TBL,
                         const std::function<void(fitsfile* fits, int& status)>& fill = {}, int images = 0) const
    {
        fs::path file = m_folder / "foreign.fits";
        fs::remove(file);
        std::vector<char*> names;
        std::vector<char*> formats;
        std::vector<char*> units;
        for (const ForeignColumn& column : columns) {
            names.push_back(const_cast<char*>(column.name.c_str()));
            formats.push_back(const_cast<char*>(column.format.c_str()));
            units.push_back(const_cast<char*>(column.unit.c_str()));
        }
        fitsfile* fits = nullptr;
        int status = 0;
        long size[] = {2, 2};
        fits_create_diskfile(&fits, file.c_str(), &status);
        for (int image = 0; image < images; ++image) {  // the first is no extension
            fits_create_img(fits, FLOAT_IMG, 2, size, &status);
        }
        fits_create_tbl(fits, type, rows, static_cast<int>(columns.size()), names.data(), formats.data(), units.data(),
                        "FOREIGN", &status);
        if (fill) {
            fill(fits, status);
        }
        fits_close_file(fits, &status);
        EXPECT_EQ(status, 0);
        return file;
    }

    /// Four samples of three values, 2 ms apart.
    fs::path SaveSmall(const std::string& name = "small.fits") const
    {
        return Save(name, 3, {1, 0.5, -1, 2, 0.5, -2, 3, 0.5, -3, 6, 0.5, -6}, {0.0, 0.002, 0.004, 0.006});
    }

    static Printed Inspect(const InspectOptions& options)
    {
        std::ostringstream out;
        std::ostringstream err;
        const int status = InspectFiles(options, out, err);
        return {out.str(), err.str(), status};
    }

    static std::string Show(const InspectOptions& options)
    {
        const Printed printed = Inspect(options);
        EXPECT_EQ(printed.err, "");
        EXPECT_EQ(printed.status, EXIT_OK);
        return printed.out;
    }

    static InspectOptions Of(const std::vector<fs::path>& files)
    {
        InspectOptions options;
        options.files = files;
        return options;
    }

    static std::string Show(const fs::path& file) { return Show(Of({file})); }

    /// The one line about a file that cannot be read, without its beginning.
    static std::string Refusal(const InspectOptions& options)
    {
        const Printed printed = Inspect(options);
        const std::string begin = "ravelctl: " + options.files.front().string() + ": ";
        EXPECT_EQ(printed.status, EXIT_BAD_INPUT);
        EXPECT_EQ(printed.out, "");
        EXPECT_EQ(printed.err.substr(0, begin.size()), begin);
        EXPECT_EQ(printed.err.find('\n') + 1, printed.err.size()) << printed.err;
        return printed.err.size() > begin.size()
                   ? printed.err.substr(begin.size(), printed.err.size() - begin.size() - 1)
                   : "";
    }

    static std::string Refusal(const fs::path& file) { return Refusal(Of({file})); }

    test::TestFolder m_folder;
};

TEST_F(InspectTest, ARecordingIsShownInAFewAlignedLines)
{
    const fs::path file = SaveSmall();
    EXPECT_EQ(Show(file), file.string() +
                              "  (8.6 kB)\n"
                              "  table      modes_in, 3 columns, 4 rows, 32-bit floats; time stamps from Timestamps\n"
                              "  time       0.000 to 0.006 s, 4 samples\n"
                              "  period     2.000 ms (500 Hz), jitter 0.000 us rms, max 0.000 us\n"
                              "  gaps       none\n"
                              "  values     finite\n");
}

TEST_F(InspectTest, AMatrixHasNoTime)
{
    const fs::path file = Save("m.fits", 1, {1.0F});
    EXPECT_EQ(Show(file), file.string() +
                              "  (8.6 kB)\n"
                              "  table      M, 1 column, 1 row, 32-bit floats\n"
                              "  time       no time stamps\n"
                              "  values     finite\n");
}

TEST_F(InspectTest, OneSampleAloneHasATimeButNoPeriod)
{
    EXPECT_THAT(Show(Save("one.fits", 2, {1, 2}, {1.5})),
                HasSubstr("\n  time       1.500 s, 1 sample\n  values     finite\n"));
}

TEST_F(InspectTest, TheFirstFewGapsAndStepsBackAreShownAndTheOthersCounted)
{
    const std::vector<double> stamps = {0, 1, 2, 3, 4, 7, 8, 9, 10, 13, 14, 15, 16, 19, 20, 21, 24, 25, 26, 24, 25};
    EXPECT_THAT(Show(Save("gaps.fits", 1, std::vector<float>(stamps.size()), stamps)),
                HasSubstr("  time       0.000 to 25.000 s, 21 samples\n"
                          "  period     1000.000 ms (1 Hz), jitter 0.000 us rms, max 0.000 us\n"
                          "  gaps       4: 3000.000 ms after row 4 at 4.000 s, 3000.000 ms after row 8 at 10.000 s, "
                          "3000.000 ms after row 12 at 16.000 s and 1 more\n"
                          "  going back 1: -2000.000 ms after row 18 at 26.000 s\n"
                          "  values     finite\n"));
}

TEST_F(InspectTest, TimeStampsThatDoNotGoOnAndThoseThatAreNoNumbersAreTold)
{
    EXPECT_THAT(Show(Save("back.fits", 1, {1, 2, 3}, {3.0, 2.0, 1.0})),
                HasSubstr("  period     none: most time stamps do not go on\n"
                          "  going back 2: -1000.000 ms after row 0 at 3.000 s, -1000.000 ms after row 1 at 2.000 s\n"
                          "  values "));
    const double nan = std::numeric_limits<double>::quiet_NaN();
    EXPECT_THAT(Show(Save("nan.fits", 1, {1, 2, 3, 4}, {0.0, 1.0, nan, 3.0})),
                HasSubstr("  time       0.000 to 3.000 s, 4 samples\n"
                          "             1 not finite, the first in row 2\n"
                          "  period     1000.000 ms"));
}

TEST_F(InspectTest, ValuesThatAreNotFiniteAreCountedAndTheFirstIsNamed)
{
    EXPECT_THAT(Show(Save("nan.fits", 2, {1, 2, 3, NAN_VALUE, NAN_VALUE, 6})),
                HasSubstr("  values     2 not finite, the first in row 1, column 1: nan\n"));
}

TEST_F(InspectTest, StatisticsAreATableOfTheColumnsAskedFor)
{
    InspectOptions options = Of({SaveSmall()});
    options.statistics = true;
    const std::string title =
        "  values     finite\n"
        "  column           min           max          mean           rms     deviation\n";
    const std::string row_0 = "       0             1             6             3       3.53553       1.87083\n";
    const std::string row_1 = "       1           0.5           0.5           0.5           0.5             0\n";
    const std::string row_2 = "       2            -6            -1            -3       3.53553       1.87083\n";
    EXPECT_TRUE(Show(options).ends_with(title + row_0 + row_1 + row_2)) << Show(options);
    options.columns = "2,0";
    EXPECT_TRUE(Show(options).ends_with(title + row_0 + row_2)) << Show(options);
}

TEST_F(InspectTest, StatisticsSayHowManyValuesTheyLeaveAside)
{
    InspectOptions options = Of({Save("nan.fits", 2, {1, NAN_VALUE, 3, NAN_VALUE})});
    options.statistics = true;
    EXPECT_TRUE(Show(options).ends_with(
        "  column           min           max          mean           rms     deviation    not finite\n"
        "       0             1             3             2       2.23607             1             0\n"
        "       1           nan           nan           nan           nan           nan             2\n"));
}

TEST_F(InspectTest, CsvIsALineOfNamesAndTheRowsWithTheTimeFirst)
{
    InspectOptions options = Of({SaveSmall()});
    options.csv = true;
    const std::string all =
        "time_s,modes_in_0,modes_in_1,modes_in_2\n0,1,0.5,-1\n0.002,2,0.5,-2\n0.004,3,0.5,-3\n0.006,6,0.5,-6\n";
    EXPECT_EQ(Show(options), all);
    options.columns = "2,0";
    EXPECT_EQ(Show(options), "time_s,modes_in_0,modes_in_2\n0,1,-1\n0.002,2,-2\n0.004,3,-3\n0.006,6,-6\n");
    options.rows = {1, 3};
    EXPECT_EQ(Show(options), "time_s,modes_in_0,modes_in_2\n0.002,2,-2\n0.004,3,-3\n");
    options.rows = {3, std::nullopt};
    EXPECT_EQ(Show(options), "time_s,modes_in_0,modes_in_2\n0.006,6,-6\n");
}

TEST_F(InspectTest, CsvGivesEveryBitBack)
{
    const std::vector<float> values = {0.1F, 1.0F / 3.0F, 1e-45F, -3.4028235e38F, 16777217.0F, -0.0F};
    const std::vector<double> stamps = {1.0 / 3.0};
    InspectOptions options = Of({Save("bits.fits", 6, values, stamps)});
    options.csv = true;
    const std::string text = Show(options);
    const char* at = text.data() + text.find('\n') + 1;
    const char* const end = text.data() + text.size();
    double stamp = 0.0;
    at = std::from_chars(at, end, stamp).ptr + 1;
    EXPECT_EQ(stamp, stamps[0]);
    for (const float value : values) {
        float found = 0.0F;
        at = std::from_chars(at, end, found).ptr + 1;
        EXPECT_EQ(found, value);
        EXPECT_EQ(std::signbit(found), std::signbit(value));
    }
    EXPECT_EQ(at, end);
}

TEST_F(InspectTest, CsvOfAMatrixHasNoTimeAndSaysWhatIsNoNumber)
{
    InspectOptions options = Of({Save("m.fits", 2, {1, NAN_VALUE, std::numeric_limits<float>::infinity(), 4})});
    options.csv = true;
    EXPECT_EQ(Show(options), "M_0,M_1\n1,nan\ninf,4\n");
}

TEST_F(InspectTest, ANameThatWouldBreakALineOfCsvIsQuoted)
{
    InspectOptions options = Of({MakeForeign({{"a,\"b", "2E"}}, 1)});
    options.csv = true;
    EXPECT_EQ(Show(options), "\"a,\"\"b_0\",\"a,\"\"b_1\"\n0,0\n");
}

TEST_F(InspectTest, RowsAndColumnsThatThereAreNotAreRefusedWithThoseThatThereAre)
{
    InspectOptions options = Of({SaveSmall()});
    options.csv = true;
    options.rows = {0, 5};
    EXPECT_EQ(Refusal(options), "--rows: expected some of the rows 0:4 but got 0:5");
    options.rows = {4, std::nullopt};
    EXPECT_EQ(Refusal(options), "--rows: expected some of the rows 0:4 but got 4:");
    options.rows = {2, 2};
    EXPECT_EQ(Refusal(options), "--rows: expected some of the rows 0:4 but got 2:2");
    options.rows = {};
    options.columns = "3";
    EXPECT_EQ(Refusal(options), "--columns: expected columns 0 to 2 but got 3");
    options.columns = "x";
    EXPECT_EQ(Refusal(options), "--columns: expected a list of columns, such as 5 or 0,3,10-19, but got x");
    options.files = {MakeForeign({{"v", "0E"}}, 1)};
    EXPECT_EQ(Refusal(options), "--columns: the table's rows are empty; leave the option out");
}

TEST_F(InspectTest, JsonHasTheSameFactsOfAllFiles)
{
    const fs::path small = SaveSmall();
    const fs::path matrix = Save("m.fits", 2, {1, 2, NAN_VALUE, 4});
    InspectOptions options = Of({small, matrix});
    options.json = true;
    const json found = json::parse(Show(options));
    EXPECT_EQ(found.at("problems"), json::array());
    const json& first = found.at("files").at(0);
    EXPECT_EQ(first.at("file"), small.string());
    EXPECT_EQ(first.at("bytes"), fs::file_size(small));
    EXPECT_EQ(first.at("extension"), "TABLE_BINARY");
    EXPECT_EQ(first.at("name"), "modes_in");
    EXPECT_EQ(first.at("format"), "3E");
    EXPECT_EQ(first.at("type"), "32-bit floats");
    EXPECT_EQ(first.at("columns"), 3);
    EXPECT_EQ(first.at("rows"), 4);
    EXPECT_EQ(first.at("table_columns"), 2);
    EXPECT_EQ(first.at("extension_number"), 1);
    EXPECT_EQ(first.at("time_unit"), "s");
    EXPECT_EQ(first.at("column_names"), nullptr);
    EXPECT_EQ(first.at("time").at("column"), "Timestamps");
    EXPECT_EQ(first.at("time").at("samples"), 4);
    EXPECT_EQ(first.at("time").at("first_s"), 0.0);
    EXPECT_EQ(first.at("time").at("last_s"), 0.006);
    EXPECT_EQ(first.at("time").at("period_s"), 0.002);
    EXPECT_EQ(first.at("time").at("gaps"), json::array());
    EXPECT_EQ(first.at("time").at("going_back"), json::array());
    EXPECT_EQ(first.at("values"), json({{"not_finite", 0}, {"first_not_finite", nullptr}}));
    EXPECT_FALSE(first.contains("statistics"));
    const json& second = found.at("files").at(1);
    EXPECT_EQ(second.at("time"), nullptr);
    EXPECT_EQ(second.at("values"), json({{"not_finite", 1}, {"first_not_finite", {{"row", 1}, {"column", 0}}}}));
}

TEST_F(InspectTest, JsonHasGapsStepsBackAndStatistics)
{
    InspectOptions options =
        Of({Save("odd.fits", 2, {1, NAN_VALUE, 2, NAN_VALUE, 3, NAN_VALUE, 6, NAN_VALUE, 8, NAN_VALUE, 4, NAN_VALUE},
                 {0.0, 1.0, 2.0, 5.0, 4.0, 5.0})});
    options.json = true;
    options.statistics = true;
    const json found = json::parse(Show(options)).at("files").at(0);
    EXPECT_EQ(found.at("time").at("gaps"), json::parse(R"([{"row": 2, "time_s": 2.0, "length_s": 3.0}])"));
    EXPECT_EQ(found.at("time").at("going_back"), json::parse(R"([{"row": 3, "time_s": 5.0, "length_s": -1.0}])"));
    EXPECT_EQ(found.at("time").at("jitter_max_s"), 0.0);
    const json& statistics = found.at("statistics");
    ASSERT_EQ(statistics.size(), 2U);
    EXPECT_EQ(statistics[0].at("column"), 0);
    EXPECT_EQ(statistics[0].at("min"), 1.0);
    EXPECT_EQ(statistics[0].at("max"), 8.0);
    EXPECT_EQ(statistics[0].at("mean"), 4.0);
    EXPECT_DOUBLE_EQ(statistics[0].at("rms").get<double>(), std::sqrt(130.0 / 6.0));
    EXPECT_DOUBLE_EQ(statistics[0].at("standard_deviation").get<double>(), std::sqrt(34.0 / 6.0));
    EXPECT_EQ(statistics[1].at("not_finite"), 6);
    EXPECT_EQ(statistics[1].at("mean"), nullptr);
    options.columns = "0";
    EXPECT_EQ(json::parse(Show(options)).at("files").at(0).at("statistics").size(), 1U);
}

TEST_F(InspectTest, AFileThatCannotBeReadIsOneLineAndTheOthersAreStill)
{
    const fs::path before = SaveSmall("before.fits");
    const fs::path missing = m_folder / "missing.fits";
    const fs::path after = SaveSmall("after.fits");
    const std::string complaint =
        missing.string() + ": expected a FITS file but it cannot be opened: No such file or directory";
    InspectOptions options = Of({before, missing, after});
    const Printed printed = Inspect(options);
    EXPECT_EQ(printed.status, EXIT_BAD_INPUT);
    EXPECT_EQ(printed.err, "ravelctl: " + complaint + "\n");
    EXPECT_EQ(printed.out, Show(before) + "\n" + Show(after));

    options.json = true;
    const Printed as_json = Inspect(options);
    EXPECT_EQ(as_json.status, EXIT_BAD_INPUT);
    EXPECT_EQ(as_json.err, printed.err);
    const json found = json::parse(as_json.out);
    EXPECT_EQ(found.at("files").size(), 2U);
    EXPECT_EQ(found.at("problems"), json({{{"file", missing.string()}, {"problem", complaint}}}));
}

TEST_F(InspectTest, NamesAreTakenAsTheyAre)
{
    for (const char* name : {"a[1].fits", "!a.fits", "a(b).fits", "a.fits[1][col x]", "with space+1", "[a]"}) {
        EXPECT_THAT(Show(SaveSmall(name)), HasSubstr("  table      modes_in, 3 columns, 4 rows")) << name;
    }
}

TEST_F(InspectTest, ACompressedFileIsReadToo)
{
    EXPECT_THAT(Show(SaveSmall("a.fits.gz")), HasSubstr("  table      modes_in, 3 columns, 4 rows"));
}

TEST_F(InspectTest, NamesThatAreNotUtf8GiveJsonAllTheSame)
{
    InspectOptions options = Of({SaveSmall("\xff.fits")});
    options.json = true;
    EXPECT_THAT(json::parse(Show(options)).at("files").at(0).at("file"), HasSubstr("\xef\xbf\xbd.fits"));
}

TEST_F(InspectTest, WhatIsNoFileIsRefused)
{
    EXPECT_EQ(Refusal(m_folder.GetPath()), "expected a FITS file but it is a folder; name the files in it");
    EXPECT_EQ(Refusal(fs::path("/dev/null")), "expected a FITS file but it is no file");
    const fs::path pipe = m_folder / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    EXPECT_EQ(Refusal(pipe), "expected a FITS file but it is no file");
}

TEST_F(InspectTest, WhatIsNoFitsFileOrBreaksOffIsRefused)
{
    const std::string whole = test::ReadBytes(SaveSmall());
    const fs::path file = m_folder / "broken.fits";
    for (const std::string& bytes : {std::string(), std::string("text\n"), std::string(5000, 'x'), whole.substr(0, 80),
                                     whole.substr(0, 2880), whole.substr(0, 4000), whole.substr(0, 5760)}) {
        test::WriteBytes(file, bytes);
        EXPECT_THAT(Refusal(file), HasSubstr("expected a FITS ")) << bytes.size();
    }
}

TEST_F(InspectTest, ATableThatMakesNoMatrixIsRefusedAndSaysWhatItHas)
{
    const std::string wanted = "expected a FITS file with a table of numbers but ";
    EXPECT_EQ(Refusal(MakeForeign({{"v", "3E"}}, 0)), wanted + "the table has no rows");
    EXPECT_EQ(Refusal(MakeForeign({}, 0)), wanted + "the table has no columns");
    for (const char* format : {"5A", "3L", "8X", "2C", "2M"}) {
        EXPECT_EQ(Refusal(MakeForeign({{"v", format}}, 2)),
                  wanted + "its column 'v' holds no real numbers (format " + format + ")");
    }
    EXPECT_EQ(Refusal(MakeForeign({{"t", "1PE"}, {"v", "3E"}}, 2)),
              wanted +
                  "the rows of its column 't' are of variable length, which is read only where it is the first "
                  "extension's matrix");
    EXPECT_EQ(Refusal(MakeForeign({{"t", "1D"}, {"v", "8A"}}, 2)),
              wanted + "its column 'v' holds no real numbers (format 8A)");
}

TEST_F(InspectTest, RowsOfDifferentLengthsAreRefusedWithTheRemedy)
{
    float v[] = {1, 2, 3};
    const fs::path file = MakeForeign({{"v", "1PE"}}, 2, BINARY_TBL, [&v](fitsfile* fits, int& status) {
        fits_write_col(fits, TFLOAT, 1, 1, 1, 1, v, &status);
        fits_write_col(fits, TFLOAT, 1, 2, 1, 3, v, &status);
    });
    const Printed printed = Inspect(Of({file}));
    EXPECT_EQ(printed.status, EXIT_BAD_INPUT);
    EXPECT_EQ(printed.err, "ravelctl: Ill formed matrix in <" + file.string() +
                               "> binary table: expected rows of one length; save the values with as many in each "
                               "row\n");
}

TEST_F(InspectTest, AFileWithoutATableIsRefused)
{
    const fs::path file = m_folder / "image.fits";
    fitsfile* fits = nullptr;
    int status = 0;
    long size[] = {2, 2};
    fits_create_diskfile(&fits, file.c_str(), &status);
    fits_create_img(fits, FLOAT_IMG, 2, size, &status);
    fits_flush_file(fits, &status);
    const std::string wanted = "expected a FITS file with a table of numbers but ";
    EXPECT_EQ(Refusal(file), wanted + "it has no extension");
    fits_create_img(fits, FLOAT_IMG, 2, size, &status);
    fits_close_file(fits, &status);
    ASSERT_EQ(status, 0);
    EXPECT_EQ(Refusal(file), wanted + "there are only images");
}

TEST_F(InspectTest, TablesOfOtherNumbersAreShownWithTheirType)
{
    const auto table_line = [](const std::string& text) {
        const std::size_t begin = text.find("  table      ");
        return text.substr(begin + 13, text.find('\n', begin) - begin - 13);
    };
    EXPECT_EQ(table_line(Show(MakeForeign({{"v", "2D"}}, 3))),
              "v, 2 columns, 3 rows, 64-bit floats read as 32-bit floats");
    EXPECT_EQ(table_line(Show(MakeForeign({{"v", "2I"}}, 3))), "v, 2 columns, 3 rows, 16-bit integers");
    EXPECT_EQ(table_line(Show(MakeForeign({{"t", "J"}, {"v", "2K"}}, 3))),
              "v, 2 columns, 3 rows, 64-bit integers read as 32-bit floats; time stamps from t (no unit, taken as s)");
    EXPECT_EQ(table_line(Show(MakeForeign({{"a", "2E"}, {"b", "E"}, {"c", "E"}}, 3))),
              "a, 2 columns, 3 rows, 32-bit floats; the first of 3 in the table");
    EXPECT_EQ(table_line(Show(MakeForeign({{"v", "E12.4"}}, 3, ASCII_TBL))), "v, 1 column, 3 rows, 32-bit floats");
    EXPECT_THAT(Show(MakeForeign({{"v", "0E"}}, 3)), HasSubstr("  values     none\n"));
}

TEST_F(InspectTest, TimeStampsAreReadInTheUnitOfTheirColumn)
{
    double stamps[] = {0.0, 2.0, 4.0};
    const auto fill = [&stamps](fitsfile* fits, int& status) {
        fits_write_col(fits, TDOUBLE, 1, 1, 1, 3, stamps, &status);
    };
    const auto show = [&](const std::string& unit) {
        return Show(MakeForeign({{"Time", "1D", unit}, {"v", "2E"}}, 3, BINARY_TBL, fill));
    };
    EXPECT_THAT(show("s"), HasSubstr("; time stamps from Time\n  time       0.000 to 4.000 s, 3 samples\n"
                                     "  period     2000.000 ms (0.5 Hz)"));
    EXPECT_THAT(show("ms"), HasSubstr("; time stamps from Time (ms)\n  time       0.000 to 0.004 s, 3 samples\n"
                                      "  period     2.000 ms (500 Hz)"));
    EXPECT_THAT(show("us"), HasSubstr("  period     0.002 ms (500000 Hz)"));
    EXPECT_THAT(show("ns"), HasSubstr("  period     0.000 ms (5e+08 Hz)"));
    EXPECT_THAT(show(""), HasSubstr("; time stamps from Time (no unit, taken as s)\n  time       0.000 to 4.000 s,"));
    EXPECT_THAT(show("d"), HasSubstr("; time stamps from Time (d)\n"
                                     "  time       not judged: d is no unit that is known here (s, ms, us or ns)\n"
                                     "  values     finite\n"));
    EXPECT_THAT(show("MSEC"), HasSubstr("  period     2.000 ms (500 Hz)"));
    EXPECT_THAT(show("Ms"), HasSubstr("not judged: Ms is no unit"));
    InspectOptions options = Of({MakeForeign({{"Time", "1D", "ms"}, {"v", "2E"}}, 3, BINARY_TBL, fill)});
    options.csv = true;
    EXPECT_EQ(Show(options), "time_s,v_0,v_1\n0,0,0\n0.002,0,0\n0.004,0,0\n");
    MakeForeign({{"Time", "1D", "d"}, {"v", "2E"}}, 3, BINARY_TBL, fill);
    EXPECT_EQ(Show(options), "Time_d,v_0,v_1\n0,0,0\n2,0,0\n4,0,0\n");
    options.csv = false;
    options.json = true;
    const json found = json::parse(Show(options)).at("files").at(0);
    EXPECT_EQ(found.at("time"), nullptr);
    EXPECT_EQ(found.at("time_unit"), "d");
}

TEST_F(InspectTest, ColumnsOfScalarsAreShownSideBySideWithTheirNames)
{
    double stamps[] = {0.0, 2.0, 4.0};
    double x[] = {1.0, 2.0, 3.0};
    std::int32_t y[] = {-5, 7, 9};
    const auto fill = [&](fitsfile* fits, int& status) {
        fits_write_col(fits, TDOUBLE, 1, 1, 1, 3, x, &status);
        fits_write_col(fits, TDOUBLE, 2, 1, 1, 3, stamps, &status);
        fits_write_col(fits, TINT, 4, 1, 1, 3, y, &status);
    };
    InspectOptions options =
        Of({MakeForeign({{"x", "1D"}, {"Time", "1D", "ms"}, {"who", "8A"}, {"y", "1J"}}, 3, BINARY_TBL, fill)});
    EXPECT_THAT(Show(options),
                HasSubstr("  table      x, y, 2 columns, 3 rows, numbers of several types read as 32-bit floats; time "
                          "stamps from Time (ms); 1 of the table's 4 columns left out\n"
                          "  time       0.000 to 0.004 s, 3 samples\n"));
    options.statistics = true;
    EXPECT_TRUE(
        Show(options).ends_with("  column           min           max          mean           rms     deviation  name\n"
                                "       0             1             3             2       2.16025      0.816497  x\n"
                                "       1            -5             9       3.66667       7.18795       6.18241  y\n"))
        << Show(options);
    options.json = true;
    const json found = json::parse(Show(options)).at("files").at(0);
    EXPECT_EQ(found.at("column_names"), json({"x", "y"}));
    EXPECT_EQ(found.at("statistics").at(1).at("name"), "y");
    options.json = options.statistics = false;
    options.csv = true;
    EXPECT_EQ(Show(options), "time_s,x,y\n0,1,-5\n0.002,2,7\n0.004,3,9\n");
    options.columns = "1";
    EXPECT_EQ(Show(options), "time_s,y\n0,-5\n0.002,7\n0.004,9\n");
}

TEST_F(InspectTest, AmongScalarsTheTimeIsToldByNameAndThenByUnit)
{
    InspectOptions options;
    options.csv = true;
    const auto heading = [&](const std::vector<ForeignColumn>& columns) {
        options.files = {MakeForeign(columns, 1)};
        const std::string text = Show(options);
        return text.substr(0, text.find('\n'));
    };
    EXPECT_EQ(heading({{"x", "1E"}, {"y", "1E"}}), "x,y");
    EXPECT_EQ(heading({{"x", "1E"}, {"who", "8A"}}), "x_0") << "beside text it is no time";
    EXPECT_EQ(heading({{"x", "1E"}, {"when", "1D", "us"}}), "time_s,x_0");
    EXPECT_EQ(heading({{"lag", "1E", "s"}, {"TIMESTAMP", "1D", "s"}, {"y", "1E"}}), "time_s,lag,y");
    EXPECT_EQ(heading({{"T", "1K"}, {"x", "1E"}}), "time_s,x_0");
    EXPECT_EQ(heading({{"timely", "1E"}, {"y", "1E"}}), "timely,y");
    EXPECT_EQ(heading({{"Time", "1D", "s"}, {"v", "2E"}, {"w", "1E"}}), "time_s,v_0,v_1") << "the vector comes first";
    EXPECT_EQ(heading({{"", "1E"}, {"y", "1E"}}), "column 1,y");
}

TEST_F(InspectTest, ValuesThatASingleNumberCannotHoldAndThoseThatAreNotDefinedAreNotFinite)
{
    double x[] = {1e300, -1e300};
    std::int32_t y[] = {4, -99};
    InspectOptions options = Of({MakeForeign({{"x", "1D"}, {"y", "1J"}}, 2, BINARY_TBL, [&](auto* fits, int& status) {
        std::int64_t undefined = -99;
        fits_write_key(fits, TLONGLONG, "TNULL2", &undefined, nullptr, &status);
        fits_write_col(fits, TDOUBLE, 1, 1, 1, 2, x, &status);
        fits_write_col(fits, TINT, 2, 1, 1, 2, y, &status);
    })});
    options.csv = true;
    EXPECT_EQ(Show(options), "x,y\ninf,4\n-inf,nan\n");
}

TEST_F(InspectTest, TheFirstTableIsShownWhereverItStands)
{
    float v[] = {1, 2, 3, 4};
    const auto fill = [&v](fitsfile* fits, int& status) {
        fits_write_col(fits, TFLOAT, 1, 1, 1, 4, v, &status);
    };
    InspectOptions options = Of({MakeForeign({{"v", "2E"}}, 2, BINARY_TBL, fill, 3)});
    EXPECT_THAT(Show(options), HasSubstr("  table      v, 2 columns, 2 rows, 32-bit floats; in extension 3\n"));
    options.csv = true;
    EXPECT_EQ(Show(options), "v_0,v_1\n1,2\n3,4\n");
}

TEST_F(InspectTest, LongColumnsAndLongRowsAreReadWhole)
{
    constexpr int MANY = 70'000;
    std::vector<double> many(MANY);
    std::iota(many.begin(), many.end(), 0.0);
    const auto fill = [&many](fitsfile* fits, int& status) {
        fits_write_col(fits, TDOUBLE, 1, 1, 1, MANY, many.data(), &status);
    };
    InspectOptions options = Of({MakeForeign({{"x", "1D"}, {"y", "1D"}}, MANY, BINARY_TBL, fill)});
    options.csv = true;
    options.rows = {MANY - 1, std::nullopt};
    EXPECT_EQ(Show(options), "x,y\n69999,0\n");
    MakeForeign({{"v", "35000D"}}, 2, BINARY_TBL, fill, 2);
    options.rows = {1, 2};
    options.columns = "0,30536,34999";  // the last value of one block and the first of the next are in this row
    EXPECT_EQ(Show(options), "v_0,v_30536,v_34999\n35000,65536,69999\n");
}

TEST_F(InspectTest, MoreThanTheMachineHasMemoryForIsRefusedBeforeItIsRead)
{
    const fs::path file = MakeForeign({{"v", "100000E"}}, 1);
    std::string bytes = test::ReadBytes(file);
    const std::string one = fmt::format("NAXIS2  = {:>20}", 1);
    const std::size_t place = bytes.find(one);
    ASSERT_NE(place, std::string::npos);
    bytes.replace(place, one.size(), fmt::format("NAXIS2  = {:>20}", 100'000'000));
    test::WriteBytes(file, bytes);
    EXPECT_THAT(Refusal(file), HasSubstr("the values need 160.0 TB of memory but the machine has "));
    bytes.replace(place, one.size(), fmt::format("NAXIS2  = {:>20}", 3'000'000'000));
    test::WriteBytes(file, bytes);
    EXPECT_THAT(Refusal(file), HasSubstr("the table has 3000000000 rows, more than the 2147483647 that can be read"));
}

TEST_F(InspectTest, OutputThatTakesNoMoreIsAnError)
{
    std::ostringstream out;
    std::ostringstream err;
    out.setstate(std::ios::badbit);
    EXPECT_EQ(test::ThrownLine<RunError>([&] { InspectFiles(Of({SaveSmall()}), out, err); }),
              "cannot write to standard output; free some space or send it elsewhere");
}

}  // namespace
}  // namespace lumo::ravelctl
