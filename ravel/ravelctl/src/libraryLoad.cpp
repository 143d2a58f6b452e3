#include "libraryLoad.hpp"

#include "error.hpp"
#include "tableRows.hpp"

#include <brisk/helper.hpp>

#include <CCfits/CCfits>
#include <fmt/core.h>

#include <algorithm>
#include <optional>

namespace lumo::ravelctl {

namespace fs = std::filesystem;

namespace {

/// In one line, and with the file's name once: some of the library's messages have it already.
[[noreturn]] void Refuse(const fs::path& file, std::string reason)
{
    reason.erase(std::remove(reason.begin(), reason.end(), '\n'), reason.end());
    if (reason.ends_with('.')) {  // what to do may follow
        reason.pop_back();
    }
    if (reason.starts_with("Ill formed matrix ")) {
        reason += ": expected rows of one length; save the values with as many in each row";
    }
    const bool is_named = reason.find(file.string()) != std::string::npos;
    throw InputError(is_named ? reason : fmt::format("{}: {}", file.string(), reason));
}

}  // namespace

void LoadThroughLibrary(const fs::path& file, const std::function<void(const std::string& path)>& load)
{
    const std::string path = brisk::Helper::FindFile(file.string());
    if (const std::optional<std::int64_t> rows = CountTableRows(path); rows && *rows < 1) {
        Refuse(file, "expected a FITS table with rows but it has none");
    }
    try {
        load(path.empty() ? file.string() : fs::absolute(path).string());
    } catch (const CCfits::FitsException& e) {
        Refuse(file, "expected a FITS file that can be read but: " + e.message());
    } catch (const std::exception& e) {
        Refuse(file, e.what());
    }
}

}  // namespace lumo::ravelctl
