#pragma once

#include "fileFacts.hpp"
#include "tableHeader.hpp"

#include <cstdint>
#include <filesystem>
#include <vector>

namespace lumo::ravelctl {

/// A matrix as it stands in its file.
struct InspectedFile
{
    std::filesystem::path file;
    std::uintmax_t bytes = 0;  // of the file
    TableHeader header;
    int rows = 0;
    int cols = 0;
    std::vector<float> values;       // row-major
    std::vector<double> timestamps;  // in seconds, or in a unit that is not known here

    MatrixView GetMatrix() const { return {values, rows, cols}; }
};

/// Reads a FITS file, whose name is taken as it is. Real time: no.
/// Failure: InputError that names the file: none, unreadable, no table that makes a matrix, too little memory.
InspectedFile LoadInspectedFile(const std::filesystem::path& file);

}  // namespace lumo::ravelctl
