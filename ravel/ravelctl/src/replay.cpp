#include "replay.hpp"

#include "error.hpp"
#include "errorLine.hpp"
#include "gainParams.hpp"
#include "gains.hpp"
#include "longWork.hpp"
#include "modeList.hpp"
#include "outputFile.hpp"
#include "resources.hpp"
#include "runFolder.hpp"
#include "terminalStyle.hpp"
#include "wholeFile.hpp"

#include <lumo/ravelcore/pidFilter.hpp>
#include <lumo/ravelcore/utils.hpp>

#include <fmt/core.h>
#include <fmt/ranges.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <numeric>
#include <optional>
#include <utility>

namespace lumo::ravelctl {

namespace {

constexpr auto NUM_PARAMS = static_cast<std::size_t>(ravelcore::NUM_PID_FILTER_PARAMS);

/// What the channels of a run were given, cycle by cycle, and what they gave.
struct RunData
{
    explicit RunData(const RunFolder& run)
        : in(run.LoadEveryCycle("modes_in")),
          ref(run.LoadEveryCycle("modes_ref")),
          arw(run.LoadEveryCycle("modes_arw")),
          out(run.LoadEveryCycle("modes_out"))
    {
    }

    ModesRecording in;
    ModesRecording ref;
    ModesRecording arw;
    ModesRecording out;
};

/// Fresh channels that go through a run's cycles. They give the bits that the run's gave because they are computed by
/// the same functions in the same order: changed gains come into force before the cycle's step, keeping the state; then
/// the set-point filter, whose output the controller takes. With the loop open neither runs, so both begin, from the
/// state of a new channel, in the cycle in which it closes. One mode does not see another, so that the run's slices do
/// not matter.
class Channels
{
public:
    Channels(const RunFolder& run, std::vector<GainsInForce> gains)
        : m_open_cycles(run.GetOpenCycles()), m_gains(std::move(gains))
    {
        // As the tasks of the run: the period is rounded once, from double.
        ravelcore::PidFilterCopy(static_cast<float>(1.0 / run.GetRateHz()), 0.0F, m_gains.front().params, m_channels);
        m_out.resize(m_channels.size());
    }

    /// The outputs of a cycle. The cycles come one by one, from 0.
    std::span<const float> Compute(std::int64_t cycle, const RunData& data)
    {
        for (; m_next_gains < m_gains.size() && m_gains[m_next_gains].before_cycle <= cycle; ++m_next_gains) {
            for (std::size_t mode = 0; mode < m_channels.size(); ++mode) {
                ChangeGains(&m_gains[m_next_gains].params[mode * NUM_PARAMS], m_channels[mode]);
            }
        }
        const bool closed = cycle >= m_open_cycles;
        const bool first = cycle == m_open_cycles;
        const std::span<const float> in = data.in.Row(cycle);
        const std::span<const float> ref = data.ref.Row(cycle);
        const std::span<const float> arw = data.arw.Row(cycle);
        for (std::size_t mode = 0; mode < m_channels.size(); ++mode) {
            m_out[mode] = ravelcore::PidFilterCompute(m_channels[mode], in[mode], ref[mode], arw[mode], closed, closed,
                                                      false, first);
        }
        return m_out;
    }

private:
    std::int64_t m_open_cycles;
    std::vector<GainsInForce> m_gains;
    std::size_t m_next_gains = 1;  // the first ones are in the channels
    std::vector<ravelcore::PidFilterContext> m_channels;
    std::vector<float> m_out;
};

/// An output of which there are two values.
struct Pair
{
    std::int64_t cycle = 0;
    std::size_t mode = 0;
    float recorded = 0.0F;
    float computed = 0.0F;

