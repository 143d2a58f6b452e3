#include "modulationFile.hpp"

#include "error.hpp"
#include "resources.hpp"

#include <brisk/helper.hpp>

#include <CCfits/CCfits>
#include <fmt/core.h>

namespace lumo::ravelctl {

namespace fs = std::filesystem;

void LoadModulation(ravelcore::Modulation& modulation, const fs::path& file, const std::string& option,
                    const std::function<void(const std::string&)>& say)
{
    const std::string found = brisk::Helper::FindFile(file.string());
    if (found.empty()) {
        throw InputError(fmt::format("{}: expected a FITS file but there is no {}", option, file.string()));
    }
    const std::uint64_t bytes = fs::file_size(found);
    constexpr std::uint64_t COPIES = 4;  // the file layer has three of its own
    CheckMemory(COPIES * bytes, fmt::format("{}: the samples of {}", option, file.string()),
                "free some, or use a shorter file");
    constexpr std::uint64_t MUCH = 100'000'000;
    if (bytes > MUCH) {
        say(fmt::format("reading {} ({})", file.string(), FormatBytes(bytes)));
    }
    const auto refuse = [&](const std::string& reason) {
        throw InputError(fmt::format("{}: expected a FITS table of rows of {} values: {}", option,
                                     modulation.GetSampleSize(), reason));
    };
    try {
        modulation.Load(file.string());
    } catch (const CCfits::FitsException& e) {
        refuse(file.string() + ": " + e.message());
    } catch (const std::exception& e) {
        refuse(e.what());
    }
}

}  // namespace lumo::ravelctl
