#include "fileFacts.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

namespace lumo::ravelctl {

namespace {

std::optional<double> Median(std::vector<double> values)
{
    if (values.empty()) {
        return std::nullopt;
    }
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    if (values.size() % 2 == 1) {
        return *middle;
    }
    return (*std::max_element(values.begin(), middle) + *middle) / 2.0;
}

/// Steps between time stamps that are numbers both.
std::vector<TimeStep> FindSteps(std::span<const double> timestamps)
{
    std::vector<TimeStep> steps;
    for (std::size_t row = 0; row + 1 < timestamps.size(); ++row) {
        const double length = timestamps[row + 1] - timestamps[row];
        if (std::isfinite(length)) {
            steps.push_back({static_cast<std::int64_t>(row), timestamps[row], length});
        }
    }
    return steps;
}

std::optional<double> FindPeriod(const std::vector<TimeStep>& steps)
{
    std::vector<double> lengths;
    lengths.reserve(steps.size());
    for (const TimeStep& step : steps) {
        lengths.push_back(step.length_s);
    }
    const std::optional<double> median = Median(std::move(lengths));
    return median && *median > 0.0 ? median : std::nullopt;
}

/// Sorts the steps into gaps, steps back and ordinary ones, whose jitter it measures.
void JudgeSteps(const std::vector<TimeStep>& steps, TimeFacts& facts)
{
    constexpr double GAP_PERIODS = 1.5;
    double sum = 0.0;
    std::int64_t ordinary = 0;
    for (const TimeStep& step : steps) {
        if (step.length_s <= 0.0) {
            facts.back.push_back(step);
        } else if (facts.period_s && step.length_s > GAP_PERIODS * *facts.period_s) {
            facts.gaps.push_back(step);
        } else if (facts.period_s) {
            const double error = std::abs(step.length_s - *facts.period_s);
            facts.jitter_max_s = std::max(facts.jitter_max_s, error);
            sum += error * error;
            ++ordinary;
        }
    }
    facts.jitter_rms_s = ordinary == 0 ? 0.0 : std::sqrt(sum / static_cast<double>(ordinary));
}

/// Calls `use` with each selected column's place in the selection and its value, row by row, as memory has them.
template <typename Use>
void ForEachFinite(const MatrixView& matrix, const std::vector<int>& columns, Use&& use)
{
    for (int row = 0; row < matrix.rows; ++row) {
        const auto begin = static_cast<std::size_t>(row) * static_cast<std::size_t>(matrix.cols);
        for (std::size_t i = 0; i < columns.size(); ++i) {
            const double value = matrix.values[begin + static_cast<std::size_t>(columns[i])];
            if (std::isfinite(value)) {
                use(i, value);
            }
        }
    }
}

}  // namespace

TimeFacts FindTimeFacts(std::span<const double> timestamps)
{
    TimeFacts facts;
    facts.samples = static_cast<std::int64_t>(timestamps.size());
    if (timestamps.empty()) {
        return facts;
    }
    facts.first_s = timestamps.front();
    facts.last_s = timestamps.back();
    for (std::size_t row = 0; row < timestamps.size(); ++row) {
        if (!std::isfinite(timestamps[row])) {
            facts.first_bad_row = facts.first_bad_row.value_or(static_cast<std::int64_t>(row));
            ++facts.not_finite;
        }
    }
    const std::vector<TimeStep> steps = FindSteps(timestamps);
    facts.period_s = FindPeriod(steps);
    JudgeSteps(steps, facts);
    return facts;
}

ValueFacts FindValueFacts(const MatrixView& matrix)
{
    ValueFacts facts;
    for (std::size_t i = 0; i < matrix.values.size(); ++i) {
        if (std::isfinite(matrix.values[i])) {
            continue;
        }
        if (facts.not_finite == 0) {
            const auto cols = static_cast<std::size_t>(matrix.cols);
            facts.first_row = static_cast<std::int64_t>(i / cols);
            facts.first_col = static_cast<int>(i % cols);
            facts.first_value = matrix.values[i];
        }
        ++facts.not_finite;
    }
    return facts;
}

std::vector<ColumnFacts> FindColumnFacts(const MatrixView& matrix, const std::vector<int>& columns)
{
    struct Sums
    {
        std::int64_t count = 0;
        double sum = 0.0;
        double squares = 0.0;
        double deviations = 0.0;  // squared
    };
    constexpr double NONE = std::numeric_limits<double>::quiet_NaN();
    std::vector<Sums> sums(columns.size());
    std::vector<ColumnFacts> facts(columns.size());
    ForEachFinite(matrix, columns, [&](std::size_t i, double value) {
        const bool first = sums[i].count == 0;
        facts[i].min = first ? value : std::min(facts[i].min, value);
        facts[i].max = first ? value : std::max(facts[i].max, value);
        ++sums[i].count;
        sums[i].sum += value;
        sums[i].squares += value * value;
    });
    for (std::size_t i = 0; i < columns.size(); ++i) {
        const auto count = static_cast<double>(std::max<std::int64_t>(sums[i].count, 1));
        facts[i].mean = sums[i].sum / count;
        facts[i].rms = std::sqrt(sums[i].squares / count);
    }
    // From the mean, in a second pass: the difference of two large sums would have lost a small deviation.
    ForEachFinite(matrix, columns, [&](std::size_t i, double value) {
        sums[i].deviations += (value - facts[i].mean) * (value - facts[i].mean);
    });
    for (std::size_t i = 0; i < columns.size(); ++i) {
        facts[i].column = columns[i];
        facts[i].not_finite = matrix.rows - sums[i].count;
        facts[i].deviation =
            std::sqrt(sums[i].deviations / static_cast<double>(std::max<std::int64_t>(sums[i].count, 1)));
        if (sums[i].count == 0) {
            facts[i].min = facts[i].max = facts[i].mean = facts[i].rms = facts[i].deviation = NONE;
        }
    }
    return facts;
}

}  // namespace lumo::ravelctl
