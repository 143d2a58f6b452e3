#include "parameterFile.hpp"

#include "error.hpp"
#include "gains.hpp"
#include "libraryLoad.hpp"
#include "outputFile.hpp"
#include "tableHeader.hpp"
#include "wholeFile.hpp"

#include <brisk/helper.hpp>
#include <lumo/mirrorsim/controlModes.hpp>
#include <lumo/ravelcore/doubleBuffer.hpp>
#include <lumo/ravelcore/pidFilter.hpp>
#include <lumo/ravelcore/utils.hpp>

#include <fmt/core.h>

#include <cmath>
#include <cstdint>
#include <optional>

namespace lumo::ravelctl {

namespace fs = std::filesystem;

namespace {

void CheckFinite(const fs::path& file, const std::vector<float>& values)
{
    for (std::size_t i = 0; i < values.size(); ++i) {
        if (!std::isfinite(values[i])) {  // it would stay in the channels for good
            throw InputError(
                fmt::format("{}: expected finite values but element {} is {}", file.string(), i, values[i]));
        }
    }
}

/// Of how many modes the file has gains; none where it is not one row of ten per mode.
std::optional<std::int64_t> CountModesOfGains(const fs::path& file)
{
    try {
        const std::string path = brisk::Helper::FindFile(file.string());
        const TableHeader header = ReadTableHeader(path.empty() ? file.string() : fs::absolute(path).string());
        const bool is_of_modes = header.rows == 1 && header.values % ravelcore::NUM_PID_FILTER_PARAMS == 0;
        return is_of_modes ? std::optional(header.values / ravelcore::NUM_PID_FILTER_PARAMS) : std::nullopt;
    } catch (const InputError&) {
        return std::nullopt;  // loading it tells more
    }
}

}  // namespace

std::vector<float> LoadParameterRow(const fs::path& file, const std::string& name, int size)
{
    ravelcore::DoubleBuffer row(name, size);
    LoadThroughLibrary(file, [&row](const std::string& path) { row.Load(path); });
    std::vector<float> values = row.Get();
    CheckFinite(file, values);
    return values;
}

std::vector<float> LoadParameterMatrix(const fs::path& file, const std::string& name, int rows, int cols)
{
    std::vector<float> values;
    LoadThroughLibrary(file, [&](const std::string& path) { ravelcore::LoadMatrix(path, name, rows, cols, values); });
    CheckFinite(file, values);
    return values;
}

std::vector<float> LoadGainsFile(const fs::path& file, int num_modes)
{
    const std::int64_t found = CountModesOfGains(file).value_or(0);
    if (found > 0 && found != num_modes) {
        throw InputError(fmt::format(
            "{}: expected gains of the run's {} modes but they are of {}; {}use other gains", file.string(), num_modes,
            found, found <= mirrorsim::NUM_MODES ? fmt::format("run with --modes {}, or ", found) : std::string()));
    }
    std::vector<float> params = LoadParameterRow(file, "gains", num_modes * ravelcore::NUM_PID_FILTER_PARAMS);
    try {
        CheckGains(params);
    } catch (const InputError& e) {
        throw InputError(fmt::format("{}: {}", file.string(), e.what()));
    }
    return params;
}

void SaveGainsFile(const fs::path& file, const std::vector<float>& params)
{
    try {
        ravelcore::DoubleBuffer row("gains", static_cast<int>(params.size()));
        row.Set(params);
        WriteWhole(file, [&row](const fs::path& part) { row.Save(part.string()); });
    } catch (const std::exception& e) {
        throw RunError(CannotWrite(file, e.what()));
    }
}

}  // namespace lumo::ravelctl
