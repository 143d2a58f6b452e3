#include "tableValues.hpp"

#include "error.hpp"

#include <fitsio.h>
#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <limits>

namespace lumo::ravelctl {

namespace {

/// A table, open while this lives. Calls with its status do nothing once one of them has failed.
class OpenTable
{
public:
    OpenTable(const std::string& path, int extension_number)
    {
        fits_open_diskfile(&m_fits, path.c_str(), READONLY, &m_status);
        fits_movabs_hdu(m_fits, extension_number + 1, nullptr, &m_status);
    }

    ~OpenTable()
    {
        if (m_fits != nullptr) {
            int ignored = 0;
            fits_close_file(m_fits, &ignored);
        }
    }

    OpenTable(const OpenTable&) = delete;
    OpenTable& operator=(const OpenTable&) = delete;

    /// Calls `use` with the value and its place in the column, counted over all rows.
    template <typename Use>
    void Read(int column, std::int64_t in_row, std::int64_t count, Use&& use)
    {
        constexpr std::int64_t BLOCK = 65536;
        std::vector<double> block(static_cast<std::size_t>(std::min(BLOCK, count)));
        int ignored = 0;  // the FITS library writes there without asking
        double undefined = std::numeric_limits<double>::quiet_NaN();
        for (std::int64_t begin = 0; begin < count && m_status == 0; begin += BLOCK) {
            const std::int64_t length = std::min(BLOCK, count - begin);
            fits_read_col(m_fits, TDOUBLE, column, begin / in_row + 1, begin % in_row + 1, length, &undefined,
                          block.data(), &ignored, &m_status);
            for (std::int64_t i = 0; i < length; ++i) {
                use(begin + i, block[static_cast<std::size_t>(i)]);
            }
        }
    }

    void Check() const
    {
        if (m_status != 0) {
            std::array<char, FLEN_STATUS> text{};
            fits_get_errstatus(m_status, text.data());
            fits_clear_errmsg();
            throw InputError(fmt::format("expected a FITS file that can be read but: {}", text.data()));
        }
    }

private:
    fitsfile* m_fits = nullptr;
    int m_status = 0;
};

/// Beyond its range a number of single precision is infinite.
float Round(double value)
{
    constexpr double LARGEST = std::numeric_limits<float>::max();
    constexpr float INFINITE = std::numeric_limits<float>::infinity();
    if (value > LARGEST) {
        return INFINITE;
    }
    return value < -LARGEST ? -INFINITE : static_cast<float>(value);
}

}  // namespace

TableValues ReadTableValues(const std::string& path, const TableHeader& header)
{
    OpenTable table(path, header.extension_number);
    TableValues read;
    read.cols = static_cast<int>(header.values / header.rows);
    read.values.resize(static_cast<std::size_t>(header.values));
    const auto cols = static_cast<std::size_t>(read.cols);
    const std::int64_t in_row = header.IsOfScalars() ? 1 : read.cols;
    for (std::size_t i = 0; i < header.numbers.size(); ++i) {
        table.Read(header.numbers[i], in_row, header.rows * in_row, [&](std::int64_t place, double value) {
            const auto at = static_cast<std::size_t>(place);
            read.values[header.IsOfScalars() ? at * cols + i : at] = Round(value);
        });
    }
    if (header.HasTime()) {
        read.timestamps.resize(static_cast<std::size_t>(header.rows));
        table.Read(header.time_number, 1, header.rows,
                   [&](std::int64_t row, double value) { read.timestamps[static_cast<std::size_t>(row)] = value; });
    }
    table.Check();
    return read;
}

}  // namespace lumo::ravelctl
