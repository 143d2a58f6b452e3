#include "controlLoop.hpp"

#include <lumo/mirrorsim/geometry.hpp>

#include <algorithm>
#include <cmath>
#include <functional>
#include <numbers>
#include <numeric>

namespace lumo::ravelctl {

namespace {

std::vector<float> StartCommands(const SimulatedFrontEnd& front_end)
{
    const auto& positions = front_end.GetPactMeas().block1;
    return {positions.begin(), positions.end()};
}

/// The part of `positions` that the modes do not describe: x - V V^T x. By hand: the sums of a BLAS depend on how many
/// threads it has at that moment, and what is held is in every command of the run.
std::vector<float> Undescribed(const std::vector<float>& positions, const mirrorsim::ControlModes& modes)
{
    const auto num_modes = static_cast<std::size_t>(modes.num_modes);
    std::vector<double> coordinates(num_modes);
    for (std::size_t mode = 0; mode < num_modes; ++mode) {
        const auto row = modes.pact2modes.begin() + static_cast<std::ptrdiff_t>(mode * positions.size());
        coordinates[mode] = std::inner_product(positions.begin(), positions.end(), row, 0.0, std::plus<>(),
                                               [](double left, double right) { return left * right; });
    }
    std::vector<float> rest;
    for (std::size_t i = 0; i < positions.size(); ++i) {
        const auto row = modes.modes2pact.begin() + static_cast<std::ptrdiff_t>(i * num_modes);
        const double described = std::inner_product(coordinates.begin(), coordinates.end(), row, 0.0);
        rest.push_back(static_cast<float>(static_cast<double>(positions[i]) - described));
    }
    return rest;
}

float RatePerCycle(const mirrorsim::MirrorConfig& config)
{
    return static_cast<float>(config.rate_limit_um_per_s * config.period_s);
}

}  // namespace

ControlLoop::ControlLoop(const LoopPlan& plan, const mirrorsim::ControlModes& modes, SimulatedFrontEnd& front_end,
                         SliceSet& slices, WorkerGroup& workers, const LoopExtras& extras)
    : m_plan(plan),
      m_front_end(front_end),
      m_slices(slices),
      m_workers(workers),
      m_extras(extras),
      m_clock(plan.rate_hz, plan.paced),
      m_start_um(StartCommands(front_end)),
      m_held_um(Undescribed(m_start_um, modes)),
      m_wanted_um(m_start_um),
      m_offsets_um(static_cast<std::size_t>(modes.num_modes)),
      m_limiter(m_start_um, static_cast<float>(front_end.GetMirror().GetConfig().stroke_limit_um),
                RatePerCycle(front_end.GetMirror().GetConfig())),
      m_cycle_times(static_cast<std::size_t>(plan.cycles)),
      m_exec_times(static_cast<std::size_t>(plan.cycles)),
      m_surface_log(plan.cycles)
{
    m_missed_before.resize(static_cast<std::size_t>(plan.cycles));  // touches every page, as no cycle should
    m_missed_before.clear();
    for (std::vector<float>* series : {&m_residuals_nm, &m_es_rms_nm}) {
        series->resize(static_cast<std::size_t>(plan.cycles));
        series->clear();
    }
    if (m_extras.injection != nullptr) {
        m_extras.injection->Start();
    }
}

void ControlLoop::Run(const std::function<bool()>& is_stopped)
{
    m_slices.SetClosed(false);
    m_clock.Start();
    for (std::int64_t cycle = 0; cycle < m_plan.cycles && !is_stopped(); ++cycle) {
        if (m_extras.requests != nullptr) {
            m_extras.requests->BeforeCycle(cycle, is_stopped);
        }
        SetReferences(cycle);
        RunCycle(cycle);
    }
}

void ControlLoop::RunCycle(std::int64_t cycle)
{
    const CycleClock::Clock::time_point instant = m_clock.AwaitNext();
    const bool closing = cycle == m_plan.open_cycles;
    if (closing) {
        m_slices.SetClosed(true);
    }
    m_slices.PrepareCycle(m_plan.TimeOf(cycle), closing);
    m_workers.GiveStart();
    m_workers.AwaitReady();
    Command(cycle);
    Book(cycle, instant);

    // The rest of the period: looking at the cycle, preparing the next one, and the mirror's own life.
    Observe(cycle);
    m_front_end.Advance(m_limiter.GetCommand(), m_plan.TimeOf(cycle + 1));
    m_progress.cycles_done.store(cycle + 1, std::memory_order_relaxed);  // a statistic, as all of them: orders nothing
}

void ControlLoop::Command(std::int64_t cycle)
{
    if (cycle < m_plan.open_cycles) {
        m_limiter.Hold(m_start_um);
        return;
    }
    std::copy(m_held_um.begin(), m_held_um.end(), m_wanted_um.begin());
    m_slices.AddPactRef(m_wanted_um);
    m_limiter.Limit(m_wanted_um);
    m_slices.SetShortfall(m_limiter.GetShortfall());
}

/// The references of a cycle. In the one in which the loop closes the tasks take the measured modes instead.
void ControlLoop::SetReferences(std::int64_t cycle)
{
    const std::int64_t since_closing = cycle - 1 - m_plan.open_cycles;
    if (since_closing < 0) {
        return;
    }
    if (since_closing == 0) {
        m_slices.CaptureReferences();
    }
    const bool had_offsets = m_has_offsets;
    m_has_offsets = AddOffsets(since_closing >= m_plan.lead_cycles);
    if (since_closing <= m_plan.lead_cycles || m_has_offsets || had_offsets) {
        m_slices.SetReferences(LeadFraction(since_closing), m_offsets_um);
    }
}

float ControlLoop::LeadFraction(std::int64_t since_closing) const
{
    if (since_closing >= m_plan.lead_cycles) {
        return 0.0F;
    }
    const double phase = static_cast<double>(since_closing) / static_cast<double>(m_plan.lead_cycles);
    return static_cast<float>(0.5 * (1.0 + std::cos(std::numbers::pi * phase)));
}

/// Works out what is added to the references; whether there is anything.
bool ControlLoop::AddOffsets(bool is_led)
{
    bool added = false;
    if (m_extras.parameters != nullptr) {
        const std::span<const float> references = m_extras.parameters->GetReferences();
        std::copy(references.begin(), references.end(), m_offsets_um.begin());
        added = true;
    } else {
        std::fill(m_offsets_um.begin(), m_offsets_um.end(), 0.0F);
    }
    if (m_extras.injection != nullptr && is_led) {
        added = m_extras.injection->AddNext(m_offsets_um) || added;
    }
    return added;
}

void ControlLoop::Observe(std::int64_t cycle)
{
    if (m_extras.recordings != nullptr) {
        m_extras.recordings->Add(m_plan.TimeOf(cycle), m_front_end.GetEsMeas(), m_front_end.GetPactMeas());
    }
    if (m_front_end.IsMirrorSeen()) {
        m_surface_log.Add(cycle, m_front_end.GetMirror().GetSurface());
    }
    constexpr double NM_PER_UM = 1.0e3;
    EsSquares now;
    for (const float reading : m_front_end.GetEsMeas().block1) {
        now.sum += static_cast<double>(reading) * static_cast<double>(reading);
    }
    now.cycles = 1;
    const bool open = cycle < m_plan.open_cycles;
    if (open || cycle >= m_plan.FirstJudgedCycle()) {
        (open ? m_open_es : m_judged_es).Add(now);
    }
    const double residual_nm = std::sqrt(m_slices.SumOfSquaredModes() / mirrorsim::NUM_PACT) * NM_PER_UM;
    if (m_residuals_nm.size() < m_residuals_nm.capacity()) {
        m_residuals_nm.push_back(static_cast<float>(residual_nm));
        m_es_rms_nm.push_back(static_cast<float>(*now.ComputeRms() * NM_PER_UM));
    }
    m_progress.residual_nm.store(residual_nm, std::memory_order_relaxed);
}

void ControlLoop::Book(std::int64_t cycle, CycleClock::Clock::time_point instant)
{
    const std::chrono::nanoseconds duration = CycleClock::Clock::now() - instant;
    m_cycle_times.Add(duration);
    m_exec_times.Add(m_slices.GetExecTime());
    const double duration_us = static_cast<double>(duration.count()) * 1.0e-3;
    m_progress.cycle_time_us.store(duration_us, std::memory_order_relaxed);
    if (duration_us > m_progress.max_cycle_time_us.load(std::memory_order_relaxed)) {
        m_progress.max_cycle_time_us.store(duration_us, std::memory_order_relaxed);
    }
    const std::int64_t missed = m_clock.GetMissed();
    for (std::int64_t known = m_progress.missed.load(std::memory_order_relaxed); known < missed; ++known) {
        if (m_missed_before.size() < m_missed_before.capacity()) {
            m_missed_before.push_back(cycle);
        }
    }
    m_progress.missed.store(missed, std::memory_order_relaxed);
    m_progress.closed.store(cycle >= m_plan.open_cycles, std::memory_order_relaxed);
}

void ControlLoop::EsSquares::Add(const EsSquares& other)
{
    sum += other.sum;
    cycles += other.cycles;
}

std::optional<double> ControlLoop::EsSquares::ComputeRms() const
{
    if (cycles == 0) {
        return std::nullopt;
    }
    return std::sqrt(sum / (static_cast<double>(cycles) * mirrorsim::NUM_SENSORS));
}

}  // namespace lumo::ravelctl
