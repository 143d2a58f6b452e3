#include "sliceSet.hpp"

#include <lumo/mirrorsim/geometry.hpp>

#include <algorithm>

namespace lumo::ravelctl {

SliceSet::SliceSet(const mirrorsim::ControlModes& modes, int num_slices, const std::vector<float>& pid_params,
                   double period_s, const float* es_meas, int num_samples)
    : m_modes(modes), m_pid_params(pid_params), m_period_s(period_s), m_es_meas(es_meas), m_gate(num_slices)
{
    for (const ModeSlice& mode_slice : SliceModes(modes.num_modes, num_slices)) {
        auto slice = std::make_unique<Slice>();
        slice->modes = mode_slice;
        slice->rec_in = ravelcore::Recorder("modes_in");
        slice->rec_out = ravelcore::Recorder("modes_out");
        slice->captured.assign(static_cast<std::size_t>(mode_slice.count), 0.0F);
        slice->edc = std::make_unique<ravelcore::TaskEdc>(static_cast<int>(m_slices.size()), mirrorsim::NUM_PACT,
                                                          mirrorsim::NUM_ES, mode_slice.count, slice->rec_in,
                                                          slice->rec_out, num_samples);
        slice->task = std::make_unique<SliceTask>(
            *slice->edc, m_gate, m_input, [this, &stored = *slice](ravelcore::TaskEdc& edc) { SetUp(stored, edc); });
        m_slices.push_back(std::move(slice));
    }
}

void SliceSet::SetUp(const Slice& slice, ravelcore::TaskEdc& edc) const
{
    edc.SetP2EdcMatrix(RowsOf(m_modes.p2edc, mirrorsim::NUM_ES, slice.modes));
    edc.SetPact2ModesMatrix(RowsOf(m_modes.pact2modes, mirrorsim::NUM_PACT, slice.modes));
    edc.SetModes2PactMatrix(ColumnsOf(m_modes.modes2pact, m_modes.num_modes, slice.modes));
    for (ravelcore::PidFilterContext& channel : edc.m_pid_filters) {
        channel.sampling_period = static_cast<float>(m_period_s);  // SetPidFilters keeps it and derives from it
    }
    edc.SetPidFilters(RowsOf(m_pid_params, ravelcore::NUM_PID_FILTER_PARAMS, slice.modes));
    edc.m_es_meas = m_es_meas;
}

std::vector<ravelcore::Task*> SliceSet::GetTasks() const
{
    std::vector<ravelcore::Task*> tasks;
    for (const auto& slice : m_slices) {
        tasks.push_back(slice->task.get());
    }
    return tasks;
}

void SliceSet::StartRecording()
{
    for (const auto& slice : m_slices) {
        slice->rec_in.Start(false, 0);
        slice->rec_out.Start(false, 0);
    }
}

void SliceSet::PrepareCycle(double sync_time_s, bool first)
{
    m_input.sync_time_s = sync_time_s;
    m_input.first = first;
}

void SliceSet::PrepareStop()
{
    m_input.idle.store(true, std::memory_order_relaxed);  // Open() releases it to who waits at the gate
    m_gate.Open();
}

void SliceSet::SetClosed(bool closed)
{
    for (const auto& slice : m_slices) {
        slice->edc->m_pid_enabled = closed;
        slice->edc->m_filter_enabled = closed;
    }
}

void SliceSet::CaptureReferences()
{
    for (const auto& slice : m_slices) {
        std::copy(slice->edc->m_modes_ref.begin(), slice->edc->m_modes_ref.end(), slice->captured.begin());
    }
}

void SliceSet::LeadReferences(float fraction)
{
    for (const auto& slice : m_slices) {
        std::transform(slice->captured.begin(), slice->captured.end(), slice->edc->m_modes_ref.begin(),
                       [fraction](float captured) { return fraction * captured; });
    }
}

void SliceSet::SetShortfall(std::span<const float> shortfall_um)
{
    for (const auto& slice : m_slices) {
        std::copy(shortfall_um.begin(), shortfall_um.end(), slice->edc->m_pact_in.begin());
    }
}

void SliceSet::AddPactRef(std::vector<float>& command_um)
{
    for (const auto& slice : m_slices) {
        slice->edc->CombinePactRef(command_um);
    }
}

double SliceSet::SumOfSquaredModes() const
{
    double sum = 0.0;
    for (const auto& slice : m_slices) {
        for (const float mode : slice->edc->m_modes_in) {
            sum += static_cast<double>(mode) * static_cast<double>(mode);
        }
    }
    return sum;
}

std::chrono::nanoseconds SliceSet::GetExecTime() const
{
    std::chrono::nanoseconds longest{0};
    for (const auto& slice : m_slices) {
        longest = std::max(longest, slice->edc->GetExecTime());
    }
    return longest;
}

void SliceSet::SaveModesIn(const std::filesystem::path& file) const
{
    Save(file, "modes_in", &Slice::rec_in);
}

void SliceSet::SaveModesOut(const std::filesystem::path& file) const
{
    Save(file, "modes_out", &Slice::rec_out);
}

void SliceSet::Save(const std::filesystem::path& file, const char* name, ravelcore::Recorder Slice::*recorder) const
{
    if (m_slices.size() == 1) {  // spares a copy of what may be most of the memory
        (m_slices.front().get()->*recorder).Save(file.string());
        return;
    }
    std::vector<ravelcore::Recorder> recorders;
    for (const auto& slice : m_slices) {
        recorders.push_back(slice.get()->*recorder);
    }
    ravelcore::SaveCombinedRecorders(file.string(), name, recorders);
}

}  // namespace lumo::ravelctl
