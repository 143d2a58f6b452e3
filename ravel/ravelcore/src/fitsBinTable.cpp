#include "fitsBinTable.hpp"

#include "plainFile.hpp"

#include <lumo/ravelcore/utils.hpp>

#include <CCfits/CCfits>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <valarray>

namespace lumo::ravelcore {

namespace {

const std::string TABLE_NAME = "TABLE_BINARY";
constexpr int TABLE_VERSION = 1;
const std::string TIMESTAMPS_NAME = "Timestamps";
const std::string TIMESTAMPS_FORMAT = "1D";
const std::string TIMESTAMPS_UNIT = "s";

/// The three parallel lists that describe a table's columns to the FITS library.
struct ColumnLists
{
    std::vector<std::string> names;
    std::vector<std::string> formats;
    std::vector<std::string> units;

    void Add(const std::string& name, const std::string& format, const std::string& unit)
    {
        names.push_back(name);
        formats.push_back(format);
        units.push_back(unit);
    }
};

/// One array per row, as the FITS library takes a vector column.
template <typename T>
std::vector<std::valarray<T>> CutIntoRows(const std::vector<T>& values, std::size_t rows, std::size_t cols)
{
    const std::span<const T> all(values);
    std::vector<std::valarray<T>> arrays;
    arrays.reserve(rows);
    for (std::size_t row = 0; row < rows; ++row) {
        arrays.emplace_back(all.subspan(row * cols, cols).data(), cols);
    }
    return arrays;
}

template <typename T>
void WriteMatrixColumn(CCfits::Column& column, const std::vector<T>& values, int rows, int cols)
{
    const auto num_rows = static_cast<std::size_t>(rows);
    const auto num_cols = static_cast<std::size_t>(cols);
    if (num_cols == 1) {
        // To the FITS library a column of one element per row is not a vector column and takes no arrays.
        const std::span<const T> stored = std::span<const T>(values).first(num_rows);
        column.write(std::vector<T>(stored.begin(), stored.end()), 1);
    } else {
        column.writeArrays(CutIntoRows(values, num_rows, num_cols), 1);
    }
}

// How columns are read. In pieces of so many rows, or else a third copy of the matrix would stand beside the result and
// what the FITS library keeps. The last row first: a file that has it has all of them, and neither the FITS library nor
// we make room for them on the header's word alone.
constexpr int ROWS_AT_ONCE = 64;

/// Appends the elements of a column of one element per row, whatever numeric type it stores.
template <typename T>
void AppendElements(CCfits::Column& column, int rows, std::vector<T>& values)
{
    std::vector<T> elements;
    column.read(elements, rows, rows);
    values.reserve(values.size() + static_cast<std::size_t>(rows));
    for (int done = 0; done < rows; done += static_cast<int>(elements.size())) {
        column.read(elements, done + 1, done + std::min(ROWS_AT_ONCE, rows - done));
        values.insert(values.end(), elements.begin(), elements.end());
    }
}

/// Appends the rows of a column of arrays, whatever numeric type it stores, up to the first whose length differs from
/// the first row's length, which is returned in `cols`; false when there is such a row.
template <typename T>
bool AppendArrays(CCfits::Column& column, int rows, int& cols, std::vector<T>& values)
{
    std::vector<std::valarray<T>> arrays;
    if (rows > 0) {
        column.readArrays(arrays, rows, rows);
        values.reserve(values.size() + (column.varLength() ? 0 : static_cast<std::size_t>(rows) * column.repeat()));
    }
    std::optional<std::size_t> length;
    bool well_formed = true;
    for (int done = 0; done < rows; done += static_cast<int>(arrays.size())) {
        column.readArrays(arrays, done + 1, done + std::min(ROWS_AT_ONCE, rows - done));
        length = length.value_or(arrays[0].size());
        // All rows are read: what the FITS library objects to in a later one comes before what is wrong with their
        // lengths.
        for (const std::valarray<T>& array : arrays) {
            well_formed = well_formed && array.size() == *length;
            if (well_formed) {
                values.insert(values.end(), std::begin(array), std::end(array));
            }
        }
    }
    cols = static_cast<int>(*length);  // a table of no rows ends here: access is checked
    return well_formed;
}

/// AppendArrays for all columns: to the FITS library one of fewer than two elements per row is no column of arrays, and
/// one of no elements has one per row.
template <typename T>
bool AppendRows(CCfits::Column& column, int rows, int& cols, std::vector<T>& values)
{
    if (rows == 0 || column.varLength() || column.repeat() > 1) {
        return AppendArrays(column, rows, cols, values);
    }
    if (column.repeat() == 1) {
        AppendElements(column, rows, values);
    }
    cols = static_cast<int>(column.repeat());
    return true;
}

/// The FITS library knows scale and offset (TSCAL, TZERO) of a column that has both, but hands on the scale alone to
/// the layer below it, which does the work.
void RestoreScaling(const CCfits::ExtHDU& table, const CCfits::Column& column)
{
    int status = 0;
    if (column.scale() != 1.0 &&
        fits_set_tscale(table.fitsPointer(), column.index(), column.scale(), column.zero(), &status) != 0) {
        throw CCfits::FitsError(status);
    }
}

/// Opens a file and nothing but its primary header; what comes after is read on request. The FITS library's
/// constructors that read on leave the file open for ever when they meet damage.
class InputFile
{
public:
    explicit InputFile(const std::string& path)
        : m_file(path), m_fits(m_file.GetSafePath(), CCfits::Read, std::vector<std::string>{}, false)
    {
    }

