#include "parameterFile.hpp"

#include "error.hpp"
#include "gains.hpp"
#include "libraryLoad.hpp"
#include "outputFile.hpp"
#include "wholeFile.hpp"

#include <lumo/ravelcore/doubleBuffer.hpp>
#include <lumo/ravelcore/pidFilter.hpp>
#include <lumo/ravelcore/utils.hpp>

#include <fmt/core.h>

#include <cmath>

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
