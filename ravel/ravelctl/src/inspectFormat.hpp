#pragma once

#include "inspectOptions.hpp"
#include "inspectedFile.hpp"

#include <optional>
#include <ostream>
#include <string>
#include <vector>

namespace lumo::ravelctl {

/// What is told of a file.
struct InspectedFacts
{
    std::string file;
    std::uintmax_t bytes = 0;
    TableHeader header;
    int rows = 0;
    int cols = 0;
    std::optional<TimeFacts> time;  // where there are time stamps
    ValueFacts values;
    std::optional<std::vector<ColumnFacts>> statistics;  // where they are asked for
};

/// A file that could not be read.
struct InspectProblem
{
    std::string file;
    std::string problem;  // one line
};

/// For people: a few lines, and a table of the statistics.
std::string FormatFacts(const InspectedFacts& facts);

/// For programs: one JSON document, in seconds; what is no number is null.
std::string FormatFactsAsJson(const std::vector<InspectedFacts>& files, const std::vector<InspectProblem>& problems);

/// Rows as lines of comma-separated values under a line of names; the time stamps, if any, come first. Numbers are as
/// short as they can be for the same bits to be read from them. Failure: InputError for rows that there are not.
void WriteCsv(const InspectedFile& inspected, const std::vector<int>& columns, const RowRange& rows, std::ostream& out);

}  // namespace lumo::ravelctl
