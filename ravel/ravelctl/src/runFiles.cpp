#include "runFiles.hpp"

#include "error.hpp"
#include "htmlReport.hpp"
#include "inputPlace.hpp"
#include "resources.hpp"

#include <fmt/core.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cctype>
#include <fstream>
#include <system_error>

namespace lumo::ravelctl {

namespace fs = std::filesystem;

namespace {

constexpr const char* SUMMARY = "summary.json";

std::vector<std::string> ListRecordings(const RecordOptions& record)
{
    std::vector<std::string> names;
    if (record.modes) {
        names.insert(names.end(), {"modes_in.fits", "modes_out.fits", "modes_ref.fits", "modes_arw.fits"});
    }
    if (record.es) {
        names.emplace_back("es.fits");
    }
    if (record.pact) {
        names.emplace_back("pact.fits");
    }
    return names;
}

/// "gains-5000.fits" and the like. The cycle of a change is known only once it has been done.
bool IsGainsOfAChange(const std::string& name)
{
    const std::string before = "gains-";
    const std::string after = ".fits";
    if (name.size() <= before.size() + after.size() || !name.starts_with(before) || !name.ends_with(after)) {
        return false;
    }
    return std::all_of(name.begin() + static_cast<std::ptrdiff_t>(before.size()),
                       name.end() - static_cast<std::ptrdiff_t>(after.size()),
                       [](unsigned char c) { return std::isdigit(c) != 0; });
}

/// Also of a link that leads nowhere: a file of its name would replace it.
bool IsThere(const fs::path& file)
{
    std::error_code ignored;
    return fs::exists(fs::symlink_status(file, ignored));
}

/// The files that are there and that the run may replace, as paths below the folder.
std::vector<fs::path> FindReplaced(const RunOptions& options, const std::vector<ScriptStep>& script)
{
    const std::vector<std::string> recordings = ListRecordings(options.record);
    std::vector<fs::path> names(recordings.begin(), recordings.end());
    names.insert(names.end(), {"gains.fits", "config.toml", SUMMARY});
    if (!ReportTemplate().empty()) {
        names.emplace_back("report.html");
    }
    bool changes_gains = false;
    for (const ScriptStep& step : script) {
        changes_gains = changes_gains || step.gains || !step.gains_file.empty();
        if (!step.save.empty()) {
            for (const std::string& recording : recordings) {
                names.push_back(fs::path(step.save) / recording);
            }
        }
    }
    std::erase_if(names, [&options](const fs::path& name) { return !IsThere(options.output / name); });
    std::error_code error;
    for (fs::directory_iterator entry(options.output, error), end; changes_gains && !error && entry != end;
         entry.increment(error)) {
        if (IsGainsOfAChange(entry->path().filename().string())) {
            names.push_back(entry->path().filename());
        }
    }
    return names;
}

/// Every file from which the run is made.
std::vector<fs::path> ListInputs(const RunOptions& options, const std::vector<ScriptStep>& script)
{
    std::vector<fs::path> inputs = {options.config,    options.gains,       options.script,    options.play.es,
                                    options.play.pact, options.inject.file, options.log_config};
    for (const ScriptStep& step : script) {
        inputs.insert(inputs.end(),
                      {step.gains_file, step.references_file, step.p2edc, step.pact2modes, step.modes2pact});
    }
    return inputs;
}

}  // namespace

void CheckRunFolder(const RunOptions& options, const std::vector<ScriptStep>& script)
{
    const fs::path& folder = options.output;
    RefuseFolderOf("a qualification", "qualify.json", folder);
    RefuseFolderOf("a proposal of gains", "tune.json", folder);
    std::vector<fs::path> replaced = FindReplaced(options, script);
    if (!options.overwrite && IsThere(folder / SUMMARY)) {
        throw InputError(
            fmt::format("--output: {} holds a run already; choose another folder, or replace that run with --overwrite",
                        folder.string()));
    }
    if (!options.overwrite && !replaced.empty()) {
        throw InputError(fmt::format(
            "--output: {} holds a {} already, which the run would replace; choose another folder, or replace it with "
            "--overwrite",
            folder.string(), replaced.front().string()));
    }
    const std::vector<fs::path> old_files = ListFilesOfOldRun(folder);
    replaced.insert(replaced.end(), old_files.begin(), old_files.end());
    for (const fs::path& input : ListInputs(options, script)) {
        const fs::path place = input.empty() ? input : LocateInput(input);
        const auto is_input = [&](const fs::path& name) {
            std::error_code ignored;
            return !place.empty() && fs::equivalent(folder / name, place, ignored);
        };
        if (std::any_of(replaced.begin(), replaced.end(), is_input)) {
            throw InputError(fmt::format(
                "--output: the run is made from {}, which it would replace; choose another folder, or copy that file",
                input.string()));
        }
    }
}

std::vector<fs::path> ListFilesOfOldRun(const fs::path& folder)
{
    std::ifstream stream(folder / SUMMARY);
    const nlohmann::json old = nlohmann::json::parse(stream, nullptr, false);
    std::vector<fs::path> files;
    if (!old.is_object() || !old.contains("files") || !old["files"].is_array()) {
        return files;
    }
    for (const nlohmann::json& name : old["files"]) {
        const fs::path file = name.is_string() ? fs::path(name.get<std::string>()) : fs::path();
        const bool is_inside = file.is_relative() && std::find(file.begin(), file.end(), "..") == file.end();
        if (!file.empty() && is_inside) {
            files.push_back(file);
        }
    }
    return files;
}

void RemoveSummary(const fs::path& folder)
{
    std::error_code ignored;
    fs::remove(folder / SUMMARY, ignored);
}

void RemoveStaleFiles(const fs::path& folder, const std::vector<fs::path>& old_files,
                      const std::vector<std::string>& files)
{
    std::error_code ignored;
    for (const fs::path& file : old_files) {
        if (std::find(files.begin(), files.end(), file.string()) == files.end()) {
            fs::remove(folder / file, ignored);
            if (file.has_parent_path()) {
                fs::remove(folder / file.parent_path(), ignored);  // a folder of a script, once it is empty
            }
        }
    }
}

}  // namespace lumo::ravelctl
