#include "sliceTask.hpp"

#include <utility>

namespace lumo::ravelctl {

SliceTask::SliceTask(ravelcore::TaskEdc& edc, const Recorders& recorders, CycleGate& gate, const CycleInput& input,
                     SetUp set_up)
    : Task(edc.GetName() + ".slice"),
      m_edc(edc),
      m_recorders(recorders),
      m_gate(gate),
      m_input(input),
      m_set_up(std::move(set_up))
{
}

void SliceTask::Initialize()
{
    m_edc.Initialize();
    m_recorders.ref.Init(m_edc.m_rec_num_samples, m_edc.m_num_modes);
    m_recorders.arw.Init(m_edc.m_rec_num_samples, m_edc.m_num_modes);
    m_set_up(m_edc);
    TouchOwnStack();
    m_place = FindOwnPlace();
    m_faults_before = CountOwnPageFaults();
}

void SliceTask::Configure(const std::map<std::string, std::string>& cfg)
{
    m_edc.Configure(cfg);
}

void SliceTask::Execute(double /*time_stamp*/, bool /*first*/)
{
    const auto start = std::chrono::steady_clock::now();
    ++m_cycle;
    m_gate.Enter();  // before the work: an exception of the task must not hold the others
    if (!m_input.idle.load(std::memory_order_relaxed)) {  // the gate and the handshake order it
        m_edc.Execute(m_input.sync_time_s, m_input.first);
        m_recorders.ref.AddSample(m_input.sync_time_s, m_edc.m_modes_ref.data());
        m_recorders.arw.AddSample(m_input.sync_time_s, m_edc.m_modes_rate_limited.data());
    } else {
        m_page_faults = CountOwnPageFaults() - m_faults_before;
    }
    UpdateExecTime(start);
    m_gate.AwaitAll(m_cycle);
}

}  // namespace lumo::ravelctl