    CCfits::ExtHDU& ReadFirstExtension()
    {
        m_fits.read(1);
        return m_fits.extension(1);
    }

private:
    ExistingFile m_file;
    CCfits::FITS m_fits;
};

/// The end of a table, which is the file's last HDU: the number of bytes of the file.
std::uint64_t GetEnd(const CCfits::Table& table)
{
    LONGLONG end = 0;
    int status = 0;
    if (fits_get_hduaddrll(table.fitsPointer(), nullptr, nullptr, &end, &status) != 0) {
        throw CCfits::FitsError(status);
    }
    return static_cast<std::uint64_t>(end);
}

/// Creates the file `safe_path`, which does not exist yet, and closes it. Returns its size in bytes; none when the FITS
/// library gave no table.
template <typename T>
std::optional<std::uint64_t> WriteFitsFile(const std::string& safe_path, const std::string& name, int rows, int cols,
                                           const std::vector<double>& timestamps, const std::vector<T>& values)
{
    CCfits::FITS fits(safe_path, CCfits::Write);
    ColumnLists columns;
    if (!timestamps.empty()) {
        columns.Add(TIMESTAMPS_NAME, TIMESTAMPS_FORMAT, TIMESTAMPS_UNIT);
    }
    columns.Add(name, std::to_string(cols) + ConvertTypeToFitsType<T>(), "");
    CCfits::Table* const table = fits.addTable(TABLE_NAME, rows, columns.names, columns.formats, columns.units,
                                               CCfits::BinaryTbl, TABLE_VERSION);
    if (table == nullptr) {
        return std::nullopt;
    }
    // By position: looked up by name, a column may be mistaken for one that differs in case only.
    if (!timestamps.empty()) {
        const auto stored = std::span<const double>(timestamps).first(static_cast<std::size_t>(rows));
        table->column(1).write(std::vector<double>(stored.begin(), stored.end()), 1);
    }
    WriteMatrixColumn(table->column(static_cast<int>(columns.names.size())), values, rows, cols);
    fits.flush();  // the destructor closes the file and keeps to itself what goes wrong
    return GetEnd(*table);
}

}  // namespace

std::string FindFlawInColumnName(const std::string& name)
{
    constexpr std::size_t MAX_LENGTH = 68;  // one header card of 80 characters, less keyword and quotes
    const auto quotes = static_cast<std::size_t>(std::count(name.begin(), name.end(), '\''));  // stored doubled
    const std::string cannot = "Matrix name <" + name + "> cannot name a column: ";
    if (name.size() + quotes > MAX_LENGTH) {
        return cannot + "it takes " + std::to_string(name.size() + quotes) + " characters where a file has room for " +
               std::to_string(MAX_LENGTH) + ".";
    }
    const auto is_text = [](char character) {
        return character >= ' ' && character <= '~';
    };
    if (!std::all_of(name.begin(), name.end(), is_text)) {
        return cannot + "it has characters other than printable ASCII.";
    }
    return "";
}

template <typename T>
bool WriteFitsBinTable(const std::string& filename, const std::string& name, int rows, int cols,
                       const std::vector<double>& timestamps, const std::vector<T>& values)
{
    NewFile new_file(filename);
    const auto size = WriteFitsFile(new_file.GetSafePath(), name, rows, cols, timestamps, values);
    if (size) {
        new_file.Publish(*size);
    }
    return size.has_value();
}

template <typename T>
bool ReadFitsBinTable(const std::string& path, int& rows, int& cols, std::vector<T>& values,
                      std::vector<double>& timestamps)
{
    InputFile file(path);
    CCfits::ExtHDU& table = file.ReadFirstExtension();
    table.readAllKeys();
    const bool has_timestamps = table.numCols() == 2;
    CCfits::Column& matrix = table.column(has_timestamps ? 2 : 1);
    RestoreScaling(table, matrix);
    if (has_timestamps && matrix.rows() > 0) {
        CCfits::Column& column = table.column(1);
        RestoreScaling(table, column);
        column.read(timestamps, 1, column.rows());
    }
    rows = matrix.rows();
    return AppendRows(matrix, rows, cols, values);
}

template bool WriteFitsBinTable<float>(const std::string&, const std::string&, int, int, const std::vector<double>&,
                                       const std::vector<float>&);
template bool ReadFitsBinTable<float>(const std::string&, int&, int&, std::vector<float>&, std::vector<double>&);

}  // namespace lumo::ravelcore
