#include "sgemvTask.hpp"

#include "memoryRead.hpp"

namespace lumo::ravelctl {

namespace {

using Clock = std::chrono::steady_clock;

/// Values of both signs and no subnormal ones.
std::vector<float> Waves(std::size_t size)
{
    constexpr std::size_t PERIOD = 1013;  // prime
    std::vector<float> values(size);
    for (std::size_t i = 0; i < size; ++i) {
        values[i] = (static_cast<float>(i % PERIOD) - 506.0F) / 1013.0F;
    }
    return values;
}

}  // namespace

SgemvTask::SgemvTask(CycleGate& gate, const SgemvInput& input, std::size_t cycles, std::size_t reads,
                     std::optional<double> deadline_us)
    : Task("SgemvTask"), m_gate(gate), m_input(input), m_num_cycles(cycles), m_num_reads(reads), m_deadline(deadline_us)
{
}

void SgemvTask::Initialize()
{
    m_sgemv.Initialize();
    m_sgemv.SetMatrix(Waves(m_sgemv.GetMatrix().size()));
    m_sgemv.SetInputVector(Waves(m_sgemv.GetInputVector().size()));
    m_executions = Durations(m_num_cycles);
    m_latencies = Durations(m_num_cycles);
    m_reads = Durations(m_num_reads);
    if (m_uses_huge_pages) {
        m_huge_pages = PutIntoHugePages(m_sgemv.GetMatrix().data(), m_sgemv.GetMatrix().size() * sizeof(float));
    }
    TouchOwnStack();
    m_place = FindOwnPlace();
    m_faults_before = CountOwnPageFaults();
}

void SgemvTask::Configure(const std::map<std::string, std::string>& cfg)
{
    m_sgemv.Configure(cfg);
}

void SgemvTask::Execute(double /*time_stamp*/, bool /*first*/)
{
    const auto start = Clock::now();
    ++m_cycle;
    m_gate.Enter();  // before the work: an exception of the task must not hold the others
    if (!m_input.idle.load(std::memory_order_relaxed)) {  // the gate and the handshake order it
        if (m_input.work == SgemvInput::Work::Product) {
            m_latencies.Add(start - m_input.given);
        }
        Work();
    } else {
        m_page_faults = CountOwnPageFaults() - m_faults_before;
    }
    UpdateExecTime(start);
    m_gate.AwaitAll(m_cycle);
}

void SgemvTask::Work()
{
    const auto start = Clock::now();
    if (m_input.work == SgemvInput::Work::Read) {
        const std::vector<float>& matrix = m_sgemv.GetMatrix();
        m_read_sum ^= ReadMemory(matrix.data(), sizeof(float) * matrix.size());
        m_reads.Add(Clock::now() - start);
        return;
    }
    m_sgemv.Execute(0.0, false);
    if (m_input.work == SgemvInput::Work::Product) {
        const auto end = Clock::now();
        m_executions.Add(end - start);
        m_deadline.Add(end - m_input.given);
    }
}

}  // namespace lumo::ravelctl
