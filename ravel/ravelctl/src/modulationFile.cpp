#include "modulationFile.hpp"

#include "error.hpp"
#include "libraryLoad.hpp"
#include "resources.hpp"
#include "tableRows.hpp"

#include <brisk/helper.hpp>

#include <fmt/core.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <optional>

namespace lumo::ravelctl {

namespace fs = std::filesystem;

void LoadModulation(ravelcore::Modulation& modulation, const fs::path& file, const std::string& option,
                    const std::function<void(const std::string&)>& say)
{
    const std::string found = brisk::Helper::FindFile(file.string());
    if (found.empty()) {
        throw InputError(fmt::format("{}: expected a FITS file but there is no {}", option, file.string()));
    }
    const auto refuse = [&](const std::string& reason) {
        throw InputError(fmt::format("{}: expected a FITS table of rows of {} values: {}", option,
                                     modulation.GetSampleSize(), reason));
    };
    const std::optional<std::int64_t> rows = CountTableRows(found);
    const std::int64_t most_rows = std::numeric_limits<std::int32_t>::max() / modulation.GetSampleSize();
    if (rows && *rows > most_rows) {  // a modulation counts its values in 32 bits
        refuse(fmt::format("{} has {} rows, more than the {} that can be played", file.string(), *rows, most_rows));
    }
    // A compressed file is smaller than what it holds.
    const auto values = static_cast<std::uint64_t>(rows.value_or(0) * modulation.GetSampleSize());
    const std::uint64_t bytes = std::max<std::uint64_t>(fs::file_size(found), values * sizeof(float));
    constexpr std::uint64_t COPIES = 4;  // the file layer has three of its own
    CheckMemory(COPIES * bytes, fmt::format("{}: the samples of {}", option, file.string()),
                "free some, or use a shorter file");
    constexpr std::uint64_t MUCH = 100'000'000;
    if (bytes > MUCH) {
        say(fmt::format("reading {} ({})", file.string(), FormatBytes(bytes)));
    }
    try {
        LoadThroughLibrary(file, [&modulation](const std::string& path) { modulation.Load(path); });
    } catch (const InputError& e) {
        refuse(e.what());
    }
}

}  // namespace lumo::ravelctl
