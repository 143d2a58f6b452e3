#include "runFolder.hpp"

#include "error.hpp"
#include "libraryLoad.hpp"
#include "tableRows.hpp"

#include <lumo/mirrorsim/controlModes.hpp>
#include <lumo/ravelcore/doubleBuffer.hpp>
#include <lumo/ravelcore/pidFilter.hpp>
#include <lumo/ravelcore/utils.hpp>

#include <fmt/core.h>
#include <fmt/ranges.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <functional>
#include <limits>
#include <utility>

namespace lumo::ravelctl {

namespace fs = std::filesystem;

namespace {

constexpr const char* SUMMARY = "summary.json";

/// What a run wrote, it can write again.
void LoadOfRun(const fs::path& file, const std::function<void(const std::string&)>& load)
{
    try {
        LoadThroughLibrary(file, load);
    } catch (const InputError& e) {
        throw InputError(fmt::format("{}; repeat the run", e.what()));
    }
}

std::optional<Plant> ReadPlant(const nlohmann::json& summary)
{
    if (!summary.contains("plant")) {
        return std::nullopt;
    }
    const nlohmann::json& plant = summary.at("plant");
    return Plant{plant.at("lag_coefficient").get<double>(), plant.at("delay_cycles").get<int>(), 0.0};
}

/// The first cycle from which on a step of the script made the measured modes something else.
std::int64_t FindRedefinition(const nlohmann::json& summary)
{
    std::int64_t first = std::numeric_limits<std::int64_t>::max();
    for (const nlohmann::json& step : summary.value("script", nlohmann::json::array())) {
        const auto cycle = step.value("before_cycle", std::int64_t{-1});
        if (step.value("redefines_modes", false) && cycle >= 0) {
            first = std::min(first, cycle);
        }
    }
    return first;
}

std::optional<double> ReadSurfaceNm(const nlohmann::json& summary)
{
    const nlohmann::json rms = summary.value("controlled_rms_nm", nlohmann::json::object());
    const auto after = rms.find("after");
    return after == rms.end() || after->is_null() ? std::nullopt : std::optional<double>(after->get<double>());
}

/// What the parser says, without its own number for it.
std::string Explain(const nlohmann::json::exception& e)
{
    const std::string text = e.what();
    const std::size_t end_of_id = text.find("] ");
    return text.starts_with('[') && end_of_id != std::string::npos ? text.substr(end_of_id + 2) : text;
}

}  // namespace

RunFolder::RunFolder(fs::path folder) : m_folder(std::move(folder))
{
    const fs::path file = m_folder / SUMMARY;
    std::error_code ignored;
    if (!fs::is_regular_file(file, ignored)) {
        throw InputError(
            fmt::format("expected the output folder of a run but {} holds no {}", m_folder.string(), SUMMARY));
    }
    try {
        ReadSummary();
    } catch (const nlohmann::json::exception& e) {
        throw InputError(
            fmt::format("{}: expected the summary of a run but {}; repeat the run if an older version "
                        "made it",
                        file.string(), Explain(e)));
    }
    CheckSummary();
}

void RunFolder::ReadSummary()
{
    std::ifstream stream(m_folder / SUMMARY, std::ios::binary);
    const nlohmann::json summary = nlohmann::json::parse(stream);
    summary.at("cycles").get_to(m_cycles);
    summary.at("open_loop_cycles").get_to(m_open_cycles);
    summary.at("modes").get_to(m_modes);
    summary.at("rate_hz").get_to(m_rate_hz);
    const nlohmann::json& recorded = summary.at("recorded");
    recorded.at("what").get_to(m_recorded);
    recorded.at("decimation").get_to(m_decimation);
    if (!recorded.at("last_s").is_null()) {
        m_last_s = recorded.at("last_s").get<double>();
    }
    for (const nlohmann::json& entry : summary.at("gains")) {
        m_gains.push_back({entry.at("before_cycle").get<std::int64_t>(), entry.at("file").get<std::string>()});
    }
    m_first_judged = summary.value("first_judged_cycle", m_cycles);
    m_plant = ReadPlant(summary);
    m_before_redefinition = std::min(m_cycles, FindRedefinition(summary));
    const nlohmann::json played = summary.value("played", nlohmann::json::object());
    m_was_played = !played.value("es", std::string()).empty();
    m_surface_nm = ReadSurfaceNm(summary);
    const auto files = summary.at("files").get<std::vector<std::string>>();
    m_saved_meanwhile = std::any_of(files.begin(), files.end(), [](const std::string& file) {
        return file.find('/') != std::string::npos;  // in the folder of a script's save
    });
}

Plant RunFolder::GetPlant() const
{
    const std::string file = (m_folder / SUMMARY).string();
    if (!m_plant) {
        throw InputError(
            fmt::format("{}: expected the plant but there is none; repeat the run if an older version made it", file));
    }
    constexpr int MOST_DELAY = 1000;
    if (!(m_plant->lag_coefficient > 0.0 && m_plant->lag_coefficient <= 1.0)) {
        throw InputError(fmt::format("{}: plant: lag_coefficient: expected more than 0, at most 1, but got {}", file,
                                     m_plant->lag_coefficient));
    }
    if (m_plant->delay_cycles < 0 || m_plant->delay_cycles > MOST_DELAY) {
        throw InputError(fmt::format("{}: plant: delay_cycles: expected 0 to {} but got {}", file, MOST_DELAY,
                                     m_plant->delay_cycles));
    }
    return {m_plant->lag_coefficient, m_plant->delay_cycles, 1.0 / m_rate_hz};
}

void RunFolder::CheckSummary() const
{
    const auto check = [this](bool is_good, const char* key, const std::string& expected) {
        if (!is_good) {
            throw InputError(fmt::format("{}: {}: expected {}", (m_folder / SUMMARY).string(), key, expected));
        }
    };
    constexpr std::int64_t MOST_CYCLES = std::numeric_limits<std::int32_t>::max();
    check(m_cycles >= 1 && m_cycles <= MOST_CYCLES, "cycles", fmt::format("1 to {} but got {}", MOST_CYCLES, m_cycles));
    check(m_open_cycles >= 0, "open_loop_cycles", fmt::format("0 or above but got {}", m_open_cycles));
    check(m_modes >= 1 && m_modes <= mirrorsim::NUM_MODES, "modes",
          fmt::format("1 to {} but got {}", mirrorsim::NUM_MODES, m_modes));
    check(std::isfinite(m_rate_hz) && m_rate_hz > 0.0, "rate_hz", fmt::format("more than 0 but got {}", m_rate_hz));
    check(!m_gains.empty() && m_gains.front().before_cycle == 0, "gains", "those with which the run began");
    check(std::is_sorted(m_gains.begin(), m_gains.end(),
                         [](const GainsEntry& a, const GainsEntry& b) { return a.before_cycle < b.before_cycle; }),
          "gains", "cycles in ascending order");
}

ModesRecording RunFolder::LoadEveryCycle(const std::string& name) const
{
    const fs::path file = m_folder / (name + ".fits");
    std::error_code ignored;
    if (!fs::exists(file, ignored)) {
        RefuseRecording(name, "it is not there");
    }
    // The header first: the whole file may not fit the memory.
    const std::optional<std::int64_t> rows_in_header = CountTableRows(fs::absolute(file).string());
    if (rows_in_header && *rows_in_header != m_cycles) {
        RefuseRecording(name, fmt::format("it has {} rows", *rows_in_header));
    }
    ModesRecording recording;
    int rows = -1;
    LoadOfRun(file, [&](const std::string& path) {
        ravelcore::LoadMatrixFromFitsBinTable(path, rows, recording.cols, recording.values, recording.timestamps);
    });
    if (recording.cols != m_modes) {
        throw InputError(
            fmt::format("{}: expected rows of {} modes but they have {}", file.string(), m_modes, recording.cols));
    }
    if (recording.timestamps.size() != static_cast<std::size_t>(rows)) {
        throw InputError(fmt::format("{}: expected time stamps but there are none", file.string()));
    }
    for (std::size_t row = 0; row < recording.timestamps.size(); ++row) {
        constexpr double ROUNDING = 0.25;  // of a cycle
        const double cycle = recording.timestamps[row] * m_rate_hz;
        if (!(std::abs(cycle - static_cast<double>(row)) < ROUNDING)) {
            RefuseRecording(name, fmt::format("row {} is of {} s", row, recording.timestamps[row]));
        }
    }
    return recording;
}

void RunFolder::RefuseRecording(const std::string& name, const std::string& flaw) const
{
    throw InputError(fmt::format("{}: expected each of the run's {} cycles but {}: {}",
                                 (m_folder / (name + ".fits")).string(), m_cycles, flaw, FindReason()));
}

/// Why a recording does not hold every cycle, and what to do.
std::string RunFolder::FindReason() const
{
    if (std::find(m_recorded.begin(), m_recorded.end(), "modes") == m_recorded.end()) {
        return fmt::format("the modes were not recorded; repeat the run: {}", RecordEveryCycle());
    }
    if (m_decimation > 1) {
        return fmt::format("one in {} was recorded; repeat the run: {}", m_decimation, RecordEveryCycle());
    }
    if (m_last_s) {
        return fmt::format("the last {} s were kept; repeat the run: {}", *m_last_s, RecordEveryCycle());
    }
    const std::string config = (m_folder / "config.toml").string();
    if (m_saved_meanwhile) {
        return fmt::format("a save of the script began it anew; repeat the run without that save ({})", config);
    }
    return fmt::format("the file is not as the run left it; repeat the run ({})", config);
}

/// The command that repeats the run and records its modes in every cycle, besides what it recorded.
std::string RunFolder::RecordEveryCycle() const
{
    std::string command = fmt::format("ravelctl run {}", (m_folder / "config.toml").string());
    if (std::find(m_recorded.begin(), m_recorded.end(), "modes") == m_recorded.end()) {
        command += fmt::format(" --record modes{}{}", m_recorded.empty() ? "" : ",", fmt::join(m_recorded, ","));
    }
    command += m_decimation > 1 ? " --record-decimation 1" : "";
    return command + (m_last_s ? " --record-last none" : "");
}

std::vector<GainsInForce> RunFolder::LoadGains() const
{
    std::vector<GainsInForce> gains;
    for (const GainsEntry& entry : m_gains) {
        const fs::path file = m_folder / entry.file;
        const std::optional<std::int64_t> rows = CountTableRows(fs::absolute(file).string());
        if (rows && *rows != 1) {
            throw InputError(fmt::format("{}: expected one row but it has {}", file.string(), *rows));
        }
        ravelcore::DoubleBuffer row("gains", m_modes * ravelcore::NUM_PID_FILTER_PARAMS);
        LoadOfRun(file, [&row](const std::string& path) { row.Load(path); });
        gains.push_back({entry.before_cycle, row.Get()});
    }
    return gains;
}

}  // namespace lumo::ravelctl
