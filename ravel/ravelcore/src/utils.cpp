#include "fitsBinTable.hpp"

#include <brisk/helper.hpp>
#include <lumo/ravelcore/exception.hpp>
#include <lumo/ravelcore/logger.hpp>
#include <lumo/ravelcore/utils.hpp>

#include <CCfits/CCfits>

#include <cstdint>
#include <cstdio>
#include <exception>
#include <type_traits>

namespace lumo::ravelcore {

namespace {

/// "[rows,cols]"
std::string SizeText(int rows, int cols)
{
    return "[" + std::to_string(rows) + "," + std::to_string(cols) + "]";
}

/// rows x cols as 32-bit signed arithmetic has it, which wraps around; computed unsigned, where that is defined.
std::int64_t WrappedProduct(int rows, int cols)
{
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(rows) * static_cast<std::uint32_t>(cols));
}

std::string InvalidSizeText(const std::string& name, int rows, int cols)
{
    return "Matrix " + name + " has invalid size " + SizeText(rows, cols) + " or no elements.";
}

std::string TooFewValuesText(std::size_t num_values, std::int64_t expected)
{
    return "Size mismatch: values size is " + std::to_string(num_values) + " but file should contain " +
           std::to_string(expected) + " elements!";
}

std::string UnknownFormatText(FileFormat format)
{
    return "Unknown file format " + std::to_string(static_cast<int>(format)) + ", expecting FileFormat::FitsBinTable.";
}

/// Why these values do not make a matrix of this size; empty when they do.
std::string FindFlawInSize(const std::string& name, int rows, int cols, std::size_t num_values)
{
    if (num_values == 0 || rows == 0 || cols == 0) {
        return InvalidSizeText(name, rows, cols);
    }
    // Compared unsigned: a negative product is larger than any vector.
    const std::int64_t product = WrappedProduct(rows, cols);
    return num_values < static_cast<std::uint64_t>(product) ? TooFewValuesText(num_values, product) : "";
}

/// Why there are not enough time stamps; empty when there are. Compared unsigned, as above.
std::string FindFlawInTimestamps(int rows, std::size_t num_timestamps)
{
    if (num_timestamps >= static_cast<std::uint64_t>(std::int64_t{rows})) {
        return "";
    }
    return "Size mismatch: timestamps size is " + std::to_string(num_timestamps) + " but file should contain " +
           std::to_string(rows) + " rows.";
}

/// What FindFlawInSize lets pass although no file can hold it: two negative sizes, a product beyond 32 bits that wraps
/// around to fewer values than are needed, a name that no column can have, a format that does not exist.
std::string FindFlawInRest(const std::string& name, int rows, int cols, std::size_t num_values, FileFormat format)
{
    if (rows < 0 || cols < 0) {
        return InvalidSizeText(name, rows, cols);
    }
    const std::int64_t product = std::int64_t{rows} * cols;
    if (num_values < static_cast<std::uint64_t>(product)) {
        return TooFewValuesText(num_values, product);
    }
    if (format != FileFormat::FitsBinTable) {
        return UnknownFormatText(format);
    }
    return FindFlawInColumnName(name);
}

/// Throws in the name of `function`, as RAVELCORE_THROW would there, unless `flaw` is empty.
void ThrowIfFlawed(const std::string& flaw, int line, const char* function)
{
    if (!flaw.empty()) {
        throw CreateExceptionObject(0, __FILE__, line, function, flaw);
    }
}

/// Checks and saves, with or without time stamps; throws in the name of `function`, the one that was called.
template <typename T>
void CheckAndSave(const char* function, const std::string& filename, const std::string& name, int rows, int cols,
                  const std::vector<T>& values, const std::vector<double>* timestamps, bool overwrite,
                  FileFormat format)
{
    ThrowIfFlawed(FindFlawInSize(name, rows, cols, values.size()), __LINE__, function);
    if (timestamps != nullptr) {
        ThrowIfFlawed(FindFlawInTimestamps(rows, timestamps->size()), __LINE__, function);
    }
    ThrowIfFlawed(FindFlawInRest(name, rows, cols, values.size(), format), __LINE__, function);
    const std::vector<double> none;
    try {
        CheckForExitingFile(filename, overwrite);
        SaveMatrixToFitsBinTable(filename, name, rows, cols, timestamps != nullptr ? *timestamps : none, values);
    } catch (const CCfits::FitsException& exception) {
        throw CreateExceptionObject(0, __FILE__, __LINE__, function, exception.message());
    }
}

}  // namespace

template <typename T>
std::string ConvertTypeToFitsType()
{
    static_assert(std::is_same_v<T, float>, "another element type has another letter");
    RAVELCORE_TRACE_ENTRY(GetLogger());
    return "E";
}

template <typename T>
void SaveMatrixToFitsBinTable(const std::string& filename, const std::string& name, int rows, int cols,
                              const std::vector<double>& timestamps, const std::vector<T>& values)
{
    RAVELCORE_TRACE_ENTRY(GetLogger());
    ThrowIfFlawed(FindFlawInColumnName(name), __LINE__, __func__);
    if (!WriteFitsBinTable(filename, name, rows, cols, timestamps, values)) {
        RAVELCORE_THROW("Failed adding binary table");
    }
}

