#pragma once

#include <string>
#include <vector>

/// The FITS side of the matrix files; the public functions in utils.cpp stand on it. Templates on the element type, for
/// float. What the FITS library reports passes through as CCfits::FitsException.
namespace lumo::ravelcore {

/// Says why `name` cannot be the name of a column of a FITS table; empty when it can.
std::string FindFlawInColumnName(const std::string& name);

/// Writes the new file of SaveMatrixToFitsBinTable; false when the FITS library gave no table, and no file then.
template <typename T>
bool WriteFitsBinTable(const std::string& filename, const std::string& name, int rows, int cols,
                       const std::vector<double>& timestamps, const std::vector<T>& values);

/// Reads what LoadMatrixFromFitsBinTable returns; false when a row's length differs from the first row's, with the rows
/// before it in `values`.
template <typename T>
bool ReadFitsBinTable(const std::string& path, int& rows, int& cols, std::vector<T>& values,
                      std::vector<double>& timestamps);

}  // namespace lumo::ravelcore
