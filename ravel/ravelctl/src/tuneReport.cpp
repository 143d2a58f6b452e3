#include "tuneReport.hpp"

#include "error.hpp"
#include "outputFile.hpp"
#include "version.hpp"
#include "wholeFile.hpp"

#include <fmt/core.h>
#include <fmt/ranges.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <fstream>
#include <limits>
#include <span>

namespace lumo::ravelctl {

namespace {

using Json = nlohmann::ordered_json;

double Median(std::vector<double> values)
{
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

/// One line of the table: modes of similar size, or all of them.
std::string FormatGroup(const std::string& name, std::span<const ModeTuning> modes)
{
    std::vector<double> crossover_now;
    std::vector<double> crossover;
    crossover_now.reserve(modes.size());
    crossover.reserve(modes.size());
    Tuning group;
    group.modes.assign(modes.begin(), modes.end());
    constexpr double NONE = std::numeric_limits<double>::infinity();
    double phase_margin = NONE;
    double gain_margin = NONE;
    double peak = 0.0;
    double noise = 0.0;
    for (const ModeTuning& mode : modes) {
        crossover_now.push_back(mode.now.margins.crossover_hz);
        crossover.push_back(mode.proposed.margins.crossover_hz);
        phase_margin = std::min(phase_margin, mode.proposed.margins.phase_margin_deg);
        gain_margin = std::min(gain_margin, mode.proposed.margins.gain_margin_db);
        peak = std::max(peak, mode.proposed.sensitivity_peak);
        noise += mode.noise_um2;
    }
    const TuningTotals totals = group.ComputeTotals();
    return fmt::format("{:<12}{:>8.1f}{:>10.1f}{:>10.0f}{:>8.1f}{:>8.2f}{:>11.2f}{:>11.2f}{:>9.2f}\n", name,
                       Median(crossover_now), Median(crossover), phase_margin, gain_margin, peak, totals.surface_now_nm,
                       totals.surface_proposed_nm, SurfaceNm(noise));
}

std::string FormatTable(const Tuning& tuning)
{
    std::string text =
        fmt::format("{:<12}{:>18}{:>26}{:>22}{:>9}\n{:<12}{:>8}{:>10}{:>10}{:>8}{:>8}{:>11}{:>11}{:>9}\n", "",
                    "crossover, Hz", "margins, worst", "surface, nm rms", "noise", "modes", "now", "proposed", "deg",
                    "dB", "peak", "now", "predicted", "nm rms");
    constexpr std::array<std::size_t, 7> ENDS = {10, 30, 100, 300, 1000, 2000, 10000};
    const std::span<const ModeTuning> modes(tuning.modes);
    std::size_t begin = 0;
    for (const std::size_t end : ENDS) {
        const std::size_t last = std::min(end, modes.size());
        if (begin < last) {
            text += FormatGroup(fmt::format("{}-{}", begin, last - 1), modes.subspan(begin, last - begin));
            begin = last;
        }
    }
    return text + FormatGroup("all", modes);
}

std::string FormatFigure(const std::optional<double>& value)
{
    return value ? fmt::format("{:11.2f}", *value) : fmt::format("{:>11}", "-");
}

/// None where that is not a number.
Json Finite(double value)
{
    return std::isfinite(value) ? Json(value) : Json(nullptr);
}

Json ToJson(const TunedLoop& loop)
{
    return {{"kp", loop.kp},
            {"ki", loop.ki},
            {"crossover_hz", loop.margins.crossover_hz},
            {"phase_margin_deg", loop.margins.phase_margin_deg},
            {"gain_margin_db", Finite(loop.margins.gain_margin_db)},
            {"sensitivity_peak", Finite(loop.sensitivity_peak)},
            {"residual_um2", Finite(loop.residual_um2)}};
}

Json ToJson(const ModeTuning& mode)
{
    return {{"kept", mode.is_kept},
            {"noise_um2", mode.noise_um2},
            {"recorded_um2", mode.recorded_um2 ? Json(*mode.recorded_um2) : Json(nullptr)},
            {"now", ToJson(mode.now)},
            {"proposed", ToJson(mode.proposed)}};
}

Json ToJson(const LoopDemands& demands)
{
    return {{"phase_margin_deg", demands.phase_margin_deg},
            {"gain_margin_db", demands.gain_margin_db},
            {"sensitivity_peak", demands.sensitivity_peak},
            {"max_crossover_hz", demands.max_crossover_hz ? Json(*demands.max_crossover_hz) : Json(nullptr)}};
}

/// Without the number that the library of JSON begins its messages with.
std::string Explain(const Json::exception& error)
{
    if (dynamic_cast<const Json::parse_error*>(&error) != nullptr) {
        return "it is no JSON";
    }
    const std::string text = error.what();
    const std::size_t end = text.find("] ");
    return text.starts_with('[') && end != std::string::npos ? text.substr(end + 2) : text;
}

}  // namespace

std::string FormatTuning(const Tuning& tuning)
{
    const TuningTotals totals = tuning.ComputeTotals();
    std::string text = FormatTable(tuning);
    text += fmt::format("\n{:<24}{:>11}{:>11}{:>11}\n", "all modes, nm rms", "in the run", "computed", "predicted");
    text += fmt::format("  {:<22}{}{:11.2f}{:11.2f}\n", "as measured", FormatFigure(totals.recorded_nm), totals.now_nm,
                        totals.proposed_nm);
    text += fmt::format("  {:<22}{}{:11.2f}{:11.2f}\n", "surface, controlled", FormatFigure(tuning.run_surface_nm),
                        totals.surface_now_nm, totals.surface_proposed_nm);
    text += fmt::format("surface predicted, by quarters of the recording: {:.2f} nm rms\n",
                        fmt::join(totals.surface_quarters_nm, ", "));
    constexpr std::int64_t FEW_CYCLES = 2500;
    if (tuning.cycles < FEW_CYCLES) {
        text += fmt::format("a disturbance of {:.1f} s does not tell what changes more slowly; the run may have more\n",
                            static_cast<double>(tuning.cycles) / tuning.rate_hz);
    }
    const auto kept =
        std::count_if(tuning.modes.begin(), tuning.modes.end(), [](const ModeTuning& mode) { return mode.is_kept; });
    if (kept > 0) {
        text += fmt::format("{} of {} modes keep their gains: others would not leave 1 % less\n", kept,
                            tuning.modes.size());
    }
    if (totals.surface_proposed_nm > totals.surface_now_nm) {
        text +=
            "the proposed gains leave more than those of the run: these do not meet the demands; relax them, or keep "
            "the run's\n";
    }
    constexpr std::int64_t MANY = 100;  // one cycle in so many; a few are limited whenever a loop is closed
    if (tuning.limited_cycles > tuning.cycles / MANY) {
        text += fmt::format("commands were limited in {} of {} cycles; the prediction knows no limits\n",
                            tuning.limited_cycles, tuning.cycles);
    }
    constexpr double FAR = 0.2;
    if (totals.recorded_nm && std::abs(totals.now_nm - *totals.recorded_nm) > FAR * *totals.recorded_nm) {
        text += fmt::format(
            "what was measured in the run is not what is computed of it: the loop had references or limits, or the "
            "disturbance changed on the way{}\n",
            tuning.is_from_open ? ", or the plant is another one" : "");
    }
    return text;
}

void WriteTuning(const Tuning& tuning, const std::filesystem::path& run, const std::filesystem::path& file)
{
    const TuningTotals totals = tuning.ComputeTotals();
    Json modes = Json::array();
    for (const ModeTuning& mode : tuning.modes) {
        modes.push_back(ToJson(mode));
    }
    const Json json = {
        {"version", VERSION},
        {"run", std::filesystem::absolute(run).string()},
        {"from", tuning.is_from_open ? "open" : "closed"},
        {"rate_hz", tuning.rate_hz},
        {"cycles", tuning.cycles},
        {"skipped_cycles", tuning.skipped},
        {"limited_cycles", tuning.limited_cycles},
        {"plant", {{"lag_coefficient", tuning.plant.lag_coefficient}, {"delay_cycles", tuning.plant.delay_cycles}}},
        {"demands", ToJson(tuning.demands)},
        {"measured_nm",
         {{"recorded", totals.recorded_nm ? Json(*totals.recorded_nm) : Json(nullptr)},
          {"now", Finite(totals.now_nm)},
          {"predicted", totals.proposed_nm}}},
        {"surface_nm",
         {{"recorded", tuning.run_surface_nm ? Json(*tuning.run_surface_nm) : Json(nullptr)},
          {"now", Finite(totals.surface_now_nm)},
          {"predicted", totals.surface_proposed_nm},
          {"predicted_by_quarter", totals.surface_quarters_nm}}},
        {"modes", modes},
    };
    try {
        WriteWholeText(file, json.dump(2) + "\n");
    } catch (const std::exception& e) {
        throw RunError(CannotWrite(file, e.what()));
    }
}

Prediction ReadPrediction(const std::filesystem::path& file)
{
    std::ifstream stream(file, std::ios::binary);
    if (!stream) {
        throw InputError(fmt::format("--check: expected a tune.json but {} cannot be read", file.string()));
    }
    try {
        const Json json = Json::parse(stream);
        Prediction prediction;
        json.at("rate_hz").get_to(prediction.rate_hz);
        json.at("measured_nm").at("predicted").get_to(prediction.residual_nm);
        json.at("surface_nm").at("predicted").get_to(prediction.surface_nm);
        const Json& modes = json.at("modes");
        prediction.modes.reserve(modes.size());
        for (const Json& mode : modes) {
            const Json& proposed = mode.at("proposed");
            prediction.modes.push_back({proposed.at("kp").get<float>(), proposed.at("ki").get<float>(),
                                        proposed.at("residual_um2").get<double>()});
        }
        return prediction;
    } catch (const Json::exception& e) {
        throw InputError(fmt::format("--check: {}: expected a tune.json, as ravelctl tune --output leaves it, but {}",
                                     file.string(), Explain(e)));
    }
}

}  // namespace lumo::ravelctl
