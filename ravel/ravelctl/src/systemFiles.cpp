#include "systemFiles.hpp"

#include <charconv>
#include <fstream>
#include <sstream>
#include <system_error>

namespace lumo::ravelctl {

namespace fs = std::filesystem;

std::optional<std::string> ReadFirstLine(const fs::path& file)
{
    std::ifstream stream(file);
    std::string line;
    if (!stream) {
        return std::nullopt;
    }
    std::getline(stream, line);
    line.erase(line.find_last_not_of(" \t\r\n") + 1);
    return line;
}

std::optional<std::string> FindField(const fs::path& file, const std::string& name)
{
    std::ifstream stream(file);
    for (std::string line; std::getline(stream, line);) {
        std::istringstream words(line);
        std::string field;
        std::string value;
        if (words >> field >> value && field == name) {
            return value;
        }
    }
    return std::nullopt;
}

bool AppendCpuRange(const std::string& range, std::vector<int>& cpus)
{
    constexpr int HIGHEST = 1 << 16;  // more than a kernel knows
    const char* const end = range.data() + range.size();
    int first = 0;
    std::from_chars_result read = std::from_chars(range.data(), end, first);
    int last = first;
    if (read.ec == std::errc() && read.ptr != end && *read.ptr == '-') {
        read = std::from_chars(read.ptr + 1, end, last);
    }
    if (read.ec != std::errc() || read.ptr != end || first < 0 || last < first || last > HIGHEST) {
        return false;
    }
    for (int cpu = first; cpu <= last; ++cpu) {
        cpus.push_back(cpu);
    }
    return true;
}

std::vector<int> ParseCpuList(const std::string& text)
{
    std::vector<int> cpus;
    std::istringstream ranges(text);
    for (std::string range; std::getline(ranges, range, ',') && AppendCpuRange(range, cpus);) {
    }
    return cpus;
}

}  // namespace lumo::ravelctl
