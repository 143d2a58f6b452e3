#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace lumo::ravelctl {

/// How many values lie from `low` to below `high`.
struct HistogramBin
{
    double low;
    double high;
    std::int64_t count;
};

/// Bins of equal width on a logarithmic scale, from that of the smallest value to that of the largest, empty ones
/// between them included: the finest scale that has at most 16 of them. A value of 0 or less counts as 0.001.
std::vector<HistogramBin> MakeHistogram(const std::vector<float>& values);

/// One line per bin with its range, count and bar, in plain characters and at most 80 columns; "" for no bins. Whoever
/// reads it sees every count: a bar that is too short for a mark is a dot.
std::string FormatHistogram(const std::vector<HistogramBin>& bins);

}  // namespace lumo::ravelctl
