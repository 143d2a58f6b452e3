#include "edcState.hpp"

#include <array>
#include <bit>

namespace lumo::ravelcore::test {

namespace {

using Bits = std::vector<std::uint64_t>;

Bits BitsOf(const std::vector<float>& values)
{
    Bits bits;
    for (const float value : values) {
        bits.push_back(std::bit_cast<std::uint32_t>(value));
    }
    return bits;
}

Bits BitsOf(const std::vector<double>& values)
{
    Bits bits;
    for (const double value : values) {
        bits.push_back(std::bit_cast<std::uint64_t>(value));
    }
    return bits;
}

Bits BitsOf(const std::vector<PidFilterContext>& channels)
{
    Bits bits;
    for (const PidFilterContext& channel : channels) {
        for (const std::uint32_t word : std::bit_cast<std::array<std::uint32_t, 27>>(channel)) {
            bits.push_back(word);
        }
    }
    return bits;
}

Bits BitsOf(const std::vector<bool>& values)
{
    return {values.begin(), values.end()};
}

Bits BitsOf(std::int64_t value)
{
    return {static_cast<std::uint64_t>(value)};
}

void AddRecorder(const std::string& name, const Recorder& recorder, EdcState& state)
{
    state[name + ".samples"] = BitsOf(recorder.GetSamples());
    state[name + ".timestamps"] = BitsOf(recorder.GetTimestamps());
    state[name + ".numbers"] = {
        static_cast<std::uint64_t>(recorder.GetIndex()), static_cast<std::uint64_t>(recorder.GetNumSamples()),
        static_cast<std::uint64_t>(recorder.GetSampleSize()), static_cast<std::uint64_t>(recorder.IsStarted())};
}

}  // namespace

EdcState StateOf(const TaskEdc& task)
{
    EdcState state = {
        {"m_id", BitsOf(task.m_id)},
        {"m_num_pact", BitsOf(task.m_num_pact)},
        {"m_num_es", BitsOf(task.m_num_es)},
        {"m_num_modes", BitsOf(task.m_num_modes)},
        {"m_pid_enabled", BitsOf(static_cast<std::int64_t>(task.m_pid_enabled))},
        {"m_filter_enabled", BitsOf(static_cast<std::int64_t>(task.m_filter_enabled))},
        {"m_feed_forward_enabled", BitsOf(static_cast<std::int64_t>(task.m_feed_forward_enabled))},
        {"m_es_meas", BitsOf(std::bit_cast<std::int64_t>(task.m_es_meas))},
        {"m_pact_in", BitsOf(task.m_pact_in)},
        {"m_modes_rate_limited", BitsOf(task.m_modes_rate_limited)},
        {"m_modes_ref", BitsOf(task.m_modes_ref)},
        {"m_modes_in", BitsOf(task.m_modes_in)},
        {"m_modes_out", BitsOf(task.m_modes_out)},
        {"m_modes_error", BitsOf(task.m_modes_error)},
        {"m_p2edc", BitsOf(task.m_p2edc)},
        {"m_pact2modes", BitsOf(task.m_pact2modes)},
        {"m_modes2pact", BitsOf(task.m_modes2pact)},
        {"m_pact_ref", BitsOf(task.m_pact_ref)},
        {"m_pdc_mask", BitsOf(task.m_pdc_mask)},
        {"m_fdc_mask", BitsOf(task.m_fdc_mask)},
        {"m_pdc_values", BitsOf(task.m_pdc_values)},
        {"m_fdc_values", BitsOf(task.m_fdc_values)},
        {"m_pid_filters", BitsOf(task.m_pid_filters)},
        {"m_rec_num_samples", BitsOf(task.m_rec_num_samples)},
        {"exec_time", BitsOf(task.GetExecTime().count())},
        {"max_exec_time", BitsOf(task.GetMaxExecTime().count())},
    };
    AddRecorder("m_rec_modes_in", task.m_rec_modes_in, state);
    AddRecorder("m_rec_modes_out", task.m_rec_modes_out, state);
    return state;
}

std::vector<std::string> Differences(const EdcState& one, const EdcState& other)
{
    std::vector<std::string> names;
    for (const auto& [name, bits] : one) {
        const auto found = other.find(name);
        if (found == other.end() || found->second != bits) {
            names.push_back(name);
        }
    }
    return names;
}

}  // namespace lumo::ravelcore::test
