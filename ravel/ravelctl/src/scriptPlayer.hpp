#pragma once

#include "cycleRequests.hpp"
#include "runOptions.hpp"
#include "script.hpp"

#include <brisk/configurablePthreadActivity.hpp>

#include <cstdint>
#include <filesystem>
#include <mutex>
#include <string>
#include <vector>

namespace lumo::ravelctl {

/// What became of one step of a script.
struct ScriptEvent
{
    double time_s = 0.0;  // as the script says
    std::string what;
    std::string problem;             // why it was not done, or not all of it; empty when it was
    std::int64_t begin_cycle = -1;   // in which the slow thread began to prepare it
    std::int64_t ready_cycle = -1;   // in which it was ready to be taken over
    std::int64_t cycle = -1;         // the first one with it; none when nothing of it was done
    double take_over_us = 0.0;       // for which the cycle thread was busy with it, between two cycles
    std::vector<std::string> files;  // saved, as seen from the run's output
    std::int64_t last_cycle = -1;    // from which on nobody was busy with it any more: after `cycle` for a save
    bool redefines_modes = false;    // from `cycle` on the measured modes are not what they were: replaced, or a matrix
    std::vector<float> gains;        // of all channels from `cycle` on, 10 floats per mode, where it changed them
};

/// Plays a script: prepares each step ahead of its time in a thread of its own, and asks the cycle to take it over.
/// A step that cannot be prepared, because of a file for instance, is refused as a whole, when its time comes, and the
/// loop goes on. It is stopped after the cycle has ended; a step that the run did not get to is then no event.
class ScriptPlayer : public brisk::ConfigurablePthreadActivity
{
public:
    /// What a player works on; all of it outlives the player.
    struct Loop
    {
        LiveParameters& parameters;
        CycleRequests& requests;
        Recordings& recordings;
    };

    ScriptPlayer(std::vector<ScriptStep> steps, const LoopPlan& plan, int num_modes, std::filesystem::path output,
                 const Loop& loop);
    ~ScriptPlayer() override;

    /// What the steps need of the parameters' memory.
    static LiveParameters::Matrices FindMatrices(const std::vector<ScriptStep>& steps);

    void Run() override;

    /// What has happened since this was asked for the last time. Thread: any one.
    std::vector<ScriptEvent> TakeNews();

    /// Everything that has happened. Thread: any, after the thread has been joined.
    const std::vector<ScriptEvent>& GetEvents() const { return m_events; }

private:
    std::int64_t CycleOf(const ScriptStep& step) const;
    void Play(const ScriptStep& step);
    void Prepare(const ScriptStep& step);
    void Save(const ScriptStep& step, ScriptEvent& event);
    bool Request(CycleRequests::Kind kind, ScriptEvent& event);
    bool AwaitTime(const ScriptStep& step) const;
    std::vector<float> FindGains(const LiveParameters::Change& change) const;

    const std::vector<ScriptStep> m_steps;
    const LoopPlan m_plan;
    const int m_num_modes;
    const std::filesystem::path m_output;
    Loop m_loop;
    // What the masks and values are when all steps so far are taken over.
    LiveParameters::Replacement m_pdc;
    LiveParameters::Replacement m_fdc;
    std::mutex m_mutex;
    std::vector<ScriptEvent> m_events;  // guarded while the thread runs
    std::size_t m_num_told = 0;
};

}  // namespace lumo::ravelctl
