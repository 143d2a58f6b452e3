#include "inspect.hpp"

#include "error.hpp"
#include "errorLine.hpp"
#include "inspectFormat.hpp"
#include "longWork.hpp"
#include "modeList.hpp"
#include "terminalStyle.hpp"

#include <fmt/core.h>
#include <unistd.h>

#include <numeric>

namespace lumo::ravelctl {

namespace {

std::vector<int> SelectColumns(const InspectOptions& options, const InspectedFile& inspected)
{
    if (options.columns.empty()) {
        std::vector<int> all(static_cast<std::size_t>(inspected.cols));
        std::iota(all.begin(), all.end(), 0);
        return all;
    }
    if (inspected.cols == 0) {
        throw InputError("--columns: the table's rows are empty; leave the option out");
    }
    try {
        return ParseModeList(options.columns, inspected.cols, "column");
    } catch (const InputError& e) {
        throw InputError(fmt::format("--columns: {}", e.what()));
    }
}

InspectedFacts FindFacts(const InspectOptions& options, const InspectedFile& inspected, const std::vector<int>& columns)
{
    InspectedFacts facts;
    facts.file = inspected.file.string();
    facts.bytes = inspected.bytes;
    facts.header = inspected.header;
    facts.rows = inspected.rows;
    facts.cols = inspected.cols;
    if (inspected.header.HasTime() && inspected.header.time_units_per_s) {
        facts.time = FindTimeFacts(inspected.timestamps);
    }
    facts.values = FindValueFacts(inspected.GetMatrix());
    if (options.statistics) {
        facts.statistics = FindColumnFacts(inspected.GetMatrix(), columns);
    }
    return facts;
}

/// Only people are told how far it is, where the output itself does not come between: standard error is for errors.
StatusLine::Style ProgressStyle(const InspectOptions& options)
{
    const bool rows_come_between = options.csv && FindTerminalStyle(STDOUT_FILENO).is_terminal;
    const bool is_terminal = FindTerminalStyle(STDERR_FILENO).is_terminal;
    return StatusLine::StyleFor(rows_come_between || !is_terminal, STDERR_FILENO);
}

/// What the options ask for of one file; of JSON there is one document in the end.
void InspectFile(const InspectOptions& options, const std::filesystem::path& file, std::vector<InspectedFacts>& found,
                 std::ostream& out, std::ostream& err)
{
    LongWork work(ProgressStyle(options), err, fmt::format("reading {}", file.string()));
    const InspectedFile inspected = LoadInspectedFile(file);
    try {
        const std::vector<int> columns = SelectColumns(options, inspected);
        if (options.csv) {
            work.Tell(fmt::format("printing the rows of {}", file.string()));
            WriteCsv(inspected, columns, options.rows, out);
            return;
        }
        work.Tell(fmt::format("looking at the values of {}", file.string()));
        found.push_back(FindFacts(options, inspected, columns));
    } catch (const InputError& e) {
        throw InputError(fmt::format("{}: {}", file.string(), e.what()));
    }
    if (!options.json) {
        work.Finish();
        out << (found.size() > 1 ? "\n" : "") << FormatFacts(found.back());
    }
}

}  // namespace

int InspectFiles(const InspectOptions& options, std::ostream& out, std::ostream& err)
{
    std::vector<InspectedFacts> found;
    std::vector<InspectProblem> problems;
    for (const std::filesystem::path& file : options.files) {
        try {
            InspectFile(options, file, found, out, err);
        } catch (const InputError& e) {
            out << std::flush;
            err << FormatErrorLine(e.what()) << std::flush;
            problems.push_back({file.string(), e.what()});
        }
    }
    if (options.json) {
        out << FormatFactsAsJson(found, problems);
    }
    if (!out.flush()) {
        throw RunError("cannot write to standard output; free some space or send it elsewhere");
    }
    return problems.empty() ? EXIT_OK : EXIT_BAD_INPUT;
}

}  // namespace lumo::ravelctl
