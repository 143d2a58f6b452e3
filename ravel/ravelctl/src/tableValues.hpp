#pragma once

#include "tableHeader.hpp"

#include <string>
#include <vector>

namespace lumo::ravelctl {

struct TableValues
{
    int cols = 0;
    std::vector<float> values;       // row-major; what is not defined is NaN
    std::vector<double> timestamps;  // in the file's unit; none where there is no such column
};

/// Reads what a header describes, wherever in its file and in whichever columns it stands. `path` names the file that
/// the header is of. Real time: no. Failure: InputError, without the file's name.
TableValues ReadTableValues(const std::string& path, const TableHeader& header);

}  // namespace lumo::ravelctl