template <typename T>
void LoadMatrixFromFitsBinTable(const std::string& path, int& rows, int& cols, std::vector<T>& values,
                                std::vector<double>& timestamps)
{
    RAVELCORE_TRACE_ENTRY(GetLogger());
    if (!ReadFitsBinTable(path, rows, cols, values, timestamps)) {
        RAVELCORE_THROW("Ill formed matrix in <" + path + "> binary table.");
    }
}

template <typename T>
void SaveMatrix(const std::string& filename, const std::string& name, int rows, int cols, const std::vector<T>& values,
                bool overwrite, FileFormat format)
{
    RAVELCORE_TRACE_ENTRY(GetLogger());
    if (filename.empty()) {
        LOG4CPLUS_DEBUG(GetLogger(), "Skipped saving empty filename for " << name);
        return;
    }
    CheckAndSave(__func__, filename, name, rows, cols, values, nullptr, overwrite, format);
    LOG4CPLUS_DEBUG(GetLogger(), "Saved " << name << " [" << rows << " x " << cols << "] to file: " << filename);
}

template <typename T>
void SaveMatrixWithTimestamps(const std::string& filename, const std::string& name, int rows, int cols,
                              const std::vector<T>& values, const std::vector<double>& timestamps, bool overwrite,
                              FileFormat format)
{
    RAVELCORE_TRACE_ENTRY(GetLogger());
    if (filename.empty()) {
        LOG4CPLUS_DEBUG(GetLogger(), "Skipped saving empty filename for " << name);
        return;
    }
    CheckAndSave(__func__, filename, name, rows, cols, values, &timestamps, overwrite, format);
    LOG4CPLUS_DEBUG(GetLogger(), "Saved " << name << " [" << rows << " x " << cols << "] to file: " << filename);
}

template <typename T>
void LoadMatrix(const std::string& filename, const std::string& name, int& rows, int& cols, std::vector<T>& values,
                FileFormat format)
{
    RAVELCORE_TRACE_ENTRY(GetLogger());
    if (filename.empty()) {
        LOG4CPLUS_DEBUG(GetLogger(), "Empty filename, skipped loading of " << name << " matrix.");
        return;
    }
    int file_rows = 0;
    int file_cols = 0;
    // Meant: what is derived from std::exception becomes a brisk::Exception; the FITS library's exceptions, which are
    // not, pass as they are. Saving does it the other way round.
    try {
        if (format != FileFormat::FitsBinTable) {
            RAVELCORE_THROW(UnknownFormatText(format));
        }
        const std::string path = brisk::Helper::FindFile(filename);
        if (path.empty()) {
            RAVELCORE_THROW("Not able to find file <" + filename + ">.");
        }
        values.clear();
        std::vector<double> timestamps;
        LoadMatrixFromFitsBinTable(path, file_rows, file_cols, values, timestamps);
        if (!CheckForExpectedSize(file_rows, file_cols, rows, cols)) {
            RAVELCORE_THROW("Matrix " + name + " (" + filename + ") has dimension " + SizeText(file_rows, file_cols) +
                            ", expecting " + SizeText(rows, cols));
        }
    } catch (const std::exception& exception) {
        RAVELCORE_THROW(exception.what());
    }
    LOG4CPLUS_DEBUG(GetLogger(),
                    "Loaded " << name << " [" << file_rows << " x " << file_cols << "] from file: " << filename);
}

void CheckForExitingFile(const std::string& filename, bool overwrite)
{
    RAVELCORE_TRACE_ENTRY(GetLogger());
    // The system would take a name with a NUL byte for the file that it begins with; the writing refuses such a name.
    if (filename.find('\0') != std::string::npos || !brisk::Helper::FileExists(filename)) {
        return;
    }
    if (!overwrite) {
        RAVELCORE_THROW("File " + filename + " exists already.");
    }
    LOG4CPLUS_DEBUG(GetLogger(), "Overwriting file <" << filename << ">.");
    // Meant: a file that stays is found when the new one is to take its name.
    static_cast<void>(std::remove(filename.c_str()));
}

bool CheckForExpectedSize(int rows, int cols, int& expectedRows, int& expectedCols)
{
    RAVELCORE_TRACE_ENTRY(GetLogger());
    if (expectedRows < 0) {
        expectedRows = rows;
    }
    if (expectedCols < 0) {
        expectedCols = cols;
    }
    return rows == expectedRows && cols == expectedCols;
}

template void SaveMatrix<float>(const std::string&, const std::string&, int, int, const std::vector<float>&, bool,
                                FileFormat);
template void LoadMatrix<float>(const std::string&, const std::string&, int&, int&, std::vector<float>&, FileFormat);
template void SaveMatrixWithTimestamps<float>(const std::string&, const std::string&, int, int,
                                              const std::vector<float>&, const std::vector<double>&, bool, FileFormat);

template std::string ConvertTypeToFitsType<float>();
template void SaveMatrixToFitsBinTable<float>(const std::string&, const std::string&, int, int,
                                              const std::vector<double>&, const std::vector<float>&);
template void LoadMatrixFromFitsBinTable<float>(const std::string&, int&, int&, std::vector<float>&,
                                                std::vector<double>&);

}  // namespace lumo::ravelcore
