#include "scriptPlayer.hpp"

#include "error.hpp"
#include "gains.hpp"
#include "runFiles.hpp"

#include <lumo/ravelcore/pidFilter.hpp>

#include <fmt/core.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <thread>
#include <utility>

namespace lumo::ravelctl {

namespace {

/// Marks or frees the modes of a change.
void Replace(const ReplacementChange& change, LiveParameters::Replacement& replacement)
{
    for (const int mode : change.modes) {
        const auto i = static_cast<std::size_t>(mode);
        replacement.mask.at(i) = change.replace ? 1.0F : 0.0F;
        if (change.replace) {
            replacement.values.at(i) = change.value_um;
        }
    }
}

bool ChangesParameters(const ScriptStep& step)
{
    return step.gains || !step.gains_file.empty() || step.references || !step.references_file.empty() || step.pdc ||
           step.fdc || !step.p2edc.empty() || !step.pact2modes.empty() || !step.modes2pact.empty();
}

std::map<int, float> FlatParams(const GainChange& change)
{
    std::map<int, float> params;
    for (const int mode : change.modes) {
        for (const auto& [param, value] : change.params) {
            params[mode * ravelcore::NUM_PID_FILTER_PARAMS + param] = value;
        }
    }
    return params;
}

}  // namespace

ScriptPlayer::ScriptPlayer(std::vector<ScriptStep> steps, const LoopPlan& plan, int num_modes,
                           std::filesystem::path output, const Loop& loop)
    : ConfigurablePthreadActivity("script", -1, 0),
      m_steps(std::move(steps)),
      m_plan(plan),
      m_num_modes(num_modes),
      m_output(std::move(output)),
      m_loop(loop),
      m_pdc{std::vector<float>(static_cast<std::size_t>(num_modes)),
            std::vector<float>(static_cast<std::size_t>(num_modes))},
      m_fdc(m_pdc)
{
    m_loop.requests.Announce(m_steps.empty() ? CycleRequests::NEVER : CycleOf(m_steps.front()));
}

ScriptPlayer::~ScriptPlayer()
{
    stop(nullptr);
    JoinThread();
}

LiveParameters::Matrices ScriptPlayer::FindMatrices(const std::vector<ScriptStep>& steps)
{
    LiveParameters::Matrices matrices;
    for (const ScriptStep& step : steps) {
        matrices.p2edc = matrices.p2edc || !step.p2edc.empty();
        matrices.pact2modes = matrices.pact2modes || !step.pact2modes.empty();
        matrices.modes2pact = matrices.modes2pact || !step.modes2pact.empty();
    }
    return matrices;
}

/// The first cycle that begins at the step's time or after it.
std::int64_t ScriptPlayer::CycleOf(const ScriptStep& step) const
{
    constexpr double ROUNDING = 1.0e-6;  // of a cycle: 10 s at 500 Hz is cycle 5000
    return static_cast<std::int64_t>(std::ceil(step.time_s * m_plan.rate_hz - ROUNDING));
}

void ScriptPlayer::Run()
{
    for (std::size_t i = 0; i < m_steps.size() && !IsStopRequested(); ++i) {
        m_loop.requests.Announce(CycleOf(m_steps[i]));
        Play(m_steps[i]);
    }
    m_loop.requests.Announce(CycleRequests::NEVER);
}

void ScriptPlayer::Play(const ScriptStep& step)
{
    ScriptEvent event;
    event.time_s = step.time_s;
    event.what = Describe(step, m_num_modes);
    event.redefines_modes =
        step.pdc || step.fdc || !step.p2edc.empty() || !step.pact2modes.empty() || !step.modes2pact.empty();
    event.begin_cycle = m_loop.requests.GetCycle();
    try {
        if (ChangesParameters(step)) {
            Prepare(step);
            event.ready_cycle = m_loop.requests.GetCycle();
            if (!Request(CycleRequests::Kind::TakeParameters, event)) {
                return;  // the run ended first
            }
            if (step.gains || !step.gains_file.empty()) {
                event.gains = m_loop.parameters.GetGains();
            }
        }
        if (!step.save.empty()) {
            if (!Request(CycleRequests::Kind::StopRecording, event)) {
                if (event.cycle < 0) {
                    return;
                }
                throw RunError("the run ended before the recordings were saved");
            }
            Save(step, event);
        }
    } catch (const std::exception& e) {
        event.problem = e.what();
        if (event.cycle < 0 && !AwaitTime(step)) {
            return;  // the run ended first: nobody has missed it
        }
    }
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_events.push_back(event);
}

/// Everything is loaded before anything is published: a step is done as a whole or not at all.
void ScriptPlayer::Prepare(const ScriptStep& step)
{
    LiveParameters::Change change;
    const auto load = [](const std::filesystem::path& file, auto&& loader, auto& values) {
        if (!file.empty()) {
            values = loader(file);
        }
    };
    const LiveParameters& parameters = m_loop.parameters;
    using Path = std::filesystem::path;
    load(
        step.gains_file, [&](const Path& file) { return parameters.LoadGains(file); }, change.gains);
    load(
        step.references_file, [&](const Path& file) { return parameters.LoadReferences(file); }, change.references_um);
    load(
        step.p2edc, [&](const Path& file) { return parameters.LoadP2Edc(file); }, change.p2edc);
    load(
        step.pact2modes, [&](const Path& file) { return parameters.LoadPact2Modes(file); }, change.pact2modes);
    load(
        step.modes2pact, [&](const Path& file) { return parameters.LoadModes2Pact(file); }, change.modes2pact);
    if (step.gains) {
        change.single_gains = FlatParams(*step.gains);
    }
    if (step.references) {
        for (const int mode : step.references->modes) {
            change.single_references_um[mode] = step.references->value_um;
        }
    }
    if (step.pdc) {
        Replace(*step.pdc, m_pdc);
        change.pdc = m_pdc;
    }
    if (step.fdc) {
        Replace(*step.fdc, m_fdc);
        change.fdc = m_fdc;
    }
    if (!change.gains.empty() || !change.single_gains.empty()) {
        CheckGains(FindGains(change));
    }
    m_loop.parameters.Publish(change);
}

/// All gains as they would be with the change.
std::vector<float> ScriptPlayer::FindGains(const LiveParameters::Change& change) const
{
    std::vector<float> gains = change.gains.empty() ? m_loop.parameters.GetGains() : change.gains;
    for (const auto& [place, value] : change.single_gains) {
        gains.at(static_cast<std::size_t>(place)) = value;
    }
    return gains;
}

/// Waits until a step is due that will not be done. False when the run ended first.
bool ScriptPlayer::AwaitTime(const ScriptStep& step) const
{
    constexpr std::chrono::milliseconds POLL{5};
    while (m_loop.requests.GetCycle() < CycleOf(step)) {
        if (IsStopRequested()) {
            return false;
        }
        std::this_thread::sleep_for(POLL);
    }
    return true;
}

/// Asks the cycle for something and waits until it is done. False when the run ended first.
bool ScriptPlayer::Request(CycleRequests::Kind kind, ScriptEvent& event)
{
    constexpr std::chrono::microseconds POLL{500};
    m_loop.requests.Arm(kind);
    while (!m_loop.requests.IsDone()) {
        if (IsStopRequested() && !m_loop.requests.IsDone()) {  // asked again: the cycle may have come to it last
            return false;
        }
        std::this_thread::sleep_for(POLL);
    }
    const CycleRequests::Outcome& outcome = m_loop.requests.GetOutcome();
    if (event.cycle < 0) {
        event.cycle = outcome.cycle;
    }
    event.last_cycle = outcome.cycle;
    event.take_over_us = std::max(event.take_over_us, static_cast<double>(outcome.duration.count()) * 1.0e-3);
    return true;
}

/// Saves what was recorded, recording being stopped, and lets recording begin anew.
void ScriptPlayer::Save(const ScriptStep& step, ScriptEvent& event)
{
    const std::filesystem::path folder = m_output / step.save;
    std::vector<std::string> failures;
    RemoveSummary(m_output);  // of an old run, whose files this may replace
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    if (error) {
        failures.push_back(fmt::format("cannot make the folder {}: {}", folder.string(), error.message()));
    } else {
        m_loop.recordings.Save(
            folder, [&](const std::string& name) { event.files.push_back(step.save + "/" + name); },
            [&failures](const std::string& why) { failures.push_back(why); });
    }
    m_loop.requests.Announce(event.last_cycle + 1);
    const bool goes_on = Request(CycleRequests::Kind::StartRecording, event);
    if (!goes_on) {
        event.last_cycle = m_loop.requests.GetCycle();
    }
    if (!failures.empty()) {
        throw RunError(fmt::format("{}", fmt::join(failures, "; ")));
    }
    if (!goes_on) {
        m_loop.recordings.Start();  // no cycle runs any more; what is saved is not to be saved once more
    }
}

std::vector<ScriptEvent> ScriptPlayer::TakeNews()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    std::vector<ScriptEvent> news(m_events.begin() + static_cast<std::ptrdiff_t>(m_num_told), m_events.end());
    m_num_told = m_events.size();
    return news;
}

}  // namespace lumo::ravelctl
