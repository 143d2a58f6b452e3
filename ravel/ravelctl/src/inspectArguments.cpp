#include "inspectArguments.hpp"

#include "commandOutline.hpp"
#include "error.hpp"
#include "helpText.hpp"

#include <CLI/CLI.hpp>
#include <fmt/core.h>

#include <charconv>
#include <string_view>

namespace lumo::ravelctl {

namespace {

std::optional<std::int64_t> ParseCount(std::string_view text)
{
    std::int64_t count = -1;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), count);
    const bool whole = error == std::errc() && end == text.data() + text.size();
    return whole && count >= 0 ? std::optional(count) : std::nullopt;
}

RowRange ParseRows(const std::string& text)
{
    const std::string_view all = text;
    const std::size_t colon = all.find(':');
    const bool has_end = colon != std::string_view::npos && colon + 1 < all.size();
    const std::optional<std::int64_t> begin = colon == 0 ? 0 : ParseCount(all.substr(0, colon));
    const std::optional<std::int64_t> end = has_end ? ParseCount(all.substr(colon + 1)) : std::nullopt;
    if (colon == std::string_view::npos || !begin || has_end != end.has_value()) {
        throw InputError(fmt::format("--rows: expected BEGIN:END, such as 0:100, :100 or 100:, but got {}", text));
    }
    return {*begin, end};
}

}  // namespace

void AddInspectOptions(CLI::App& command, InspectArguments& arguments)
{
    InspectOptions& options = arguments.options;
    command.add_option("FILE", options.files, "FITS files: recordings, modulations, matrices")
        ->required()
        ->type_name(FILE_VALUE);
    CLI::Option* const statistics =
        command.add_flag("--statistics", options.statistics,
                         "Per column: smallest and largest value, mean, rms, standard deviation, of what is finite");
    command.add_option("--columns", options.columns, "The columns to show, such as 5 or 0,3,10-19 [all]")
        ->type_name("LIST");
    CLI::Option* const csv =
        command.add_flag("--csv", options.csv, "Print the rows of one file as comma-separated values instead");
    command.add_option("--rows", arguments.rows, "The rows to print as CSV; END is not one of them [all]")
        ->type_name("BEGIN:END")
        ->needs(csv);
    command.add_flag("--json", options.json, "Print JSON, for programs: one document for all files")->excludes(csv);
    csv->excludes(statistics);
    command.footer(FormatFooter(
        "Rows and columns are counted from 0. The first table of a file is shown: a column of vectors as a matrix, "
        "with "
        "time stamps from a first column of scalars; columns of scalars side by side as one matrix, with time stamps "
        "from the one whose name or unit says time. Their unit may be s, ms, us or ns. The period is the median step "
        "from a time stamp to the next; "
        "longer than 1.5 periods it is a gap.",
        {"ravelctl inspect run/*.fits", "ravelctl inspect run/modes_in.fits --statistics --columns 0-9",
         "ravelctl inspect run/modes_in.fits --csv --columns 0,3 --rows 0:500 > start.csv",
         "ravelctl inspect run/modes_in.fits --json | jq '.files[0].time.period_s'"},
        "all files were read", "the output could not be written"));
}

InspectOptions ReadInspectOptions(const InspectArguments& arguments)
{
    InspectOptions options = arguments.options;
    if (!arguments.rows.empty()) {
        options.rows = ParseRows(arguments.rows);
    }
    if (options.csv && options.files.size() > 1) {
        throw InputError(
            fmt::format("--csv: expected one file but got {}; print them one after the other", options.files.size()));
    }
    if (!options.columns.empty() && !options.csv && !options.statistics) {
        throw InputError("--columns: expected --statistics or --csv, of which it picks columns, but got neither");
    }
    return options;
}

}  // namespace lumo::ravelctl
