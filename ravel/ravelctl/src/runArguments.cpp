#include "runArguments.hpp"

#include "argumentChecks.hpp"
#include "commandOutline.hpp"
#include "error.hpp"
#include "helpText.hpp"
#include "placementArguments.hpp"

#include <CLI/CLI.hpp>
#include <fmt/core.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <utility>

namespace lumo::ravelctl {

namespace {

/// Puts the option's name before what is refused.
template <typename Parse>
auto Named(const char* option, const Parse& parse)
{
    try {
        return parse();
    } catch (const InputError& e) {
        throw InputError(fmt::format("{}: {}", option, e.what()));
    }
}

/// What takes back the value that a file gives an option, which then is not given.
constexpr const char* NONE = "none";

/// Without a number the option means the default.
std::optional<double> ReadRecordLast(const std::string& text)
{
    constexpr double DEFAULT_S = 10.0;
    if (text.empty()) {
        return DEFAULT_S;
    }
    if (text == NONE) {
        return std::nullopt;
    }
    char* end = nullptr;
    const double seconds = std::strtod(text.c_str(), &end);
    if (*end != '\0') {
        throw InputError(
            fmt::format("--record-last: expected seconds but got {}; without a number, put it last", text));
    }
    return seconds;
}

/// Seconds, or NONE.
void AddOptionalSeconds(CLI::App& run, const char* name, std::optional<double>& seconds, const char* description)
{
    const auto read = [name, &seconds](const std::string& text) {
        char* end = nullptr;
        seconds = std::strtod(text.c_str(), &end);
        if (text == NONE) {
            seconds.reset();
        } else if (text.empty() || *end != '\0') {
            throw InputError(fmt::format("{}: expected seconds or none but got '{}'", name, text));
        }
    };
    run.add_option_function<std::string>(name, read, description)->type_name("S");
}

/// What goes into the run and comes out of it beside the modes.
void AddDataOptions(CLI::App& run, RunArguments& arguments)
{
    RunOptions& options = arguments.options;
    run.add_option("--record", arguments.record, "What to record, with commas between [modes]")
        ->delimiter(',')
        ->type_name(NameValues({"modes", "es", "pact"}));
    run.add_option("--record-decimation", options.record.decimation, "Record one in N cycles")
        ->type_name("N")
        ->capture_default_str();
    run.add_option("--record-last", arguments.record_last, "Keep only the last S seconds [10 where S is left out]")
        ->expected(0, 1)
        ->type_name("S");
    run.add_option("--play-es", options.play.es, "Play recorded edge-sensor frames instead of the simulated ones")
        ->type_name(FILE_VALUE);
    run.add_option("--play-pact", options.play.pact, "Play recorded actuator frames instead of the simulated ones")
        ->type_name(FILE_VALUE);
    run.add_option("--inject", options.inject.file,
                   "Add samples, um, a column per mode, to the references once these have been led to 0")
        ->type_name(FILE_VALUE);
    run.add_option("--inject-decimation", options.inject.decimation, "Cycles that each injected sample lasts")
        ->type_name("N")
        ->capture_default_str();
    run.add_flag("--inject-loop", options.inject.loop, "Begin again after the last injected sample");
    run.add_option("--gains", options.gains, "Begin with these gains, such as ravelctl tune writes [designed ones]")
        ->type_name(FILE_VALUE);
    run.add_option("--script", options.script, "TOML file of changes to make while the loop runs")
        ->type_name(FILE_VALUE);
}

}  // namespace

void AddRunOptions(CLI::App& run, RunArguments& arguments)
{
    RunOptions& options = arguments.options;
    run.add_option("CONFIG", arguments.config,
                   "File of options, as ravelctl config prints one; options given here override it, "
                   "flags too, as --quiet=false does a true, and the word none takes the value of --duration, "
                   "--open-loop, --record-last or --tone back")
        ->type_name(FILE_VALUE);
    run.add_option("--modes", options.modes, "Control modes, 1 to 2390, the least stiff ones")->capture_default_str();
    run.add_option("--rate", options.rate_hz, "Cycle rate in Hz, 1 to 5000")->type_name("HZ")->capture_default_str();
    AddOptionalSeconds(run, "--duration", options.duration_s,
                       "Length of the run in seconds, open loop included [20, or as long as what is played]");
    AddOptionalSeconds(run, "--open-loop", options.open_loop_s,
                       "Seconds at the beginning with the loop open [a tenth of the duration]");
    run.add_option("--workers", arguments.workers, "Worker threads; each controls a slice of the modes [2]");
    run.add_option("--seed", options.seed, "Seed of everything random; equal seeds give equal bits")
        ->check(CheckNotNegative)
        ->capture_default_str();
    run.add_option("--output", options.output, "Folder for the run's files [ravelctl-<time> here]")
        ->type_name(FOLDER_VALUE);
    run.add_flag("--overwrite", options.overwrite,
                 "Replace the run that the output folder holds, or files of the same names");
    run.add_option("--matrices", options.matrices,
                   "Folder in which the matrices are kept [ravelctl/mirror-1 in the user's cache]")
        ->type_name(FOLDER_VALUE);
    run.add_flag("--as-fast-as-possible", options.as_fast_as_possible, "Do not wait between cycles; same results");
    run.add_option("--tone", arguments.tones,
                   "Disturb mode MODE with a sine of HZ Hz and NM nm: MODE:HZ:NM; may be repeated")
        ->type_name("MODE:HZ:NM");
    AddDataOptions(run, arguments);
    AddPlacementOptions(run, options.placement);
    run.add_option("--log-config", options.log_config, "File of log4cplus properties [warnings to standard error]")
        ->type_name(FILE_VALUE);
    run.add_flag("--quiet", options.quiet, "Print nothing but errors");
    run.footer(FormatFooter(
        "",
        {"ravelctl run", "ravelctl run --modes 300 --workers 2 --duration 60 --output night1",
         "ravelctl run --as-fast-as-possible --duration 10 --tone 5:2.5:100",
         "ravelctl run --record modes,es,pact --output first",
         "ravelctl run --play-es first/es.fits --play-pact first/pact.fits --output second",
         "ravelctl run --inject chirp.fits --script changes.toml", "ravelctl run --workers 2 --cpus 2,3 --cycle-cpu 1",
         "ravelctl run first/config.toml --output again",
         "ravelctl run first/config.toml --gains tuned/gains.fits --output second"},
        "the loop held and every file was written", "it did not"));
}

mirrorsim::Tone ParseTone(const std::string& text)
{
    mirrorsim::Tone tone{};
    long mode = 0;
    double amplitude_nm = 0.0;
    int used = 0;
    if (std::sscanf(text.c_str(), "%ld:%lf:%lf%n", &mode, &tone.frequency_hz, &amplitude_nm, &used) != 3 ||
        static_cast<std::size_t>(used) != text.size() || !std::in_range<int>(mode)) {
        throw InputError(fmt::format("expected MODE:HZ:NM, such as 5:2.5:100, but got {}", text));
    }
    tone.mode = static_cast<int>(mode);
    tone.amplitude_um = amplitude_nm * 1.0e-3;
    return tone;
}

void ParseRecorded(const std::vector<std::string>& names, RecordOptions& record)
{
    record.modes = record.es = record.pact = false;
    for (const std::string& name : names) {
        bool* what = name == "modes"  ? &record.modes
                     : name == "es"   ? &record.es
                     : name == "pact" ? &record.pact
                                      : nullptr;
        if (what == nullptr) {
            throw InputError(fmt::format("expected some of modes, es and pact but got '{}'", name));
        }
        *what = true;
    }
}

int CountWorkers(const RunArguments& arguments)
{
    const int modes = std::max(arguments.options.modes, 1);  // others are refused with the rest of the plan
    if (arguments.workers || !arguments.slice_size) {
        return arguments.workers.value_or(std::min(modes, DEFAULT_WORKERS));
    }
    const int size = *arguments.slice_size;
    const int workers = (modes + size - 1) / size;
    const std::string name = arguments.options.places.Name("--workers");
    if (workers > RunOptions::MOST_WORKERS) {
        throw InputError(
            fmt::format("{}: expected slices for at most {} workers but {} modes in slices of {} are for {}", name,
                        RunOptions::MOST_WORKERS, modes, size, workers));
    }
    const int shared = (modes + workers - 1) / workers;
    if (workers > 1 && shared != size) {
        throw InputError(fmt::format("{}: expected {}, in which {} workers share {} modes evenly, but got {}", name,
                                     shared, workers, modes, size));
    }
    return workers;
}

RunOptions ReadRunOptions(const RunArguments& arguments)
{
    RunOptions options = arguments.options;
    options.config = arguments.config;
    options.workers = CountWorkers(arguments);
    if (options.as_fast_as_possible && !options.places.Has("--as-fast-as-possible")) {
        ForgetPriorities(options.places, options.placement);
    }
    if (!arguments.tones.empty()) {
        options.tones.clear();  // of the file
    }
    const bool are_none = arguments.tones == std::vector<std::string>{NONE};
    for (const std::string& tone : are_none ? std::vector<std::string>() : arguments.tones) {
        options.tones.push_back(Named("--tone", [&tone] { return ParseTone(tone); }));
    }
    if (!arguments.record.empty()) {
        Named("--record", [&] { ParseRecorded(arguments.record, options.record); });
    }
    if (arguments.record_last) {
        options.record.last_s = ReadRecordLast(*arguments.record_last);
    }
    return options;
}

}  // namespace lumo::ravelctl
