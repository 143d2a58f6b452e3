#include "recorderTools.hpp"

#include <algorithm>
#include <vector>

namespace lumo::ravelctl {

ravelcore::Recorder InOrderOfTime(const ravelcore::Recorder& recorder, std::int64_t num_recorded)
{
    const std::int64_t capacity = recorder.GetNumSamples();
    const std::int64_t kept = std::min(num_recorded, capacity);
    const auto sample_size = static_cast<std::size_t>(recorder.GetSampleSize());
    const std::vector<double>& timestamps = recorder.GetTimestamps();
    const std::vector<float>& samples = recorder.GetSamples();
    ravelcore::Recorder ordered(recorder.GetName());
    ordered.Init(static_cast<int>(kept), recorder.GetSampleSize());
    ordered.Start(false, 0);
    for (std::int64_t k = num_recorded - kept; k < num_recorded; ++k) {
        const auto slot = static_cast<std::size_t>(k % capacity);  // where a recorder puts its sample number k
        ordered.AddSample(timestamps.at(slot), &samples.at(slot * sample_size));
    }
    return ordered;
}

void StopRecorder(ravelcore::Recorder& recorder)
{
    if (recorder.GetIndex() >= 0) {
        recorder.Stop();
    } else {
        recorder.Start(false, -1);  // records nothing; Stop would report the time stamp of a sample that is not there
    }
}

}  // namespace lumo::ravelctl
