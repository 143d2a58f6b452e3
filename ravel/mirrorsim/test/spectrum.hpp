#pragma once

#include <unsupported/Eigen/FFT>

#include <cmath>
#include <complex>
#include <numbers>
#include <vector>

namespace lumo::mirrorsim {

/// Mean one-sided power density of `series` between two frequencies, in squared units per hertz, from a periodogram
/// under a Hann window, and the number of bins that it is the mean of.
struct BandDensity
{
    double mean;
    int num_bins;
};

inline BandDensity MeasureBandDensity(const std::vector<double>& series, double period_s, double low_hz, double high_hz)
{
    const auto size = static_cast<double>(series.size());
    std::vector<double> windowed(series.size());
    double window_power = 0.0;
    for (std::size_t i = 0; i < series.size(); ++i) {
        const double window = 0.5 - 0.5 * std::cos(2.0 * std::numbers::pi * static_cast<double>(i) / size);
        windowed[i] = series[i] * window;
        window_power += window * window;
    }
    std::vector<std::complex<double>> spectrum;
    Eigen::FFT<double>().fwd(spectrum, windowed);
    BandDensity density{0.0, 0};
    for (std::size_t bin = 0; bin < series.size() / 2; ++bin) {
        const double frequency_hz = static_cast<double>(bin) / (size * period_s);
        if (frequency_hz >= low_hz && frequency_hz < high_hz) {
            density.mean += 2.0 * period_s * std::norm(spectrum[bin]) / window_power;
            ++density.num_bins;
        }
    }
    density.mean /= density.num_bins;
    return density;
}

/// Relative standard deviation of such a mean for Gaussian noise. One bin alone has 1; the window correlates
/// neighbours, which leaves 1 bin in 35/18 to count.
inline double RelativeDeviation(const BandDensity& density)
{
    return std::sqrt(35.0 / 18.0 / density.num_bins);
}

}  // namespace lumo::mirrorsim
