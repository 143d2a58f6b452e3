#include "terminalHistogram.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <cmath>

namespace lumo::ravelctl {

namespace {

constexpr std::int64_t MOST_BINS = 16;
constexpr double SMALLEST = 1.0e-3;
constexpr int MOST_PER_DECADE = 100;

/// Bin `index` begins here.
double Edge(std::int64_t index, double per_decade)
{
    return std::pow(10.0, static_cast<double>(index) / per_decade);
}

/// The bin of a value; by comparing with the edges themselves, because a logarithm is not exact.
std::int64_t FindBin(double value, double per_decade)
{
    auto index = static_cast<std::int64_t>(std::floor(std::log10(value) * per_decade));
    while (value < Edge(index, per_decade)) {
        --index;
    }
    while (value >= Edge(index + 1, per_decade)) {
        ++index;
    }
    return index;
}

double Clip(float value)
{
    return std::max(static_cast<double>(value), SMALLEST);
}

/// Bins per decade: 100, 50, 20, 10, 5, 2, 1, and on to several decades per bin.
double FinestScale(double smallest, double largest)
{
    static constexpr double STEPS[] = {2.0, 2.5, 2.0};
    double per_decade = MOST_PER_DECADE;
    for (std::size_t step = 0; FindBin(largest, per_decade) - FindBin(smallest, per_decade) >= MOST_BINS; ++step) {
        per_decade /= STEPS[step % std::size(STEPS)];
    }
    return per_decade;
}

/// Three digits that matter, and no more.
std::string FormatEdge(double value)
{
    const int decimals = value >= 99.95 ? 0 : value >= 9.995 ? 1 : value >= 0.9995 ? 2 : 3;
    return fmt::format("{:.{}f}", value, decimals);
}

}  // namespace

std::vector<HistogramBin> MakeHistogram(const std::vector<float>& values)
{
    if (values.empty()) {
        return {};
    }
    const auto [smallest, largest] = std::minmax_element(values.begin(), values.end());
    const double per_decade = FinestScale(Clip(*smallest), Clip(*largest));
    const std::int64_t first = FindBin(Clip(*smallest), per_decade);
    std::vector<HistogramBin> bins;
    for (std::int64_t index = first; index <= FindBin(Clip(*largest), per_decade); ++index) {
        bins.push_back({Edge(index, per_decade), Edge(index + 1, per_decade), 0});
    }
    for (const float value : values) {
        ++bins[static_cast<std::size_t>(FindBin(Clip(value), per_decade) - first)].count;
    }
    return bins;
}

std::string FormatHistogram(const std::vector<HistogramBin>& bins)
{
    constexpr double LONGEST_BAR = 40.0;
    std::int64_t most = 1;
    for (const HistogramBin& bin : bins) {
        most = std::max(most, bin.count);
    }
    std::string text;
    for (const HistogramBin& bin : bins) {
        const auto marks = static_cast<std::size_t>(
            std::floor(LONGEST_BAR * static_cast<double>(bin.count) / static_cast<double>(most)));
        const std::string bar = marks == 0 && bin.count > 0 ? "." : std::string(marks, '#');
        text += fmt::format("{:>10} to {:<10}{:>11}{}{}\n", FormatEdge(bin.low), FormatEdge(bin.high), bin.count,
                            bar.empty() ? "" : "  ", bar);
    }
    return text;
}

}  // namespace lumo::ravelctl
