#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

/// What can be said of a recording: of its time stamps, of its values, and of each of its columns.
namespace lumo::ravelctl {

/// A matrix, row-major. Rows and columns are counted from 0.
struct MatrixView
{
    std::span<const float> values;
    int rows = 0;
    int cols = 0;
};

/// From the time stamp of a row to that of the next.
struct TimeStep
{
    std::int64_t row = 0;
    double time_s = 0.0;  // the row's time stamp
    double length_s = 0.0;
};

struct TimeFacts
{
    std::int64_t samples = 0;
    double first_s = 0.0;
    double last_s = 0.0;
    std::int64_t not_finite = 0;  // time stamps that are no number; steps from and to them are left aside
    std::optional<std::int64_t> first_bad_row;
    std::optional<double> period_s;  // the median step; none where there is no step or the median is not above 0
    double jitter_rms_s = 0.0;       // how far steps are from the period, gaps and steps back left aside
    double jitter_max_s = 0.0;
    std::vector<TimeStep> gaps;  // longer than 1.5 periods
    std::vector<TimeStep> back;  // not above 0
};

struct ValueFacts
{
    std::int64_t not_finite = 0;
    std::int64_t first_row = 0;  // of the first that is not, if any is
    int first_col = 0;
    float first_value = 0.0F;
};

/// Of the finite values of a column; NaN where there are none.
struct ColumnFacts
{
    int column = 0;
    std::int64_t not_finite = 0;
    double min = 0.0;
    double max = 0.0;
    double mean = 0.0;
    double rms = 0.0;
    double deviation = 0.0;  // standard; of all values, not estimated from a sample: divided by their number
};

TimeFacts FindTimeFacts(std::span<const double> timestamps);

ValueFacts FindValueFacts(const MatrixView& matrix);

/// One for each of `columns`, in their order, computed in double precision.
std::vector<ColumnFacts> FindColumnFacts(const MatrixView& matrix, const std::vector<int>& columns);

}  // namespace lumo::ravelctl
