#include "qualifyArguments.hpp"

#include "commandOutline.hpp"
#include "helpText.hpp"
#include "placementArguments.hpp"

#include <lumo/ravelcore/names.hpp>

#include <CLI/CLI.hpp>

#include <string>

namespace lumo::ravelctl {

void AddQualifyOptions(CLI::App& command, QualifyOptions& options)
{
    command
        .add_option(
            "CONFIG", options.config,
            "File of a run's options: its rate, workers, placement, cfg.task_sgemv and [qualify] count; options given "
            "here override it")
        ->type_name(FILE_VALUE);
    command.add_option("--rows", options.rows, "Rows of each worker's matrix")->capture_default_str();
    command.add_option("--cols", options.cols, "Columns of each worker's matrix")->capture_default_str();
    command.add_option("--workers", options.workers, "Worker threads [1, or one for each of the CPUs that are given]");
    command.add_option("--rate", options.rate_hz, "Cycle rate in Hz, 1 to 5000")
        ->type_name("HZ")
        ->capture_default_str();
    command.add_flag("--flat-out", options.flat_out, "Do not wait between cycles");
    command.add_option("--duration", options.duration_s, "Seconds to run for [10]")->type_name("S");
    command.add_option("--cycles", options.cycles, "Cycles to run, instead of a duration")->type_name("N");
    command
        .add_option("--deadline-us", options.deadline_us,
                    "Longest time in us from a start to all workers being ready [the period; flat out: none]")
        ->type_name("US");
    AddPlacementOptions(command, options.placement);
    command
        .add_option("--output", options.output,
                    "Folder for qualify.json and report.html [ravelctl-qualify-<time> here]")
        ->type_name(FOLDER_VALUE);
    command.add_flag("--overwrite", options.overwrite, "Replace the qualification that the output folder holds");
    command.add_flag("--quiet", options.quiet, "Print nothing but errors");
    command.footer(
        FormatFooter("",
                     {"ravelctl qualify", "ravelctl qualify --cpus 2,3 --rows 300 --duration 60 --output cpu23",
                      "ravelctl qualify --workers 4 --rate 1000 --deadline-us 500",
                      "ravelctl qualify --flat-out --cycles 10000 --rows 2390", "ravelctl qualify night.toml"},
                     "every cycle was done in time", "one was not"));
}

void QualifyFor(const RunArguments& run, QualifyOptions& options)
{
    const auto number = [&run](const std::string& key) {
        const auto found = run.options.cfg.find(key);
        return found == run.options.cfg.end() ? std::nullopt : std::optional<int>(std::stoi(found->second));
    };
    const int modes = run.options.modes;
    const int workers = CountWorkers(run);
    options.workers = workers;
    options.rate_hz = run.options.rate_hz;
    options.rows = number(ravelcore::KEY_TASK_SGEMV_NUM_ROWS).value_or((modes + workers - 1) / workers);
    options.cols = number(ravelcore::KEY_TASK_SGEMV_NUM_COLS).value_or(options.cols);
    options.placement = run.options.placement;
    options.places = run.options.places;
    const std::optional<int> node = number(ravelcore::KEY_TASK_SGEMV_NUMA_NODE);
    if (node && options.placement.numa_node.kind == PlaceChoice::Kind::Auto) {
        options.placement.numa_node = ParsePlaceChoice(run.options.places.Name(ravelcore::KEY_TASK_SGEMV_NUMA_NODE),
                                                       *node < 0 ? std::string("none") : std::to_string(*node));
    }
    const QualifyTable& table = run.options.qualify;
    options.flat_out = table.flat_out;
    options.duration_s = table.duration_s;
    options.cycles = table.cycles;
    options.deadline_us = table.deadline_us;
    options.output = table.output;
    options.overwrite = table.overwrite;
    options.quiet = table.quiet;
    for (const char* name : {"flat-out", "duration", "cycles", "deadline-us", "output", "overwrite", "quiet"}) {
        run.options.places.Move(std::string("--qualify-") + name, std::string("--") + name, options.places);
    }
}

QualifyOptions ReadQualifyOptions(QualifyOptions options)
{
    const OptionPlaces& places = options.places;
    if (options.cycles && options.duration_s && places.Has("--cycles") != places.Has("--duration")) {
        places.Has("--cycles") ? options.cycles.reset() : options.duration_s.reset();
    }
    if (options.flat_out && !places.Has("--flat-out")) {
        ForgetPriorities(places, options.placement);
    }
    return options;
}

}  // namespace lumo::ravelctl
