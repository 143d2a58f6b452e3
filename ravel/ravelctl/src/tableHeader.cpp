#include "tableHeader.hpp"

#include "error.hpp"

#include <fitsio.h>
#include <fmt/core.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdlib>
#include <iterator>
#include <limits>
#include <map>

namespace lumo::ravelctl {

namespace {

constexpr const char* WANTED = "expected a FITS file with a table of numbers";

[[noreturn]] void Refuse(const std::string& reason)
{
    throw InputError(fmt::format("{} but {}", WANTED, reason));
}

/// Failure of the FITS library's last call, in its own words.
void Check(int status)
{
    if (status != 0) {
        std::array<char, FLEN_STATUS> text{};
        fits_get_errstatus(status, text.data());
        fits_clear_errmsg();
        Refuse(fmt::format("the file is none: {}", text.data()));
    }
}

struct NumberType
{
    const char* words;
    int code;
    bool exact;  // as 32-bit floats
};

constexpr NumberType NUMBER_TYPES[] = {
    {"32-bit floats", TFLOAT, true},          {"64-bit floats", TDOUBLE, false},
    {"8-bit unsigned integers", TBYTE, true}, {"8-bit integers", TSBYTE, true},
    {"16-bit integers", TSHORT, true},        {"16-bit unsigned integers", TUSHORT, true},
    {"32-bit integers", TLONG, false},        {"32-bit unsigned integers", TULONG, false},
    {"64-bit integers", TLONGLONG, false},    {"64-bit unsigned integers", TULONGLONG, false},
};

/// None for texts, logical values, bits and complex numbers.
const NumberType* FindNumberType(int code)
{
    for (const NumberType& type : NUMBER_TYPES) {
        if (type.code == std::abs(code)) {
            return &type;
        }
    }
    return nullptr;
}

struct Column
{
    int number = 0;
    std::string name;
    std::string format;
    std::string unit;
    int type = 0;  // negative: of rows of different lengths
    std::int64_t repeat = 0;

    bool IsOfNumbers() const { return FindNumberType(type) != nullptr; }
    bool IsOfScalars() const { return IsOfNumbers() && type > 0 && repeat == 1; }
};

/// An open file, at its first table.
class Extension
{
public:
    explicit Extension(const std::string& path)
    {
        int status = 0;
        fits_open_diskfile(&m_fits, path.c_str(), READONLY, &status);
        Check(status);
    }

    ~Extension()
    {
        int ignored = 0;
        fits_close_file(m_fits, &ignored);
    }

    Extension(const Extension&) = delete;
    Extension& operator=(const Extension&) = delete;

    /// Returns which extension it is, 1 being the first.
    int GoToTable()
    {
        int status = 0;
        int count = 0;
        fits_get_num_hdus(m_fits, &count, &status);
        Check(status);
        if (count < 2) {
            Refuse("it has no extension");
        }
        for (int hdu = 2; hdu <= count; ++hdu) {
            int kind = 0;
            fits_movabs_hdu(m_fits, hdu, &kind, &status);
            Check(status);
            if (kind == BINARY_TBL || kind == ASCII_TBL) {
                return hdu - 1;
            }
        }
        Refuse("there are only images");
    }

    /// The text of a keyword; empty where there is none.
    std::string GetText(const std::string& key)
    {
        std::array<char, FLEN_VALUE> text{};
        int status = 0;
        fits_read_key(m_fits, TSTRING, key.c_str(), text.data(), nullptr, &status);
        return status == 0 ? text.data() : "";
    }

    int CountColumns()
    {
        int count = 0;
        int status = 0;
        fits_get_num_cols(m_fits, &count, &status);
        Check(status);
        return count;
    }

    std::int64_t CountRows()
    {
        LONGLONG count = 0;
        int status = 0;
        fits_get_num_rowsll(m_fits, &count, &status);
        Check(status);
        return count;
    }

