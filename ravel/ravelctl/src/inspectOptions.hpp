#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace lumo::ravelctl {

/// Rows from `begin` on, up to but without `end`.
struct RowRange
{
    std::int64_t begin = 0;
    std::optional<std::int64_t> end;  // none: to the last row
};

/// What `ravelctl inspect` can be told.
struct InspectOptions
{
    std::vector<std::filesystem::path> files;
    bool statistics = false;
    bool csv = false;  // of one file
    bool json = false;
    std::string columns;  // as ParseModeList reads them; empty: all
    RowRange rows;        // of the CSV
};

}  // namespace lumo::ravelctl
