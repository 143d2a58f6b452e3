#pragma once

#include <filesystem>
#include <vector>

namespace lumo::ravelctl::test {

/// A recording as it stands in its file: one row per cycle.
struct Recording
{
    int rows = 0;
    int cols = 0;
    std::vector<float> values;  // row-major
    std::vector<double> timestamps;

    float At(int row, int col) const
    {
        return values[static_cast<std::size_t>(row) * static_cast<std::size_t>(cols) + static_cast<std::size_t>(col)];
    }
};

Recording LoadRecording(const std::filesystem::path& file);

/// Amplitude of the sine of `frequency_hz` in one column, over rows `begin` to `end` - 1, which must be whole periods.
double MeasureAmplitude(const Recording& recording, int col, int begin, int end, double frequency_hz, double rate_hz);

}  // namespace lumo::ravelctl::test
