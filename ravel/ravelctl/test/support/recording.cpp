#include "support/recording.hpp"

#include <lumo/ravelcore/utils.hpp>

#include <cmath>
#include <complex>
#include <numbers>

namespace lumo::ravelctl::test {

Recording LoadRecording(const std::filesystem::path& file)
{
    Recording recording;
    ravelcore::LoadMatrixFromFitsBinTable(std::filesystem::absolute(file).string(), recording.rows, recording.cols,
                                          recording.values, recording.timestamps);
    return recording;
}

double MeasureAmplitude(const Recording& recording, int col, int begin, int end, double frequency_hz, double rate_hz)
{
    std::complex<double> sum = 0.0;
    for (int row = begin; row < end; ++row) {
        const double phase = -2.0 * std::numbers::pi * frequency_hz * row / rate_hz;
        sum += static_cast<double>(recording.At(row, col)) * std::polar(1.0, phase);
    }
    return 2.0 * std::abs(sum) / (end - begin);
}

}  // namespace lumo::ravelctl::test
