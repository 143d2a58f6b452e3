#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace lumo::ravelctl {

/// The rows of the table in a FITS file's first extension, as its header has them; none where there is no such table.
/// To be asked before the library loads the file: a table without rows ends the process there. Real time: no.
std::optional<std::int64_t> CountTableRows(const std::string& file);

/// The time stamps of that table, in seconds, without its values; empty where it has none. Real time: no.
std::vector<double> ReadTimestamps(const std::string& file);

}  // namespace lumo::ravelctl