    /// With its type as its values are after scaling.
    Column GetColumn(int number)
    {
        Column column;
        LONGLONG repeat = 0;
        int status = 0;
        fits_get_eqcoltypell(m_fits, number, &column.type, &repeat, nullptr, &status);
        Check(status);
        column.number = number;
        column.repeat = repeat;
        column.name = GetText(fmt::format("TTYPE{}", number));
        column.format = GetText(fmt::format("TFORM{}", number));
        column.unit = GetText(fmt::format("TUNIT{}", number));
        return column;
    }

private:
    fitsfile* m_fits = nullptr;
};

std::string ToLower(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
    return text;
}

/// How many are a second; none for a unit that is not known here.
std::optional<double> FindTimeUnit(const std::string& unit)
{
    static const std::map<std::string, double> UNITS = {{"s", 1.0},
                                                        {"sec", 1.0},
                                                        {"second", 1.0},
                                                        {"seconds", 1.0},
                                                        {"ms", 1.0e3},
                                                        {"msec", 1.0e3},
                                                        {"us", 1.0e6},
                                                        {"usec", 1.0e6},
                                                        {"ns", 1.0e9},
                                                        {"nsec", 1.0e9},
                                                        {"millisecond", 1.0e3},
                                                        {"milliseconds", 1.0e3},
                                                        {"microsecond", 1.0e6},
                                                        {"microseconds", 1.0e6},
                                                        {"nanosecond", 1.0e9},
                                                        {"nanoseconds", 1.0e9}};
    constexpr std::size_t SYMBOL = 2;  // letters at most; their case counts: Ms are millions of seconds
    const auto found = UNITS.find(unit.size() > SYMBOL ? ToLower(unit) : unit);
    return found == UNITS.end() ? std::nullopt : std::optional<double>(found->second);
}

bool IsNamedLikeTime(const Column& column)
{
    const std::string name = ToLower(column.name);
    return name == "t" || name == "time" || name == "times" || name.starts_with("time_") ||
           name.starts_with("timestamp");
}

/// Beside a column of vectors the first of two is the time stamps, whatever its name, as in a file of the library;
/// scalars that stand side by side tell by their names and units. None where there are no time stamps.
const Column* FindTime(const std::vector<Column>& columns)
{
    const bool is_beside_vectors = columns.size() == 2 && columns[1].IsOfNumbers() && !columns[1].IsOfScalars();
    if (is_beside_vectors && columns[0].IsOfScalars()) {
        return columns.data();
    }
    const auto find = [&columns](const auto& is_wanted) -> const Column* {
        const auto found = std::find_if(columns.begin(), columns.end(), [&is_wanted](const Column& column) {
            return column.IsOfScalars() && is_wanted(column);
        });
        return columns.size() < 2 || found == columns.end() ? nullptr : &*found;
    };
    const Column* const by_name = find(IsNamedLikeTime);
    return by_name != nullptr ? by_name
                              : find([](const Column& column) { return FindTimeUnit(column.unit).has_value(); });
}

/// A column of vectors that comes first, or else all of scalars, or else the first of numbers.
std::vector<Column> FindMatrix(const std::vector<Column>& columns, const Column* time)
{
    std::vector<Column> others;
    std::copy_if(columns.begin(), columns.end(), std::back_inserter(others),
                 [time](const Column& column) { return time == nullptr || column.number != time->number; });
    if (others.front().IsOfNumbers() && !others.front().IsOfScalars()) {
        return {others.front()};
    }
    std::vector<Column> scalars;
    std::copy_if(others.begin(), others.end(), std::back_inserter(scalars),
                 [](const Column& column) { return column.IsOfScalars(); });
    if (!scalars.empty()) {
        return scalars;
    }
    const auto numbers =
        std::find_if(others.begin(), others.end(), [](const Column& column) { return column.IsOfNumbers(); });
    if (numbers == others.end()) {
        Refuse(fmt::format("its column '{}' holds no real numbers (format {})", others.front().name,
                           others.front().format));
    }
    return {*numbers};
}

/// The first few of them.
std::string JoinFew(const std::vector<std::string>& texts)
{
    constexpr std::size_t FEW = 5;
    const auto end = texts.begin() + static_cast<std::ptrdiff_t>(std::min(FEW, texts.size()));
    const std::string few = fmt::format("{}", fmt::join(texts.begin(), end, ", "));
    return texts.size() > FEW ? fmt::format("{} and {} more", few, texts.size() - FEW) : few;
}

constexpr std::int64_t MOST = std::numeric_limits<std::int32_t>::max();

void DescribeMatrix(const std::vector<Column>& matrix, TableHeader& header)
{
    std::vector<std::string> formats;
    std::int64_t in_row = 0;
    for (const Column& column : matrix) {
        const NumberType& type = *FindNumberType(column.type);
        if (column.repeat > MOST) {
            Refuse(fmt::format("its rows are of {} values, more than the {} that can be read", column.repeat, MOST));
        }
        header.numbers.push_back(column.number);
        header.names.push_back(column.name.empty() ? fmt::format("column {}", column.number) : column.name);
        formats.push_back(column.format);
        header.type = formats.size() == 1 || header.type == type.words ? type.words : "numbers of several types";
        header.exact = header.exact && type.exact;
        in_row += column.type < 0 ? 0 : column.repeat;
    }
    header.name = matrix.size() == 1 ? matrix.front().name : JoinFew(header.names);
    header.format = JoinFew(formats);
    header.values = header.rows * in_row;
    if (matrix.front().type < 0 && !header.IsMatrixFile()) {
        Refuse(
            fmt::format("the rows of its column '{}' are of variable length, which is read only where it is the first "
                        "extension's matrix",
                        header.name));
    }
}

}  // namespace

bool TableHeader::IsMatrixFile() const
{
    const int matrix = columns == 2 ? 2 : 1;
    return extension_number == 1 && numbers == std::vector<int>{matrix} && time_number == matrix - 1;
}

TableHeader ReadTableHeader(const std::string& path)
{
    Extension extension(path);
    TableHeader header;
    header.extension_number = extension.GoToTable();
    header.extension = extension.GetText("EXTNAME");
    header.columns = extension.CountColumns();
    header.rows = extension.CountRows();
    if (header.columns < 1) {
        Refuse("the table has no columns");
    }
    if (header.rows < 1) {
        Refuse("the table has no rows");
    }
    if (header.rows > MOST) {
        Refuse(fmt::format("the table has {} rows, more than the {} that can be read", header.rows, MOST));
    }
    std::vector<Column> columns;
    for (int number = 1; number <= header.columns; ++number) {
        columns.push_back(extension.GetColumn(number));
    }
    if (const Column* const time = FindTime(columns)) {
        header.time_number = time->number;
        header.time_column = time->name;
        header.time_unit = time->unit;
        header.time_units_per_s = time->unit.empty() ? 1.0 : FindTimeUnit(time->unit);
    }
    DescribeMatrix(FindMatrix(columns, header.HasTime() ? &columns.at(header.time_number - 1) : nullptr), header);
    return header;
}

}  // namespace lumo::ravelctl