    double Difference() const { return std::abs(static_cast<double>(computed) - static_cast<double>(recorded)); }
};

/// Where recorded and computed outputs differ, and by how much.
class Comparison
{
public:
    void Add(const Pair& pair)
    {
        if (std::bit_cast<std::uint32_t>(pair.recorded) == std::bit_cast<std::uint32_t>(pair.computed)) {
            return;
        }
        ++m_count;
        m_first = m_first ? m_first : pair;
        if (std::isfinite(pair.Difference()) && (!m_largest || pair.Difference() > m_largest->Difference())) {
            m_largest = pair;
        }
    }

    std::int64_t GetCount() const { return m_count; }
    const std::optional<Pair>& GetFirst() const { return m_first; }

    /// None where no difference is finite.
    const std::optional<Pair>& GetLargest() const { return m_largest; }

private:
    std::int64_t m_count = 0;
    std::optional<Pair> m_first;
    std::optional<Pair> m_largest;
};

std::string FormatLargest(const Pair& pair)
{
    return fmt::format("largest difference: {:.6g} um, cycle {}, mode {}\n", pair.Difference(), pair.cycle, pair.mode);
}

/// What other gains make of the outputs with the loop closed.
class Effect
{
public:
    void Add(const Pair& pair)
    {
        ++m_count;
        m_recorded_squares += static_cast<double>(pair.recorded) * static_cast<double>(pair.recorded);
        m_computed_squares += static_cast<double>(pair.computed) * static_cast<double>(pair.computed);
        if (!std::isfinite(pair.computed)) {
            ++m_num_not_finite;
            m_first_not_finite = m_first_not_finite ? m_first_not_finite : pair;
        }
        m_comparison.Add(pair);
    }

    std::string Format() const
    {
        if (m_count == 0) {
            return "the loop was not closed in this run, and with the loop open no output depends on the gains\n";
        }
        std::string text = fmt::format(
            "outputs (modal coordinates) with the loop closed: {:.6g} um rms as recorded, {:.6g} um rms then\n",
            RmsUm(m_recorded_squares), RmsUm(m_computed_squares));
        if (m_first_not_finite) {
            text += fmt::format("outputs that are not finite: {}, the first in cycle {}, mode {}\n", m_num_not_finite,
                                m_first_not_finite->cycle, m_first_not_finite->mode);
        }
        if (m_comparison.GetCount() == 0) {
            return text + "no output changes\n";
        }
        if (const std::optional<Pair>& largest = m_comparison.GetLargest()) {
            text += FormatLargest(*largest);
        }
        return text;
    }

private:
    double RmsUm(double squares) const { return std::sqrt(squares / static_cast<double>(m_count)); }

