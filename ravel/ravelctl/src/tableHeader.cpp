#include "tableHeader.hpp"

#include "error.hpp"

#include <fitsio.h>
#include <fmt/core.h>

#include <array>
#include <cstdlib>
#include <limits>

namespace lumo::ravelctl {

namespace {

constexpr const char* WANTED = "expected a FITS file with a table of numbers in its first extension";

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

/// An open file, at its first extension.
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

    /// Goes to the first extension.
    void GoToTable()
    {
        int status = 0;
        int kind = 0;
        int count = 0;
        fits_get_num_hdus(m_fits, &count, &status);
        Check(status);
        if (count < 2) {
            Refuse("it has no extension");
        }
        fits_movabs_hdu(m_fits, 2, &kind, &status);
        Check(status);
        if (kind != BINARY_TBL && kind != ASCII_TBL) {
            Refuse("there is an image");
        }
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

    struct Column
    {
        int type = 0;  // negative: of rows of different lengths
        std::int64_t repeat = 0;
    };

    /// As its values are after scaling.
    Column GetColumn(int number)
    {
        Column column;
        LONGLONG repeat = 0;
        int status = 0;
        fits_get_eqcoltypell(m_fits, number, &column.type, &repeat, nullptr, &status);
        Check(status);
        column.repeat = repeat;
        return column;
    }

private:
    fitsfile* m_fits = nullptr;
};

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

void CheckTimeColumn(const Extension::Column& column, const std::string& name)
{
    if (column.repeat != 1 || column.type < 0 || FindNumberType(column.type) == nullptr) {
        Refuse(fmt::format("of its two columns the first ('{}') is not one time stamp per row", name));
    }
}

}  // namespace

TableHeader ReadTableHeader(const std::string& path)
{
    Extension extension(path);
    extension.GoToTable();
    TableHeader header;
    header.extension = extension.GetText("EXTNAME");
    header.columns = extension.CountColumns();
    header.rows = extension.CountRows();
    constexpr std::int64_t MOST = std::numeric_limits<std::int32_t>::max();
    if (header.columns < 1) {
        Refuse("the table has no columns");
    }
    if (header.rows < 1) {
        Refuse("the table has no rows");
    }
    if (header.rows > MOST) {
        Refuse(fmt::format("the table has {} rows, more than the {} that can be read", header.rows, MOST));
    }
    if (header.HasTime()) {
        header.time_column = extension.GetText("TTYPE1");
        CheckTimeColumn(extension.GetColumn(1), header.time_column);
    }
    const int matrix = header.HasTime() ? 2 : 1;
    header.name = extension.GetText(fmt::format("TTYPE{}", matrix));
    header.format = extension.GetText(fmt::format("TFORM{}", matrix));
    const Extension::Column column = extension.GetColumn(matrix);
    const NumberType* const type = FindNumberType(column.type);
    if (type == nullptr) {
        Refuse(fmt::format("its column '{}' holds no real numbers (format {})", header.name, header.format));
    }
    if (column.repeat > MOST) {
        Refuse(fmt::format("its rows are of {} values, more than the {} that can be read", column.repeat, MOST));
    }
    header.type = type->words;
    header.exact = type->exact;
    header.values = column.type < 0 ? 0 : header.rows * column.repeat;
    return header;
}

}  // namespace lumo::ravelctl
