#pragma once

#include <unsupported/Eigen/FFT>

#include <complex>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

/// What a report needs to be worked out of a run's series. Thread: a slow one. Real time: no.
namespace lumo::ravelctl {

/// A series in no more points than a chart can show: each point stands for equally many samples.
struct ThinnedSeries
{
    double first_s = 0.0;  // time of the first point: the middle of its samples
    double step_s = 0.0;   // from point to point
    std::vector<double> rms;
    std::vector<double> low;  // the smallest and the largest sample; both empty where each point is one sample
    std::vector<double> high;
};

/// Thins a series sampled every `period_s` from time 0 on to at most `most_points`. What is left over at the end is a
/// point of its own.
ThinnedSeries Thin(std::span<const float> samples, double period_s, std::size_t most_points);

/// First samples of the segments, half overlapping, into which Welch's method divides `count` samples; `most` of them,
/// spread evenly, where there would be more. Empty where there is not a single one.
std::vector<std::int64_t> SegmentStarts(std::int64_t count, int length, int most);

/// Longest power of two up to `longest` of which `count` samples hold at least two half-overlapping segments; 0 where
/// that is below `shortest`.
int SegmentLength(std::int64_t count, int shortest, int longest);

/// Power density by Welch's method: the sum of the periodograms of segments under a Hann window, each without its mean.
class Welch
{
public:
    /// `length`: samples in a segment, a power of two.
    Welch(int length, double rate_hz);

    /// Adds a segment of the length given above.
    void Add(std::span<const double> segment);

    /// The sum so far: length / 2 + 1 one-sided densities, in squared units per hertz, at multiples of GetStepHz from 0
    /// on. Over the frequency they integrate to the segments' variances, summed.
    const std::vector<double>& GetSum() const { return m_sum; }

    double GetStepHz() const { return m_step_hz; }

private:
    double m_step_hz;
    double m_scale;  // from squared magnitude to one-sided density
    std::vector<double> m_window;
    std::vector<double> m_windowed;
    std::vector<std::complex<double>> m_transform;
    std::vector<double> m_sum;
    Eigen::FFT<double> m_fft;
};

/// Neighbouring bins of a spectrum, put together so that the points are about evenly spaced on a logarithmic axis.
/// Returns the first bin of each point and, at the end, one past the last bin. Bins `first` to `end` - 1, at most
/// `most_points`.
std::vector<std::size_t> LogSpacedBins(std::size_t first, std::size_t end, std::size_t most_points);

/// Mean of each point's values; `bins` as LogSpacedBins gives them.
std::vector<double> MeanOfBins(std::span<const double> values, std::span<const std::size_t> bins);

/// How many durations fall between two edges.
struct DurationHistogram
{
    std::vector<double> edges_us;      // ascending by equal ratios; one more than there are counts
    std::vector<std::int64_t> counts;  // edge i <= duration < edge i + 1
    std::vector<std::int64_t> late;    // those of them that were late, or after which an instant was missed
};

/// Counts every duration, 20 bins a decade; one that is not above 0 counts as the shortest above 0. `missed_before`:
/// numbers of the durations before which an instant was missed, ascending, perhaps repeated.
DurationHistogram CountDurations(std::span<const float> durations_us, std::span<const std::int64_t> missed_before);

/// The same for durations of which those beyond `deadline_us` are late; none is without a deadline.
DurationHistogram CountAgainstDeadline(std::span<const float> durations_us, std::optional<double> deadline_us);

/// To four significant digits, so that it takes no more letters than it is worth. What is not finite stays.
double RoundToDigits(double value);

}  // namespace lumo::ravelctl
