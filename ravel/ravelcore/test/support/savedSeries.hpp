#pragma once

#include <lumo/ravelcore/utils.hpp>

#include <CCfits/CCfits>

#include <string>
#include <vector>

namespace lumo::ravelcore::test {

/// A saved sample series as it is in its file.
struct SavedSeries
{
    int rows = -1;
    int cols = -1;
    std::vector<float> values;
    std::vector<double> timestamps;
    std::vector<std::string> columns;  ///< names of the table's columns
};

inline SavedSeries ReadSavedSeries(const std::string& path)
{
    SavedSeries series;
    LoadMatrixFromFitsBinTable(path, series.rows, series.cols, series.values, series.timestamps);
    const CCfits::FITS file(path, CCfits::Read);
    const CCfits::ExtHDU& table = file.extension(1);
    for (int column = 1; column <= table.numCols(); ++column) {
        series.columns.push_back(table.column(column).name());
    }
    return series;
}

}  // namespace lumo::ravelcore::test