    std::int64_t m_count = 0;
    double m_recorded_squares = 0.0;
    double m_computed_squares = 0.0;
    std::int64_t m_num_not_finite = 0;
    std::optional<Pair> m_first_not_finite;
    Comparison m_comparison;
};

void TellCycle(LongWork& work, std::int64_t cycle, std::int64_t cycles)
{
    constexpr std::int64_t CYCLES_PER_TEXT = 256;
    if (cycle % CYCLES_PER_TEXT == 0) {
        work.Tell(fmt::format("replaying cycle {} of {}", cycle, cycles));
    }
}

/// Also keeps the run as it is: what is replayed stands in its folder.
void CheckOutput(const ReplayOptions& options)
{
    if (options.output.empty()) {
        return;
    }
    CheckOutputFile(options.output, options.overwrite);
    std::error_code ignored;
    for (const char* name : {"modes_in.fits", "modes_out.fits", "modes_ref.fits", "modes_arw.fits"}) {
        if (std::filesystem::equivalent(options.output, options.run / name, ignored)) {
            throw InputError(
                fmt::format("--output: {} is a recording of the run; choose another name", options.output.string()));
        }
    }
}

std::vector<int> FindModes(const ReplayOptions& options, int num_modes)
{
    if (options.modes.empty()) {
        std::vector<int> all(static_cast<std::size_t>(num_modes));
        std::iota(all.begin(), all.end(), 0);
        return all;
    }
    try {
        return ParseModeList(options.modes, num_modes);
    } catch (const InputError& e) {
        throw InputError(fmt::format("--modes: {}", e.what()));
    }
}

/// The gains of the run, all of them, with what is set in place of theirs.
std::vector<GainsInForce> Change(std::vector<GainsInForce> gains, const std::vector<GainSetting>& set,
                                 const std::vector<int>& modes)
{
    for (GainsInForce& in_force : gains) {
        for (const int mode : modes) {
            for (const GainSetting& setting : set) {
                in_force.params.at(static_cast<std::size_t>(mode) * NUM_PARAMS +
                                   static_cast<std::size_t>(setting.param)) = setting.value;
            }
        }
        try {
            CheckGains(in_force.params);  // a limit by itself may be right, and wrong beside the other
        } catch (const InputError& e) {
            throw InputError(fmt::format("--set: {}", e.what()));
        }
    }
    return gains;
}

std::string DescribeChange(const ReplayOptions& options, const std::vector<int>& modes)
{
    std::vector<std::string> settings;
    for (const GainSetting& setting : options.set) {
        settings.push_back(
            fmt::format("{} = {}", GAIN_PARAMS.at(static_cast<std::size_t>(setting.param)).name, setting.value));
    }
    return fmt::format("with {} for {}, what is measured being as recorded:\n", fmt::join(settings, ", "),
                       options.modes.empty()
                           ? "every mode"
                           : fmt::format("mode{} {}", modes.size() == 1 ? "" : "s", FormatModeList(modes)));
}

std::string Format(const Comparison& comparison, const RunFolder& run)
{
    std::string text = fmt::format("replayed {} cycles of {} modes: ", run.GetCycles(), run.GetModes());
    if (comparison.GetCount() == 0) {
        return text + "every output equal to the last bit\n";
    }
    const Pair& first = *comparison.GetFirst();
    text += fmt::format("{} of {} outputs (modal coordinates) differ\n", comparison.GetCount(),
                        run.GetCycles() * run.GetModes());
    text += fmt::format("first difference: cycle {}, mode {}: recorded {} um, replayed {} um\n", first.cycle,
                        first.mode, first.recorded, first.computed);
    if (const std::optional<Pair>& largest = comparison.GetLargest()) {
        text += FormatLargest(*largest);
    }
    return text;
}

/// Returns the size of the recordings, bytes.
std::uint64_t CheckReplayMemory(const RunFolder& run)
{
    // The recordings, the outputs, and what the file layer takes beside the one that it reads or writes.
    constexpr std::uint64_t RECORDINGS = 4;
    constexpr std::uint64_t COPIES = RECORDINGS + 1 + 3;
    const auto cycles = static_cast<std::uint64_t>(run.GetCycles());
    const std::uint64_t bytes = cycles * static_cast<std::uint64_t>(run.GetModes()) * sizeof(float);
    CheckMemory(COPIES * bytes, fmt::format("the recordings of {}", run.GetPath().string()),
                "free some, or replay a shorter run");
    return RECORDINGS * bytes;
}

/// Returns what to say of the file.
std::string WriteOutputs(const ReplayOptions& options, const RunFolder& run, const std::vector<float>& outputs,
                         const std::vector<double>& timestamps)
{
    const std::filesystem::path file = std::filesystem::absolute(options.output);
    try {
        WriteWhole(file, [&](const std::filesystem::path& part) {
            ravelcore::SaveMatrixWithTimestamps(part.string(), "modes_out", static_cast<int>(run.GetCycles()),
                                                run.GetModes(), outputs, timestamps);
        });
    } catch (const std::exception& e) {
        throw RunError(CannotWrite(options.output, e.what()));
    }
    return fmt::format("{}: {} rows of {} outputs ({})\n", options.output.string(), run.GetCycles(), run.GetModes(),
                       FormatBytes(std::filesystem::file_size(file)));
}

/// What the channels gave, once more.
struct Replayed
{
    Comparison comparison;
    Effect effect;
    std::vector<float> outputs;  // row-major, where they are wanted
};

Replayed Replay(const ReplayOptions& options, const RunFolder& run, const RunData& data, Channels as_run,
                Channels changed, const std::vector<int>& changed_modes, LongWork& work)
{
    Replayed replayed;
    replayed.outputs.reserve(options.output.empty() ? 0 : data.out.values.size());
    for (std::int64_t cycle = 0; cycle < run.GetCycles(); ++cycle) {
        const std::span<const float> recorded = data.out.Row(cycle);
        std::span<const float> computed = as_run.Compute(cycle, data);
        for (std::size_t mode = 0; mode < computed.size(); ++mode) {
            replayed.comparison.Add({cycle, mode, recorded[mode], computed[mode]});
        }
        if (!options.set.empty()) {
            computed = changed.Compute(cycle, data);
            for (std::size_t i = 0; i < changed_modes.size() && cycle >= run.GetOpenCycles(); ++i) {
                const auto mode = static_cast<std::size_t>(changed_modes[i]);
                replayed.effect.Add({cycle, mode, recorded[mode], computed[mode]});
            }
        }
        if (!options.output.empty()) {
            replayed.outputs.insert(replayed.outputs.end(), computed.begin(), computed.end());
        }
        TellCycle(work, cycle, run.GetCycles());
    }
    return replayed;
}

std::string FormatVerdict(const Comparison& comparison, const Palette& palette)
{
    return fmt::format("verdict                 {}\n",
                       comparison.GetCount() == 0 ? palette.Good("reproduced") : palette.Bad("NOT reproduced"));
}

/// Why the status is not EXIT_OK.
std::string FormatProblem(const Comparison& comparison, const RunFolder& run)
{
    return fmt::format(
        "{}: {} of {} outputs are not the recorded ones: files of the run were changed, or another build of ravelctl "
        "made it; replay it with that build, or run it again",
        run.GetPath().string(), comparison.GetCount(), run.GetCycles() * run.GetModes());
}

/// Everything but the checks of the options. Returns how the outputs compare with the recorded ones, and what to say.
std::pair<Comparison, std::string> ReplayAndWrite(const ReplayOptions& options, const RunFolder& run,
                                                  const std::vector<int>& changed_modes, std::ostream& out)
{
    const std::vector<GainsInForce> gains = run.LoadGains();
    const std::uint64_t bytes = CheckReplayMemory(run);
    LongWork work(StatusLine::StyleFor(options.quiet, STDOUT_FILENO), out,
                  fmt::format("reading {} ({})", run.GetPath().string(), FormatBytes(bytes)));
    const RunData data(run);
    const Replayed replayed = Replay(options, run, data, Channels(run, gains),
                                     Channels(run, Change(gains, options.set, changed_modes)), changed_modes, work);
    std::string text = Format(replayed.comparison, run);
    if (!options.set.empty()) {
        text += DescribeChange(options, changed_modes) + replayed.effect.Format();
    }
    if (!options.output.empty()) {
        work.Tell(fmt::format("writing {}", options.output.string()));
        text += WriteOutputs(options, run, replayed.outputs, data.out.timestamps);
    }
    text += FormatVerdict(replayed.comparison, Palette(FindTerminalStyle(STDOUT_FILENO)));
    return {replayed.comparison, text};
}

}  // namespace

int ReplayRun(const ReplayOptions& options, std::ostream& out, std::ostream& err)
{
    const RunFolder run(options.run);
    const std::vector<int> changed_modes = FindModes(options, run.GetModes());
    CheckOutput(options);
    const auto [comparison, text] = ReplayAndWrite(options, run, changed_modes, out);
    if (!options.quiet) {
        out << text << std::flush;
    }
    if (comparison.GetCount() == 0) {
        return EXIT_OK;
    }
    err << FormatErrorLine(FormatProblem(comparison, run)) << std::flush;
    return EXIT_FAILED;
}

}  // namespace lumo::ravelctl
