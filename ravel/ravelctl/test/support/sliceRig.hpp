#pragma once

#include "sliceSet.hpp"
#include "support/quietLog.hpp"

#include <lumo/mirrorsim/geometry.hpp>
#include <lumo/ravelcore/pidFilter.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <thread>
#include <vector>

namespace lumo::ravelctl::test {

/// A row-major matrix of zeros with `value` on its diagonal.
inline std::vector<float> Diagonal(int rows, int cols, float value)
{
    std::vector<float> matrix(static_cast<std::size_t>(rows) * static_cast<std::size_t>(cols), 0.0F);
    for (int i = 0; i < rows && i < cols; ++i) {
        matrix[static_cast<std::size_t>(i) * static_cast<std::size_t>(cols) + static_cast<std::size_t>(i)] = value;
    }
    return matrix;
}

/// Modes that are easily followed: mode m is measured by edge sensor m, takes its anti-windup input from actuator m and
/// moves actuator m, each with factor 1. No product of the cycle is rounded.
inline mirrorsim::ControlModes DiagonalModes(int num_modes)
{
    mirrorsim::ControlModes modes;
    modes.num_modes = num_modes;
    modes.p2edc = Diagonal(num_modes, mirrorsim::NUM_ES, 1.0F);
    modes.pact2modes = Diagonal(num_modes, mirrorsim::NUM_PACT, 1.0F);
    modes.modes2pact = Diagonal(mirrorsim::NUM_PACT, num_modes, 1.0F);
    return modes;
}

/// Parameters in which every term of a channel takes part, different for every mode and every `variant`.
inline std::vector<float> LivelyGains(int num_modes, float variant)
{
    std::vector<float> params;
    for (int mode = 0; mode < num_modes; ++mode) {
        const float own = variant + 0.03F * static_cast<float>(mode);
        params.insert(params.end(),
                      {0.3F + 0.1F * own, 20.0F + own, 0.004F + 0.001F * own, 5.0F + own, 0.7F + 0.01F * own,
                       0.1F + 0.01F * own, 10.0F + own, -0.9F - own, 1.0F + own, 30.0F + own});
    }
    return params;
}

/// Equal bit for bit; the first difference in words.
inline testing::AssertionResult AreSameBits(const std::vector<std::vector<float>>& left,
                                            const std::vector<std::vector<float>>& right)
{
    if (left.size() != right.size()) {
        return testing::AssertionFailure() << left.size() << " rows against " << right.size();
    }
    for (std::size_t row = 0; row < left.size(); ++row) {
        for (std::size_t col = 0; col < std::max(left[row].size(), right[row].size()); ++col) {
            if (std::bit_cast<std::uint32_t>(left[row].at(col)) != std::bit_cast<std::uint32_t>(right[row].at(col))) {
                return testing::AssertionFailure()
                       << "row " << row << ", col " << col << ": " << left[row][col] << " against " << right[row][col];
            }
        }
    }
    return testing::AssertionSuccess();
}

/// The slices of a loop that is closed in its first cycle, and the sensors that they see; no mirror behind them.
class SliceRig
{
public:
    SliceRig(int num_modes, int num_slices, int num_samples = 100)
        : modes(DiagonalModes(num_modes)),
          pid_params(LivelyGains(num_modes, 0.0F)),
          slices(modes, num_slices, pid_params, PERIOD_S, es_meas.data(), num_samples)
    {
        QuietLog();
        for (ravelcore::Task* task : slices.GetTasks()) {
            task->Initialize();
        }
        slices.SetClosed(true);
        slices.StartRecording(false, 0);
    }

    /// One cycle; what is measured differs from mode to mode and from cycle to cycle.
    void RunCycle()
    {
        for (int i = 0; i < modes.num_modes; ++i) {
            const auto phase = static_cast<float>(0.3 * static_cast<double>(cycle) + i);
            es_meas[static_cast<std::size_t>(i)] = std::sin(phase);
            shortfall_um[static_cast<std::size_t>(i)] = 0.05F * std::cos(phase);
        }
        slices.SetShortfall(shortfall_um);
        slices.PrepareCycle(static_cast<double>(cycle) * PERIOD_S, cycle == 0);
        std::vector<std::thread> threads;  // each of the others waits at the gate for all to begin
        for (ravelcore::Task* task : slices.GetTasks()) {
            threads.emplace_back([task] { task->Execute(0.0, false); });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        ++cycle;
    }

    void RunCycles(int count)
    {
        for (int i = 0; i < count; ++i) {
            RunCycle();
        }
    }

    /// Row after row of what the slices' recorders hold side by side.
    static std::vector<std::vector<float>> Rows(const std::vector<const ravelcore::Recorder*>& recorders)
    {
        std::vector<std::vector<float>> rows(static_cast<std::size_t>(recorders.front()->GetIndex() + 1));
        for (std::size_t row = 0; row < rows.size(); ++row) {
            for (const ravelcore::Recorder* recorder : recorders) {
                const auto size = static_cast<std::ptrdiff_t>(recorder->GetSampleSize());
                const auto begin = recorder->GetSamples().begin() + static_cast<std::ptrdiff_t>(row) * size;
                rows[row].insert(rows[row].end(), begin, begin + size);
            }
        }
        return rows;
    }

    std::vector<std::vector<float>> ModesIn() const { return Rows(slices.GetModesInRecorders()); }
    std::vector<std::vector<float>> ModesOut() const { return Rows(slices.GetModesOutRecorders()); }
    std::vector<std::vector<float>> ModesRef() const { return Rows(slices.GetModesRefRecorders()); }
    std::vector<std::vector<float>> ModesArw() const { return Rows(slices.GetModesArwRecorders()); }

    /// What the slices command to the actuators that the modes move.
    std::vector<float> Commands()
    {
        std::vector<float> command_um(static_cast<std::size_t>(mirrorsim::NUM_PACT), 0.0F);
        slices.AddPactRef(command_um);
        command_um.resize(static_cast<std::size_t>(modes.num_modes));
        return command_um;
    }

    static constexpr double PERIOD_S = 0.002;

    mirrorsim::ControlModes modes;
    std::vector<float> pid_params;
    std::vector<float> es_meas = std::vector<float>(static_cast<std::size_t>(mirrorsim::NUM_ES), 0.0F);
    std::vector<float> shortfall_um = std::vector<float>(static_cast<std::size_t>(mirrorsim::NUM_PACT), 0.0F);
    SliceSet slices;
    int cycle = 0;
};

}  // namespace lumo::ravelctl::test
