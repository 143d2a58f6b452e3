#include "tune.hpp"

#include "argumentChecks.hpp"
#include "error.hpp"
#include "errorLine.hpp"
#include "longWork.hpp"
#include "parameterFile.hpp"
#include "resources.hpp"
#include "runFolder.hpp"
#include "terminalStyle.hpp"
#include "tuneCheck.hpp"
#include "tuneReport.hpp"
#include "tuning.hpp"

#include <fmt/core.h>
#include <unistd.h>

namespace lumo::ravelctl {

namespace fs = std::filesystem;

namespace {

constexpr const char* GAINS_FILE = "gains.fits";
constexpr const char* JSON_FILE = "tune.json";

/// Keeps every run as it is: its gains stand under the same name in its folder.
void PrepareOutput(const TuneOptions& options)
{
    if (options.output.empty()) {
        return;
    }
    const std::string folder = options.output.string();
    std::error_code ignored;
    if (fs::exists(options.output / "summary.json", ignored)) {
        throw InputError(fmt::format("--output: {} holds a run, whose gains are kept; choose another folder", folder));
    }
    for (const char* name : {GAINS_FILE, JSON_FILE}) {
        if (!options.overwrite && fs::exists(options.output / name, ignored)) {
            throw InputError(
                fmt::format("--output: {} holds a {} already; choose another folder, or replace it with --overwrite",
                            folder, name));
        }
    }
    constexpr std::uint64_t MOST_BYTES = 3'000'000;
    PrepareOutputFolder(options.output, MOST_BYTES, "the gains and their figures", "choose another folder");
}

std::string DescribeDisturbance(const Tuning& tuning, const RunFolder& run)
{
    return fmt::format("disturbance of {} modes in {}: {} cycles ({:.1f} s), {}\n", tuning.modes.size(),
                       run.GetPath().string(), tuning.cycles, static_cast<double>(tuning.cycles) / tuning.rate_hz,
                       tuning.is_from_open ? "measured with the loop open"
                                           : "derived from the closed loop: measured less what the commands did");
}

std::string DescribeDemands(const LoopDemands& demands)
{
    return fmt::format(
        "gains that leave the least, with a phase margin of {:g} deg, a gain margin of {:g} dB, a "
        "sensitivity peak up to {:g}{}\n\n",
        demands.phase_margin_deg, demands.gain_margin_db, demands.sensitivity_peak,
        demands.max_crossover_hz ? fmt::format(", a crossover up to {:g} Hz", *demands.max_crossover_hz) : "");
}

/// `is_changed_midway`: the script of the run replaces gains or modes, and would again. Returns what to say of the
/// files.
std::string WriteFiles(const TuneOptions& options, const Tuning& tuning, bool is_changed_midway)
{
    if (options.output.empty()) {
        return "";
    }
    SaveGainsFile(fs::absolute(options.output / GAINS_FILE), tuning.params);
    WriteTuning(tuning, options.run, options.output / JSON_FILE);
    const std::string folder = options.output.string();
    return fmt::format("files                   {}: {}, {}\n", folder, GAINS_FILE, JSON_FILE) +
           fmt::format("to try them             ravelctl run {} --gains {}{} --output NEXT\n",
                       (options.run / "config.toml").string(), (options.output / GAINS_FILE).string(),
                       is_changed_midway ? " --script \"\"" : "") +
           fmt::format("and to compare          ravelctl tune NEXT --check {}\n",
                       (options.output / JSON_FILE).string());
}

/// Compares the run with what was predicted of it.
int Check(const TuneOptions& options, const RunFolder& run, std::ostream& out, std::ostream& err)
{
    const PredictionCheck check = CheckPrediction(ReadPrediction(options.check), run);
    if (!options.quiet) {
        out << check.table << check.FormatVerdict(Palette(FindTerminalStyle(STDOUT_FILENO))) << std::flush;
    }
    if (check.is_confirmed) {
        return EXIT_OK;
    }
    const std::string name = run.GetPath().string();
    err << FormatErrorLine(fmt::format(
               "{}: what {} predicts is NOT confirmed within {:.0f} %: the disturbance, its noise or the plant is "
               "another one; tune this run anew: ravelctl tune {}",
               name, options.check.string(), 100.0 * PredictionCheck::TOLERANCE, name))
        << std::flush;
    return EXIT_FAILED;
}

}  // namespace

void CheckTuneOptions(const TuneOptions& options)
{
    CheckRange(options.places.Name("--phase-margin"), options.demands.phase_margin_deg, 1.0, 89.0, " deg");
    CheckRange(options.places.Name("--gain-margin"), options.demands.gain_margin_db, 0.1, 60.0, " dB");
    CheckRange(options.places.Name("--max-sensitivity"), options.demands.sensitivity_peak, 1.01, 100.0, "");
    if (options.demands.max_crossover_hz) {
        CheckRange(options.places.Name("--max-crossover"), *options.demands.max_crossover_hz, 0.002, 2500.0, " Hz");
    }
    if (!options.check.empty() && (!options.output.empty() || options.overwrite || options.from != TuneFrom::Auto)) {
        throw InputError("--check: expected no --output, --overwrite or --from besides: nothing is proposed then");
    }
}

int Tune(const TuneOptions& options, std::ostream& out, std::ostream& err)
{
    CheckTuneOptions(options);
    const RunFolder run(options.run);
    if (!options.check.empty()) {
        return Check(options, run, out, err);
    }
    PrepareOutput(options);
    LongWork work(StatusLine::StyleFor(options.quiet, STDOUT_FILENO), out, "reading " + run.GetPath().string());
    const Tuning tuning = TuneModes(
        run, options, [&](std::size_t mode) { work.Tell(fmt::format("tuning mode {} of {}", mode, run.GetModes())); });
    work.Finish();
    if (!options.quiet) {
        out << DescribeDisturbance(tuning, run) << DescribeDemands(options.demands) << FormatTuning(tuning)
            << std::flush;  // also where the files cannot be written
    }
    const std::string files = WriteFiles(options, tuning, run.IsChangedMidway());
    if (!options.quiet) {
        out << files << std::flush;
    }
    return EXIT_OK;
}

}  // namespace lumo::ravelctl
