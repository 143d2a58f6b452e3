#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace lumo::ravelctl {

/// What the header of a table says that is shown as a matrix, with time stamps or without: a column of vectors, or
/// several columns of scalars side by side. Columns of a table are counted from 1.
struct TableHeader
{
    int extension_number = 1;                // 1: the first
    std::string extension;                   // its name
    int columns = 0;                         // of the table
    int time_number = 0;                     // the column of the time stamps; 0: there is none
    std::string time_column;                 // its name
    std::string time_unit;                   // as the file has it
    std::optional<double> time_units_per_s;  // none for a unit that is not known here
    std::vector<int> numbers;                // the columns of the matrix
    std::vector<std::string> names;          // theirs; never empty
    std::string name;                        // of the matrix's column, or of the first few
    std::string format;                      // of them, such as "600E"
    std::string type;                        // in words, such as "32-bit floats"
    bool exact = true;                       // whether all values are also 32-bit floats
    std::int64_t rows = 0;                   // at least 1
    std::int64_t values = 0;                 // of all rows together; 0 where the rows say it themselves

    bool HasTime() const { return time_number > 0; }

    /// Whether the matrix's columns are columns of the table, each with a name of its own.
    bool IsOfScalars() const { return numbers.size() > 1; }

    /// Whether the library reads this as a matrix: of two columns the first is the time stamps, otherwise the first is
    /// the matrix.
    bool IsMatrixFile() const;
};

/// Reads the header of the first table in a FITS file. `path` names a regular file. Real time: no.
/// Failure: InputError, without the file's name: what was expected. What it gives back can be loaded: there are rows,
/// and numbers in them.
TableHeader ReadTableHeader(const std::string& path);

}  // namespace lumo::ravelctl
