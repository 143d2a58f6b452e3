#include "matrixStore.hpp"

#include "environment.hpp"
#include "error.hpp"
#include "libraryLoad.hpp"
#include "modeSlice.hpp"
#include "passingFolder.hpp"
#include "wholeFile.hpp"

#include <lumo/ravelcore/utils.hpp>

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdint>

namespace lumo::ravelctl {

namespace {

namespace fs = std::filesystem;

struct StoredMatrix
{
    const char* name;
    int rows;
    int cols;
    std::vector<float> mirrorsim::ControlModes::*values;
};

constexpr std::array<StoredMatrix, 3> MATRICES = {{
    {"P2EDC", mirrorsim::NUM_MODES, mirrorsim::NUM_ES, &mirrorsim::ControlModes::p2edc},
    {"PACT2MODES", mirrorsim::NUM_MODES, mirrorsim::NUM_PACT, &mirrorsim::ControlModes::pact2modes},
    {"MODES2PACT", mirrorsim::NUM_PACT, mirrorsim::NUM_MODES, &mirrorsim::ControlModes::modes2pact},
}};

fs::path FileOf(const fs::path& folder, const StoredMatrix& matrix)
{
    return fs::absolute(folder / (std::string(matrix.name) + ".fits"));
}

void Store(const fs::path& folder, const StoredMatrix& matrix, const std::vector<float>& values)
{
    const fs::path file = FileOf(folder, matrix);
    try {
        WriteWhole(file, [&](const fs::path& part) {
            ravelcore::SaveMatrix(part.string(), matrix.name, matrix.rows, matrix.cols, values);
        });
    } catch (const std::exception& e) {
        throw RunError(fmt::format("cannot write {}: {}; free some space or choose another folder with --matrices",
                                   file.string(), e.what()));
    }
}

bool IsFinite(float value)
{
    return std::isfinite(value);
}

std::vector<float> Load(const fs::path& folder, const StoredMatrix& matrix)
{
    const fs::path file = FileOf(folder, matrix);
    const auto unreadable = [](const std::string& reason) {
        return RunError(fmt::format(
            "{}; remove that file to have it computed again, or choose another folder with --matrices", reason));
    };
    std::vector<float> values;
    int rows = matrix.rows;
    int cols = matrix.cols;
    try {
        LoadThroughLibrary(
            file, [&](const std::string& path) { ravelcore::LoadMatrix(path, matrix.name, rows, cols, values); });
    } catch (const InputError& e) {
        throw unreadable(e.what());
    }
    if (!std::all_of(values.begin(), values.end(), IsFinite)) {
        throw unreadable(file.string() + ": expected finite values but some are not");
    }
    return values;
}

void ComputeAndStore(const mirrorsim::Geometry& geometry, const fs::path& folder,
                     const std::function<void(const std::string&)>& say)
{
    std::error_code error;
    MakeFolders(folder, error);
    if (error) {
        throw RunError(fmt::format("cannot make the folder {} for the matrices: {}; choose another with --matrices",
                                   folder.string(), error.message()));
    }
    say(fmt::format("computing all {} control modes, once; they are kept in {}", mirrorsim::NUM_MODES,
                    folder.string()));
    const auto start = std::chrono::steady_clock::now();
    const mirrorsim::ControlModes modes = mirrorsim::ComputeControlModes(geometry);
    MakeFolders(folder, error);  // it is empty so far: another process that was stopped may have taken it away
    for (const StoredMatrix& matrix : MATRICES) {
        Store(folder, matrix, modes.*matrix.values);
    }
    say(fmt::format("computed and stored in {:.1f} s",
                    std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count()));
}

}  // namespace

fs::path DefaultMatrixFolder()
{
    constexpr const char* FOLDER = "ravelctl/mirror-1";
    if (const std::string cache = Environment("XDG_CACHE_HOME"); !cache.empty()) {
        return fs::path(cache) / FOLDER;
    }
    if (const std::string home = Environment("HOME"); !home.empty()) {
        return fs::path(home) / ".cache" / FOLDER;
    }
    return fs::temp_directory_path() / FOLDER;
}

mirrorsim::ControlModes LoadOrComputeModes(const mirrorsim::Geometry& geometry, const fs::path& folder, int num_modes,
                                           const std::function<void(const std::string&)>& say)
{
    for (const StoredMatrix& matrix : MATRICES) {
        std::error_code error;
        const bool exists = fs::exists(FileOf(folder, matrix), error);
        if (error) {
            throw RunError(fmt::format("cannot look for matrices in {}: {}; choose another folder with --matrices",
                                       folder.string(), error.message()));
        }
        if (!exists) {
            ComputeAndStore(geometry, folder, say);
            break;
        }
    }
    const ModeSlice slice{0, num_modes};
    mirrorsim::ControlModes modes;
    modes.num_modes = num_modes;
    for (const StoredMatrix& matrix : MATRICES) {
        const std::vector<float> all = Load(folder, matrix);
        const bool one_row_per_mode = matrix.rows == mirrorsim::NUM_MODES;
        modes.*matrix.values = one_row_per_mode ? RowsOf(all, matrix.cols, slice) : ColumnsOf(all, matrix.cols, slice);
    }
    return modes;
}

}  // namespace lumo::ravelctl
