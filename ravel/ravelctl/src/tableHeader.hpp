#pragma once

#include <cstdint>
#include <string>

namespace lumo::ravelctl {

/// What the header of a table says that the library reads as a matrix, with time stamps or without.
struct TableHeader
{
    std::string extension;    // its name
    int columns = 0;          // of the table: 2 are time stamps and matrix; of any other number the first is the matrix
    std::string time_column;  // its name; meaningless unless HasTime()
    std::string name;         // of the matrix's column
    std::string format;       // of the matrix's column, such as "600E"
    std::string type;         // in words, such as "32-bit floats"
    bool exact = true;        // whether all values are also 32-bit floats
    std::int64_t rows = 0;    // at least 1
    std::int64_t values = 0;  // of all rows together; 0 where the rows say it themselves

    bool HasTime() const { return columns == 2; }
};

/// Reads the header of the table in a FITS file's first extension. `path` names a regular file. Real time: no.
/// Failure: InputError, without the file's name: what was expected. What it gives back, the library can be asked to
/// load: there are rows, and numbers in them.
TableHeader ReadTableHeader(const std::string& path);

}  // namespace lumo::ravelctl
