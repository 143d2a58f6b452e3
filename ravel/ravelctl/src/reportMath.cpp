#include "reportMath.hpp"

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>
#include <numbers>
#include <numeric>

namespace lumo::ravelctl {

namespace {

/// `is_late` is asked about each duration in turn.
template <typename IsLate>
DurationHistogram Count(std::span<const float> durations_us, IsLate is_late)
{
    constexpr double BINS_PER_DECADE = 20.0;
    DurationHistogram histogram;
    float shortest = std::numeric_limits<float>::infinity();
    float longest = 0.0F;
    for (const float duration : durations_us) {
        if (duration > 0.0F) {
            shortest = std::min(shortest, duration);
            longest = std::max(longest, duration);
        }
    }
    if (longest == 0.0F) {
        return histogram;
    }
    const auto bin_of = [](float duration) {
        return static_cast<int>(std::floor(BINS_PER_DECADE * std::log10(static_cast<double>(duration))));
    };
    const int first = bin_of(shortest);
    const int last = bin_of(longest);
    for (int bin = first; bin <= last + 1; ++bin) {
        histogram.edges_us.push_back(std::pow(10.0, bin / BINS_PER_DECADE));
    }
    histogram.counts.assign(histogram.edges_us.size() - 1, 0);
    histogram.late = histogram.counts;
    for (std::size_t i = 0; i < durations_us.size(); ++i) {
        const auto bin = static_cast<std::size_t>(bin_of(std::max(durations_us[i], shortest)) - first);
        ++histogram.counts[bin];
        histogram.late[bin] += is_late(i) ? 1 : 0;
    }
    return histogram;
}

}  // namespace

ThinnedSeries Thin(std::span<const float> samples, double period_s, std::size_t most_points)
{
    const std::size_t step = std::max<std::size_t>(1, (samples.size() + most_points - 1) / most_points);
    ThinnedSeries thinned;
    thinned.step_s = static_cast<double>(step) * period_s;
    thinned.first_s = 0.5 * static_cast<double>(step - 1) * period_s;
    for (std::size_t begin = 0; begin < samples.size(); begin += step) {
        const auto part = samples.subspan(begin, std::min(step, samples.size() - begin));
        const double squares = std::accumulate(part.begin(), part.end(), 0.0, [](double sum, float sample) {
            return sum + static_cast<double>(sample) * static_cast<double>(sample);
        });
        thinned.rms.push_back(std::sqrt(squares / static_cast<double>(part.size())));
        if (step > 1) {
            const auto [low, high] = std::minmax_element(part.begin(), part.end());
            thinned.low.push_back(static_cast<double>(*low));
            thinned.high.push_back(static_cast<double>(*high));
        }
    }
    return thinned;
}

std::vector<std::int64_t> SegmentStarts(std::int64_t count, int length, int most)
{
    std::vector<std::int64_t> starts;
    if (count < length) {
        return starts;
    }
    const std::int64_t last = count - length;
    const std::int64_t segments = std::min<std::int64_t>(1 + last / (length / 2), most);
    for (std::int64_t i = 0; i < segments; ++i) {
        starts.push_back(segments < most ? i * (length / 2) : i * last / std::max(1, most - 1));
    }
    return starts;
}

int SegmentLength(std::int64_t count, int shortest, int longest)
{
    const std::int64_t fits = count * 2 / 3;  // two that overlap by half are one and a half long
    if (fits < shortest) {
        return 0;
    }
    return static_cast<int>(
        std::bit_floor(static_cast<std::uint64_t>(std::min(fits, static_cast<std::int64_t>(longest)))));
}

Welch::Welch(int length, double rate_hz)
    : m_step_hz(rate_hz / length),
      m_scale(0.0),
      m_window(static_cast<std::size_t>(length)),
      m_windowed(static_cast<std::size_t>(length)),
      m_transform(static_cast<std::size_t>(length)),
      m_sum(static_cast<std::size_t>(length / 2 + 1))
{
    double power = 0.0;
    for (std::size_t i = 0; i < m_window.size(); ++i) {
        m_window[i] = 0.5 - 0.5 * std::cos(2.0 * std::numbers::pi * static_cast<double>(i) / length);
        power += m_window[i] * m_window[i];
    }
    m_scale = 2.0 / (rate_hz * power);
    m_fft.SetFlag(Eigen::FFT<double>::HalfSpectrum);
}

void Welch::Add(std::span<const double> segment)
{
    const double mean = std::accumulate(segment.begin(), segment.end(), 0.0) / static_cast<double>(segment.size());
    for (std::size_t i = 0; i < m_window.size(); ++i) {
        m_windowed[i] = (segment[i] - mean) * m_window[i];
    }
    m_fft.fwd(m_transform.data(), m_windowed.data(), static_cast<Eigen::Index>(m_windowed.size()));
    const std::size_t last = m_sum.size() - 1;
    for (std::size_t bin = 0; bin <= last; ++bin) {
        const double sides = bin == 0 || bin == last ? 0.5 : 1.0;  // these two have no mirror image
        m_sum[bin] += sides * m_scale * std::norm(m_transform[bin]);
    }
}

std::vector<std::size_t> LogSpacedBins(std::size_t first, std::size_t end, std::size_t most_points)
{
    std::vector<std::size_t> bins;
    if (first >= end) {
        return bins;
    }
    const double ratio =
        std::pow(static_cast<double>(end) / static_cast<double>(first), 1.0 / static_cast<double>(most_points));
    for (std::size_t bin = first; bin < end;) {
        bins.push_back(bin);
        bin = std::max(bin + 1, static_cast<std::size_t>(std::llround(static_cast<double>(bin) * ratio)));
    }
    bins.push_back(end);
    return bins;
}

std::vector<double> MeanOfBins(std::span<const double> values, std::span<const std::size_t> bins)
{
    std::vector<double> means;
    for (std::size_t point = 0; point + 1 < bins.size(); ++point) {
        const auto part = values.subspan(bins[point], bins[point + 1] - bins[point]);
        means.push_back(std::accumulate(part.begin(), part.end(), 0.0) / static_cast<double>(part.size()));
    }
    return means;
}

DurationHistogram CountDurations(std::span<const float> durations_us, std::span<const std::int64_t> missed_before)
{
    std::size_t missed = 0;
    return Count(durations_us, [missed_before, missed](std::size_t index) mutable {
        const auto next = static_cast<std::int64_t>(index) + 1;
        while (missed < missed_before.size() && missed_before[missed] < next) {
            ++missed;
        }
        return missed < missed_before.size() && missed_before[missed] == next;
    });
}

DurationHistogram CountAgainstDeadline(std::span<const float> durations_us, std::optional<double> deadline_us)
{
    return Count(durations_us, [&](std::size_t index) {
        return deadline_us && static_cast<double>(durations_us[index]) > *deadline_us;
    });
}

double RoundToDigits(double value)
{
    constexpr int DIGITS = 4;
    if (value == 0.0 || !std::isfinite(value)) {
        return value;
    }
    const double scale = std::pow(10.0, DIGITS - 1 - std::floor(std::log10(std::abs(value))));
    return std::isfinite(scale) ? std::round(value * scale) / scale : 0.0;
}

}  // namespace lumo::ravelctl
