#include "tableRows.hpp"

#include <fitsio.h>

namespace lumo::ravelctl {

namespace {

/// The first extension of a file, open while this lives. Calls with its status do nothing once one of them has failed.
class Table
{
public:
    explicit Table(const std::string& file)
    {
        fits_open_diskfile(&m_fits, file.c_str(), READONLY, &m_status);
        fits_movabs_hdu(m_fits, 2, nullptr, &m_status);
    }

    ~Table()
    {
        if (m_fits != nullptr) {
            int ignored = 0;
            fits_close_file(m_fits, &ignored);
        }
    }

    Table(const Table&) = delete;
    Table& operator=(const Table&) = delete;

    std::optional<std::int64_t> CountRows()
    {
        LONGLONG rows = 0;
        fits_read_key(m_fits, TLONGLONG, "NAXIS2", &rows, nullptr, &m_status);
        return m_status == 0 ? std::optional<std::int64_t>(rows) : std::nullopt;
    }

    /// A column of scalars; empty where there is no such column.
    std::vector<double> ReadColumn(const char* name)
    {
        const std::optional<std::int64_t> rows = CountRows();
        int column = 0;
        std::string changeable = name;
        fits_get_colnum(m_fits, CASESEN, changeable.data(), &column, &m_status);
        if (m_status != 0 || *rows < 1) {
            return {};
        }
        std::vector<double> values(static_cast<std::size_t>(*rows));
        fits_read_col(m_fits, TDOUBLE, column, 1, 1, *rows, nullptr, values.data(), nullptr, &m_status);
        return m_status == 0 ? values : std::vector<double>();
    }

private:
    fitsfile* m_fits = nullptr;
    int m_status = 0;
};

}  // namespace

std::optional<std::int64_t> CountTableRows(const std::string& file)
{
    return Table(file).CountRows();
}

std::vector<double> ReadTimestamps(const std::string& file)
{
    return Table(file).ReadColumn("Timestamps");
}

}  // namespace lumo::ravelctl
