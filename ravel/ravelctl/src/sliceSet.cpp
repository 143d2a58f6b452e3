#include "sliceSet.hpp"

#include "gains.hpp"
#include "recorderTools.hpp"

#include <lumo/mirrorsim/geometry.hpp>

#include <algorithm>

namespace lumo::ravelctl {

namespace {

/// A slice's part of the masks and values for all modes.
void Replace(const ModeSlice& modes, std::span<const float> mask, std::span<const float> values,
             std::vector<bool>& slice_mask, std::vector<float>& slice_values)
{
    for (std::size_t i = 0; i < slice_mask.size(); ++i) {
        const std::size_t mode = static_cast<std::size_t>(modes.first) + i;
        slice_mask[i] = mask[mode] != 0.0F;
        slice_values[i] = values[mode];
    }
}

}  // namespace

SliceSet::SliceSet(const mirrorsim::ControlModes& modes, int num_slices, const std::vector<float>& pid_params,
                   double period_s, const float* es_meas, int num_samples)
    : m_modes(modes), m_pid_params(pid_params), m_period_s(period_s), m_es_meas(es_meas), m_gate(num_slices)
{
    for (const ModeSlice& mode_slice : SliceModes(modes.num_modes, num_slices)) {
        auto slice = std::make_unique<Slice>();
        slice->modes = mode_slice;
        slice->rec_in = ravelcore::Recorder("modes_in");
        slice->rec_out = ravelcore::Recorder("modes_out");
        slice->rec_ref = ravelcore::Recorder("modes_ref");
        slice->rec_arw = ravelcore::Recorder("modes_arw");
        slice->captured.assign(static_cast<std::size_t>(mode_slice.count), 0.0F);
        slice->edc = std::make_unique<ravelcore::TaskEdc>(static_cast<int>(m_slices.size()), mirrorsim::NUM_PACT,
                                                          mirrorsim::NUM_ES, mode_slice.count, slice->rec_in,
                                                          slice->rec_out, num_samples);
        slice->task = std::make_unique<SliceTask>(
            *slice->edc, SliceTask::Recorders{slice->rec_ref, slice->rec_arw}, m_gate, m_input,
            [this, &stored = *slice](ravelcore::TaskEdc& edc) { SetUp(stored, edc); });
        m_slices.push_back(std::move(slice));
    }
}

void SliceSet::SetUp(Slice& slice, ravelcore::TaskEdc& edc) const
{
    if (m_uses_huge_pages) {
        for (const std::vector<float>* matrix : {&edc.m_p2edc, &edc.m_pact2modes, &edc.m_modes2pact}) {
            slice.huge_pages.Add(PutIntoHugePages(matrix->data(), matrix->size() * sizeof(float)));
        }
    }
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

std::vector<GrantedPlace> SliceSet::GetPlaces() const
{
    std::vector<GrantedPlace> places;
    places.reserve(m_slices.size());
    for (const auto& slice : m_slices) {
        places.push_back(slice->task->GetPlace());
    }
    return places;
}

HugePages SliceSet::GetHugePages() const
{
    HugePages pages;
    for (const auto& slice : m_slices) {
        pages.Add(slice->huge_pages);
    }
    return pages;
}

std::vector<std::int64_t> SliceSet::GetPageFaults() const
{
    std::vector<std::int64_t> faults;
    faults.reserve(m_slices.size());
    for (const auto& slice : m_slices) {
        faults.push_back(slice->task->GetPageFaults());
    }
    return faults;
}

void SliceSet::StartRecording(bool loopback, int decimation)
{
    for (const auto& slice : m_slices) {
        for (ravelcore::Recorder* recorder : {&slice->rec_in, &slice->rec_out, &slice->rec_ref, &slice->rec_arw}) {
            recorder->Start(loopback, decimation);
        }
    }
}

void SliceSet::StopRecording()
{
    for (const auto& slice : m_slices) {
        for (ravelcore::Recorder* recorder : {&slice->rec_in, &slice->rec_out, &slice->rec_ref, &slice->rec_arw}) {
            StopRecorder(*recorder);
        }
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

void SliceSet::SetReferences(float fraction, std::span<const float> offset_um)
{
    for (const auto& slice : m_slices) {
        const float* offset = offset_um.subspan(static_cast<std::size_t>(slice->modes.first)).data();
        std::transform(slice->captured.begin(), slice->captured.end(), offset, slice->edc->m_modes_ref.begin(),
                       [fraction](float captured, float added) { return fraction * captured + added; });
    }
}

void SliceSet::SetGains(std::span<const float> pid_params)
{
    constexpr auto NUM_PARAMS = static_cast<std::size_t>(ravelcore::NUM_PID_FILTER_PARAMS);
    for (const auto& slice : m_slices) {
        const auto first = static_cast<std::size_t>(slice->modes.first);
        std::vector<ravelcore::PidFilterContext>& channels = slice->edc->m_pid_filters;
        for (std::size_t i = 0; i < channels.size(); ++i) {
            ChangeGains(pid_params.subspan((first + i) * NUM_PARAMS, NUM_PARAMS).data(), channels[i]);
        }
    }
}

void SliceSet::SetPdc(std::span<const float> mask, std::span<const float> values)
{
    for (const auto& slice : m_slices) {
        Replace(slice->modes, mask, values, slice->edc->m_pdc_mask, slice->edc->m_pdc_values);
    }
}

void SliceSet::SetFdc(std::span<const float> mask, std::span<const float> values)
{
    for (const auto& slice : m_slices) {
        Replace(slice->modes, mask, values, slice->edc->m_fdc_mask, slice->edc->m_fdc_values);
    }
}

void SliceSet::SwapP2Edc(int slice, std::vector<float>& matrix)
{
    m_slices.at(static_cast<std::size_t>(slice))->edc->m_p2edc.swap(matrix);
}

void SliceSet::SwapPact2Modes(int slice, std::vector<float>& matrix)
{
    m_slices.at(static_cast<std::size_t>(slice))->edc->m_pact2modes.swap(matrix);
}

void SliceSet::SwapModes2Pact(int slice, std::vector<float>& matrix)
{
    m_slices.at(static_cast<std::size_t>(slice))->edc->m_modes2pact.swap(matrix);
}

std::vector<ModeSlice> SliceSet::GetModeSlices() const
{
    std::vector<ModeSlice> slices;
    slices.reserve(m_slices.size());
    for (const auto& slice : m_slices) {
        slices.push_back(slice->modes);
    }
    return slices;
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

std::vector<const ravelcore::Recorder*> SliceSet::GetRecorders(ravelcore::Recorder Slice::*recorder) const
{
    std::vector<const ravelcore::Recorder*> recorders;
    recorders.reserve(m_slices.size());
    for (const auto& slice : m_slices) {
        recorders.push_back(&(slice.get()->*recorder));
    }
    return recorders;
}

}  // namespace lumo::ravelctl
