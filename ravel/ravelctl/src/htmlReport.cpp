#include "htmlReport.hpp"

#include "error.hpp"
#include "outputFile.hpp"
#include "wholeFile.hpp"

#include <lumo/mirrorsim/geometry.hpp>

#include <fmt/core.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <fstream>

namespace lumo::ravelctl {

namespace {

using Json = nlohmann::ordered_json;

constexpr std::string_view PLACEHOLDER = "@REPORT_DATA@";

Json ToJson(const std::optional<double>& value)
{
    return value && std::isfinite(*value) ? Json(*value) : Json(nullptr);
}

Json ToJson(std::vector<double> values)
{
    std::transform(values.begin(), values.end(), values.begin(), RoundToDigits);
    return values;  // what is not finite becomes null
}

Json ToJson(const ThinnedSeries& series)
{
    Json json = {{"first_s", series.first_s}, {"step_s", series.step_s}, {"rms", ToJson(series.rms)}};
    if (!series.low.empty()) {
        json["low"] = ToJson(series.low);
        json["high"] = ToJson(series.high);
    }
    return json;
}

/// Pistons are whole tenths of a nanometre: fewer letters.
Json ToJson(const MirrorFrames& mirror)
{
    const mirrorsim::Geometry geometry;
    Json segments = Json::array();
    for (const mirrorsim::Segment& segment : geometry.GetSegments()) {
        segments.push_back({segment.q, segment.r});
    }
    Json frames = Json::array();
    for (const std::vector<double>& pistons : mirror.piston_nm) {
        Json frame = Json::array();
        for (const double piston_nm : pistons) {
            frame.push_back(std::isfinite(piston_nm) ? Json(std::llround(piston_nm * 10.0)) : Json(nullptr));
        }
        frames.push_back(std::move(frame));
    }
    return {{"segments", segments},
            {"time_s", mirror.time_s},
            {"rms_nm", ToJson(mirror.rms_nm)},
            {"before", mirror.before ? Json(*mirror.before) : Json(nullptr)},
            {"piston_tenths_nm", frames}};
}

Json ToJson(const ModeSpectra& spectra)
{
    return {{"frequency_hz", ToJson(spectra.frequency_hz)},
            {"before", ToJson(spectra.before)},
            {"after", ToJson(spectra.after)},
            {"rejection_measured", ToJson(spectra.rejection_measured)},
            {"rejection_computed", ToJson(spectra.rejection_computed)},
            {"resolution_hz", spectra.resolution_hz}};
}

Json ToJson(const CycleTimes& times)
{
    const Percentiles& of = times.percentiles_us;
    return {{"edges_us", ToJson(times.histogram.edges_us)},
            {"counts", times.histogram.counts},
            {"marked", times.histogram.late},
            {"percentiles_us", {{"min", of.min}, {"p50", of.p50}, {"p99", of.p99}, {"p999", of.p999}, {"max", of.max}}},
            {"deadline_us", ToJson(times.deadline_us)},
            {"paced", times.paced},
            {"missed", times.missed},
            {"late", times.late ? Json(*times.late) : Json(nullptr)}};
}

Json ToJson(const std::vector<NamedDurations>& all)
{
    Json json = Json::array();
    for (const NamedDurations& one : all) {
        json.push_back({{"name", one.name},
                        {"edges_us", ToJson(one.histogram.edges_us)},
                        {"counts", one.histogram.counts},
                        {"median_us", one.percentiles_us.p50},
                        {"max_us", one.percentiles_us.max}});
    }
    return json;
}

Json ToJson(const std::vector<WorkerSpeed>& speeds)
{
    Json json = Json::array();
    for (const WorkerSpeed& speed : speeds) {
        json.push_back(
            {{"name", speed.name}, {"product_gb_per_s", ToJson(speed.product)}, {"read_gb_per_s", ToJson(speed.read)}});
    }
    return json;
}

Json TablesToJson(const std::vector<ReportTable>& tables)
{
    Json json = Json::array();
    for (const ReportTable& table : tables) {
        Json rows = Json::array();
        for (const auto& [name, values] : table.rows) {
            Json figures = Json::array();
            for (const std::optional<double>& value : values) {
                figures.push_back(ToJson(value));
            }
            rows.push_back({{"name", name}, {"values", figures}});
        }
        json.push_back({{"title", table.title}, {"columns", table.columns}, {"rows", rows}});
    }
    return json;
}

Json MarksToJson(const std::vector<ReportMark>& marks)
{
    Json json = Json::array();
    for (const ReportMark& mark : marks) {
        json.push_back({{"time_s", mark.time_s}, {"what", mark.what}, {"numbered", mark.is_numbered}});
    }
    return json;
}

Json FiguresToJson(const std::vector<ReportFigure>& figures)
{
    Json json = Json::array();
    for (const ReportFigure& figure : figures) {
        json.push_back({{"name", figure.name},
                        {"before_nm", ToJson(figure.value_nm.before)},
                        {"after_nm", ToJson(figure.value_nm.after)}});
    }
    return json;
}

Json ParametersToJson(const std::vector<ParameterGroup>& groups)
{
    Json json = Json::array();
    for (const ParameterGroup& group : groups) {
        Json rows = Json::array();
        for (const auto& [name, value] : group.rows) {
            rows.push_back({name, value});
        }
        json.push_back({{"title", group.title}, {"rows", rows}});
    }
    return json;
}

template <typename Section>
void AddSection(const char* name, const std::optional<Section>& section, Json& json)
{
    if (section) {
        json[name] = ToJson(*section);
    }
}

}  // namespace

std::string ReportJson(const ReportData& data)
{
    Json json = {{"title", data.title},
                 {"version", data.version},
                 {"started_utc", data.started_utc},
                 {"verdict", data.verdict},
                 {"good", data.is_good},
                 {"problems", data.problems},
                 {"figures", FiguresToJson(data.figures)},
                 {"marks", MarksToJson(data.marks)},
                 {"end_s", ToJson(data.end_s)},
                 {"judged_s", ToJson(data.judged_s)},
                 {"crossover_hz", ToJson(data.crossover_hz)}};
    AddSection("mirror", data.mirror, json);
    AddSection("residual", data.residual, json);
    AddSection("surface", data.surface, json);
    AddSection("edge_sensors", data.edge_sensors, json);
    AddSection("spectra", data.spectra, json);
    AddSection("cycle_times", data.cycle_times, json);
    for (const auto& [name, times] :
         {std::pair("execution_times", &data.execution_times), std::pair("start_latencies", &data.start_latencies)}) {
        if (!times->empty()) {
            json[name] = ToJson(*times);
        }
    }
    if (!data.speeds.empty()) {
        json["speeds"] = ToJson(data.speeds);
    }
    json["tables"] = TablesToJson(data.tables);
    if (data.mode_rms) {
        json["mode_rms_nm"] = {{"before", ToJson(data.mode_rms->before)}, {"after", ToJson(data.mode_rms->after)}};
    }
    json["parameters"] = ParametersToJson(data.parameters);
    json["left_out"] = data.left_out;
    // Names of files need not be UTF-8. A "<" stands within texts only, where JSON may write it by its number: then no
    // text can end the element that it stands in, or open a comment.
    const std::string text = json.dump(-1, ' ', false, Json::error_handler_t::replace);
    std::string safe;
    safe.reserve(text.size());
    for (const char letter : text) {
        if (letter == '<') {
            safe += "\\u003c";
        } else {
            safe += letter;
        }
    }
    return safe;
}

void WriteHtmlReport(const ReportData& data, const std::filesystem::path& file)
{
    const std::string_view page = ReportTemplate();
    const std::size_t place = page.find(PLACEHOLDER);
    if (place == std::string_view::npos) {
        throw RunError(fmt::format("cannot write {}: this program was built without the page", file.string()));
    }
    try {
        WriteWhole(file, [&](const std::filesystem::path& part) {
            std::ofstream stream;
            stream.exceptions(std::ios::failbit | std::ios::badbit);
            stream.open(part, std::ios::binary);
            stream << page.substr(0, place) << ReportJson(data) << page.substr(place + PLACEHOLDER.size());
            stream.close();
        });
    } catch (const std::exception& e) {
        throw RunError(CannotWrite(file, e.what()));
    }
}

}  // namespace lumo::ravelctl
