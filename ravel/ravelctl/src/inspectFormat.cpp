#include "inspectFormat.hpp"

#include "counted.hpp"
#include "error.hpp"
#include "resources.hpp"

#include <fmt/core.h>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <iterator>

namespace lumo::ravelctl {

namespace {

using Json = nlohmann::ordered_json;

std::string Line(const char* name, const std::string& text)
{
    return fmt::format("  {:<11}{}\n", name, text);
}

/// Seconds go without saying.
std::string DescribeUnit(const std::string& unit)
{
    return unit == "s" ? "" : unit.empty() ? " (no unit, taken as s)" : fmt::format(" ({})", unit);
}

std::string DescribeTable(const InspectedFacts& facts)
{
    const TableHeader& header = facts.header;
    std::string text = fmt::format("{}, {}, {}, {}", header.name.empty() ? "no name" : header.name,
                                   Counted(facts.cols, "column"), Counted(facts.rows, "row"), header.type);
    if (!header.exact) {
        text += " read as 32-bit floats";
    }
    if (header.HasTime()) {
        text += fmt::format("; time stamps from {}{}", header.time_column.empty() ? "no name" : header.time_column,
                            DescribeUnit(header.time_unit));
    }
    const auto shown = static_cast<int>(header.numbers.size()) + (header.HasTime() ? 1 : 0);
    if (header.columns > shown) {
        text += header.numbers == std::vector<int>{1}
                    ? fmt::format("; the first of {} in the table", header.columns)
                    : fmt::format("; {} of the table's {} columns left out", header.columns - shown, header.columns);
    }
    if (header.extension_number > 1) {
        text += fmt::format("; in extension {}", header.extension_number);
    }
    return text;
}

/// The first few of the steps.
std::string DescribeSteps(const std::vector<TimeStep>& steps)
{
    constexpr std::size_t FEW = 3;
    std::string text = fmt::format("{}: ", steps.size());
    for (std::size_t i = 0; i < std::min(FEW, steps.size()); ++i) {
        text += fmt::format("{}{:.3f} ms after row {} at {:.3f} s", i == 0 ? "" : ", ", 1e3 * steps[i].length_s,
                            steps[i].row, steps[i].time_s);
    }
    return text + (steps.size() > FEW ? fmt::format(" and {} more", steps.size() - FEW) : "");
}

std::string DescribeTime(const TimeFacts& time)
{
    const std::string samples = Counted(time.samples, "sample");
    std::string text =
        Line("time", time.samples == 1 ? fmt::format("{:.3f} s, {}", time.first_s, samples)
                                       : fmt::format("{:.3f} to {:.3f} s, {}", time.first_s, time.last_s, samples));
    if (time.first_bad_row) {
        text += Line("", fmt::format("{} not finite, the first in row {}", time.not_finite, *time.first_bad_row));
    }
    if (time.period_s) {
        text += Line("period",
                     fmt::format("{:.3f} ms ({:.6g} Hz), jitter {:.3f} us rms, max {:.3f} us", 1e3 * *time.period_s,
                                 1.0 / *time.period_s, 1e6 * time.jitter_rms_s, 1e6 * time.jitter_max_s));
        text += Line("gaps", time.gaps.empty() ? "none" : DescribeSteps(time.gaps));
    } else if (time.samples > 1) {
        text += Line("period", "none: most time stamps do not go on");
    }
    return text + (time.back.empty() ? "" : Line("going back", DescribeSteps(time.back)));
}

/// Of time stamps that are there.
std::string DescribeTime(const InspectedFacts& facts)
{
    return facts.time ? DescribeTime(*facts.time)
                      : Line("time", fmt::format("not judged: {} is no unit that is known here (s, ms, us or ns)",
                                                 facts.header.time_unit));
}

std::string DescribeValues(const InspectedFacts& facts)
{
    if (facts.cols == 0) {
        return "none";
    }
    const ValueFacts& values = facts.values;
    return values.not_finite == 0 ? "finite"
                                  : fmt::format("{} not finite, the first in row {}, column {}: {}", values.not_finite,
                                                values.first_row, values.first_col, values.first_value);
}

/// "" for a column of a matrix, which is known by its number.
std::string NameColumn(const TableHeader& header, int column)
{
    return header.IsOfScalars() ? header.names.at(static_cast<std::size_t>(column)) : "";
}

std::string FormatStatistics(const std::vector<ColumnFacts>& statistics, const TableHeader& header)
{
    const bool finite = std::all_of(statistics.begin(), statistics.end(),
                                    [](const ColumnFacts& column) { return column.not_finite == 0; });
    std::string text = fmt::format("  {:>6}{:>14}{:>14}{:>14}{:>14}{:>14}{}{}\n", "column", "min", "max", "mean", "rms",
                                   "deviation", finite ? "" : "    not finite", header.IsOfScalars() ? "  name" : "");
    for (const ColumnFacts& column : statistics) {
        text += fmt::format("  {:>6}{:>14.6g}{:>14.6g}{:>14.6g}{:>14.6g}{:>14.6g}{}{}\n", column.column, column.min,
                            column.max, column.mean, column.rms, column.deviation,
                            finite ? "" : fmt::format("{:>14}", column.not_finite),
                            header.IsOfScalars() ? "  " + NameColumn(header, column.column) : "");
    }
    return text;
}

Json ToJson(const std::vector<TimeStep>& steps)
{
    Json list = Json::array();
    for (const TimeStep& step : steps) {
        list.push_back({{"row", step.row}, {"time_s", step.time_s}, {"length_s", step.length_s}});
    }
    return list;
}

Json ToJson(const std::optional<TimeFacts>& time, const TableHeader& header)
{
    if (!time) {
        return nullptr;
    }
    const bool regular = time->period_s.has_value();
    return {{"column", header.time_column},
            {"samples", time->samples},
            {"first_s", time->first_s},
            {"last_s", time->last_s},
            {"not_finite", time->not_finite},
            {"period_s", regular ? Json(*time->period_s) : Json(nullptr)},
            {"jitter_rms_s", regular ? Json(time->jitter_rms_s) : Json(nullptr)},
            {"jitter_max_s", regular ? Json(time->jitter_max_s) : Json(nullptr)},
            {"gaps", ToJson(time->gaps)},
            {"going_back", ToJson(time->back)}};
}

Json ToJson(const ValueFacts& values)
{
    Json first = nullptr;
    if (values.not_finite > 0) {
        first = {{"row", values.first_row}, {"column", values.first_col}};
    }
    return {{"not_finite", values.not_finite}, {"first_not_finite", first}};
}

Json ToJson(const ColumnFacts& column, const TableHeader& header)
{
    return {{"column", column.column},
            {"name", header.IsOfScalars() ? Json(NameColumn(header, column.column)) : Json(nullptr)},
            {"min", column.min},
            {"max", column.max},
            {"mean", column.mean},
            {"rms", column.rms},
            {"standard_deviation", column.deviation},
            {"not_finite", column.not_finite}};
}

Json ToJson(const InspectedFacts& facts)
{
    Json json = {{"file", facts.file},
                 {"bytes", facts.bytes},
                 {"extension", facts.header.extension},
                 {"extension_number", facts.header.extension_number},
                 {"name", facts.header.name},
                 {"format", facts.header.format},
                 {"type", facts.header.type},
                 {"columns", facts.cols},
                 {"rows", facts.rows},
                 {"table_columns", facts.header.columns},
                 {"column_names", facts.header.IsOfScalars() ? Json(facts.header.names) : Json(nullptr)},
                 {"time_unit", facts.header.HasTime() ? Json(facts.header.time_unit) : Json(nullptr)},
                 {"time", ToJson(facts.time, facts.header)},
                 {"values", ToJson(facts.values)}};
    if (facts.statistics) {
        json["statistics"] = Json::array();
        for (const ColumnFacts& column : *facts.statistics) {
            json["statistics"].push_back(ToJson(column, facts.header));
        }
    }
    return json;
}

/// A name as a field of CSV.
std::string Quote(const std::string& name)
{
    if (name.find_first_of(",\"\r\n") == std::string::npos) {
        return name;
    }
    std::string quoted = "\"";
    for (const char character : name) {
        quoted.append(character == '"' ? 2 : 1, character);
    }
    return quoted + "\"";
}

}  // namespace

std::string FormatFacts(const InspectedFacts& facts)
{
    std::string text = fmt::format("{}  ({})\n", facts.file, FormatBytes(facts.bytes));
    text += Line("table", DescribeTable(facts));
    text += facts.header.HasTime() ? DescribeTime(facts) : Line("time", "no time stamps");
    text += Line("values", DescribeValues(facts));
    return text + (facts.statistics ? FormatStatistics(*facts.statistics, facts.header) : "");
}

std::string FormatFactsAsJson(const std::vector<InspectedFacts>& files, const std::vector<InspectProblem>& problems)
{
    Json json = {{"files", Json::array()}, {"problems", Json::array()}};
    for (const InspectedFacts& facts : files) {
        json["files"].push_back(ToJson(facts));
    }
    for (const InspectProblem& problem : problems) {
        json["problems"].push_back({{"file", problem.file}, {"problem", problem.problem}});
    }
    // Names of files and columns need not be UTF-8.
    return json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

void WriteCsv(const InspectedFile& inspected, const std::vector<int>& columns, const RowRange& rows, std::ostream& out)
{
    const std::int64_t end = rows.end.value_or(inspected.rows);
    if (end > inspected.rows || rows.begin >= end) {
        throw InputError(fmt::format("--rows: expected some of the rows 0:{} but got {}:{}", inspected.rows, rows.begin,
                                     rows.end ? std::to_string(*rows.end) : ""));
    }
    fmt::memory_buffer line;
    const auto append = [&line](const auto& field) {
        if (line.size() > 0) {
            line.push_back(',');
        }
        fmt::format_to(std::back_inserter(line), "{}", field);
    };
    const auto write = [&line, &out] {
        line.push_back('\n');
        out.write(line.data(), static_cast<std::streamsize>(line.size()));
        line.clear();
    };
    const bool has_time = inspected.header.HasTime();
    if (has_time) {
        append(inspected.header.time_units_per_s
                   ? "time_s"
                   : Quote(fmt::format("{}_{}", inspected.header.time_column, inspected.header.time_unit)));
    }
    for (const int column : columns) {
        append(Quote(inspected.header.IsOfScalars() ? NameColumn(inspected.header, column)
                                                    : fmt::format("{}_{}", inspected.header.name, column)));
    }
    write();
    for (std::int64_t row = rows.begin; row < end && out; ++row) {
        if (has_time) {
            append(inspected.timestamps[static_cast<std::size_t>(row)]);
        }
        const std::size_t begin = static_cast<std::size_t>(row) * static_cast<std::size_t>(inspected.cols);
        for (const int column : columns) {
            append(inspected.values[begin + static_cast<std::size_t>(column)]);
        }
        write();
    }
}

}  // namespace lumo::ravelctl
