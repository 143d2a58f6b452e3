#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

/// What the kernel tells in files.
namespace lumo::ravelctl {

/// The first line of a file, without the spaces at its end; missing where the file cannot be read.
std::optional<std::string> ReadFirstLine(const std::filesystem::path& file);

/// What stands behind `name` in a file of lines such as "MemTotal:  1234 kB".
std::optional<std::string> FindField(const std::filesystem::path& file, const std::string& name);

/// Appends the numbers that "3" or "4-7" names; false, and nothing, for what names none.
bool AppendCpuRange(const std::string& range, std::vector<int>& cpus);

/// The numbers that a list as the kernel writes it names: "0-3,6". Ends at what is none.
std::vector<int> ParseCpuList(const std::string& text);

}  // namespace lumo::ravelctl
