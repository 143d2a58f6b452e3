#pragma once

#include <lumo/ravelcore/export.hpp>

#include <string>
#include <vector>

/// Matrix files. All functions stand on their own: they hold no state and no lock, and two calls that use the same file
/// at the same time are not coordinated. None of them is for the cycle: they allocate and touch files.
/// The templates exist for T = float, compiled into the library.
namespace lumo::ravelcore {

/// How a matrix is laid out in a file.
enum class FileFormat
{
    FitsBinTable,  ///< FITS: an empty primary HDU and one binary table, one table row per matrix row
};

/// Saves a matrix, replacing the whole file. An empty `filename` is skipped quietly, whatever the other arguments.
/// Thread:    any but a worker's.
/// Real time: no.
/// Data:      `values` row-major, rows x cols; surplus elements at its end are not stored. `name` labels the matrix in
///            messages and names its column. A `filename` that ends in ".gz" is compressed.
/// Failure:   brisk::Exception: no elements, fewer values than rows x cols, two negative sizes, whatever their product,
///            a name that no column can have, a file that exists while `overwrite` is false, and any error of the FITS
///            library, with its text. Nothing is touched before sizes and name are checked. A failed write leaves no
///            file; the old one is gone by then.
template <typename T>
RAVELCORE_API void SaveMatrix(const std::string& filename, const std::string& name, int rows, int cols,
                              const std::vector<T>& values, bool overwrite = true,
                              FileFormat format = FileFormat::FitsBinTable);

/// Loads a matrix. An empty `filename` is skipped quietly and changes nothing.
/// Thread:    any but a worker's.
/// Real time: no.
/// Data:      `filename` is looked up by brisk::Helper::FindFile. `rows` and `cols` hold the expected size, a negative
///            one meaning any; on return the file's. `values` is replaced, row-major. Time stamps are left aside.
/// Failure:   brisk::Exception: no such file, another size, rows of different lengths. CCfits::FitsException as it is:
///            whatever the FITS library objects to. `rows`, `cols` and `values` are then not to be used.
template <typename T>
RAVELCORE_API void LoadMatrix(const std::string& filename, const std::string& name, int& rows, int& cols,
                              std::vector<T>& values, FileFormat format = FileFormat::FitsBinTable);

/// As SaveMatrix, with one time stamp per row, which LoadMatrix leaves aside and LoadMatrixFromFitsBinTable gives back.
/// Thread:    any but a worker's.
/// Real time: no.
/// Data:      as SaveMatrix; `timestamps` in seconds, at least `rows` of them, of which the first `rows` are stored.
/// Failure:   as SaveMatrix; also brisk::Exception for fewer time stamps than rows.
template <typename T>
RAVELCORE_API void SaveMatrixWithTimestamps(const std::string& filename, const std::string& name, int rows, int cols,
                                            const std::vector<T>& values, const std::vector<double>& timestamps,
                                            bool overwrite = true, FileFormat format = FileFormat::FitsBinTable);

/// The letter of a FITS table column (TFORM) for elements of type T: "E" for float.
/// Thread: any. Real time: no.
template <typename T>
RAVELCORE_API std::string ConvertTypeToFitsType();

/// Writes a new file with one binary table, "TABLE_BINARY": a column "Timestamps" when there are any, and one vector
/// column `name` of `cols` elements. Callers have checked the sizes and removed what was there.
/// Thread:    any but a worker's.
/// Real time: no.
/// Data:      rows, cols >= 1; `values` row-major, at least rows x cols; `timestamps` in seconds, none or >= `rows`.
/// Failure:   CCfits::FitsException, also when something of that name is there already, which is left as it is;
///            brisk::Exception for a name that no column can have. A file that could not be written to its end is not
///            left behind. Too few values or time stamps end the process.
template <typename T>
RAVELCORE_API void SaveMatrixToFitsBinTable(const std::string& filename, const std::string& name, int rows, int cols,
                                            const std::vector<double>& timestamps, const std::vector<T>& values);

/// Reads the first extension of a FITS file: column 1 of its table, or, of exactly two columns, time stamps and matrix.
/// Names are not looked at.
/// Thread:    any but a worker's.
/// Real time: no.
/// Data:      the matrix, row-major, is appended to `values`; `timestamps`, in seconds, are replaced if the table has
///            any and left alone otherwise.
/// Failure:   CCfits::FitsException; brisk::Exception for rows of different lengths, with the rows before in `values`.
///            A table of no rows is no matrix: it ends the process.
template <typename T>
RAVELCORE_API void LoadMatrixFromFitsBinTable(const std::string& path, int& rows, int& cols, std::vector<T>& values,
                                              std::vector<double>& timestamps);

/// Makes way for a new file: removes what has its name. That it could not be removed shows when the file is written.
/// Thread:    any but a worker's.
/// Real time: no.
/// Failure:   brisk::Exception when the file exists and `overwrite` is false.
RAVELCORE_API void CheckForExitingFile(const std::string& filename, bool overwrite);

/// Whether a size is the expected one. A negative expectation means any and is replaced by what is there; 0 means 0.
/// Thread:    any.
/// Real time: no.
/// Failure:   none.
RAVELCORE_API bool CheckForExpectedSize(int rows, int cols, int& expectedRows, int& expectedCols);

extern template RAVELCORE_API void SaveMatrix<float>(const std::string&, const std::string&, int, int,
                                                     const std::vector<float>&, bool, FileFormat);
extern template RAVELCORE_API void LoadMatrix<float>(const std::string&, const std::string&, int&, int&,
                                                     std::vector<float>&, FileFormat);
extern template RAVELCORE_API void SaveMatrixWithTimestamps<float>(const std::string&, const std::string&, int, int,
                                                                   const std::vector<float>&,
                                                                   const std::vector<double>&, bool, FileFormat);
extern template RAVELCORE_API std::string ConvertTypeToFitsType<float>();
extern template RAVELCORE_API void SaveMatrixToFitsBinTable<float>(const std::string&, const std::string&, int, int,
                                                                   const std::vector<double>&,
                                                                   const std::vector<float>&);
extern template RAVELCORE_API void LoadMatrixFromFitsBinTable<float>(const std::string&, int&, int&,
                                                                     std::vector<float>&, std::vector<double>&);

}  // namespace lumo::ravelcore
