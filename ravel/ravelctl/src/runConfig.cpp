#include "runConfig.hpp"

#include "error.hpp"
#include "figureText.hpp"
#include "tomlTable.hpp"
#include "tuneArguments.hpp"

#include <lumo/mirrorsim/controlModes.hpp>
#include <lumo/mirrorsim/geometry.hpp>
#include <lumo/ravelcore/names.hpp>

#include <fmt/core.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <limits>
#include <map>
#include <utility>
#include <vector>

namespace lumo::ravelctl {

namespace {

using Write = std::function<std::string(const RunOptions&)>;

/// One line of the file. `write` gives the value as TOML, or nothing where it is not given. The line then shows what
/// is meant, where other options say that, or an example.
struct Entry
{
    const char* key;
    const char* comment;
    const char* example;  // for what is not given
    std::function<void(TomlTable&, const char*, RunArguments&)> read;
    Write write;
    Write meant{};
};

struct Section
{
    const char* name;
    const char* comment;
    std::vector<Entry> entries;
};

// ---- values as TOML

std::string Quote(const std::string& text)
{
    std::string quoted = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\') {
            quoted += '\\';
        }
        if (static_cast<unsigned char>(c) < ' ' || c == 0x7F) {
            quoted += fmt::format("\\u{:04X}", static_cast<unsigned>(static_cast<unsigned char>(c)));
        } else {
            quoted += c;
        }
    }
    return quoted + "\"";
}

/// With a point or an exponent, so that it stays a number with a fraction for other readers too.
std::string FormatNumber(double value)
{
    const std::string text = fmt::format("{}", value);
    return text.find_first_of(".en") == std::string::npos ? text + ".0" : text;
}

std::string FormatStrings(const std::vector<std::string>& texts)
{
    std::vector<std::string> quoted;
    quoted.reserve(texts.size());
    for (const std::string& text : texts) {
        quoted.push_back(Quote(text));
    }
    return fmt::format("[{}]", fmt::join(quoted, ", "));
}

// ---- kinds of entries

using GetBool = std::function<bool&(RunOptions&)>;
using GetNumber = std::function<double&(RunOptions&)>;
using GetPath = std::function<std::filesystem::path&(RunOptions&)>;
using GetInt = std::function<int&(RunOptions&)>;
using GetOptional = std::function<std::optional<double>&(RunOptions&)>;

Entry Number(const char* key, const char* comment, const NumberRange& range, const GetNumber& field)
{
    return {key, comment, "",
            [field, range](TomlTable& table, const char* name, RunArguments& arguments) {
                field(arguments.options) = table.GetNumber(name, range).value_or(field(arguments.options));
            },
            [field](RunOptions options) {
                return FormatNumber(field(options));
            }};
}

Entry OptionalNumber(const char* key, const char* comment, const char* example, const NumberRange& range,
                     const GetOptional& field, Write meant = {})
{
    return {key,
            comment,
            example,
            [field, range](TomlTable& table, const char* name, RunArguments& arguments) {
                if (const std::optional<double> value = table.GetNumber(name, range)) {
                    field(arguments.options) = value;
                }
            },
            [field](RunOptions options) { return field(options) ? FormatNumber(*field(options)) : std::string(); },
            std::move(meant)};
}

Entry Flag(const char* key, const char* comment, const GetBool& field)
{
    return {key, comment, "",
            [field](TomlTable& table, const char* name, RunArguments& arguments) {
                field(arguments.options) = table.GetBool(name).value_or(field(arguments.options));
            },
            [field](RunOptions options) {
                return field(options) ? "true" : "false";
            }};
}

/// Of what is read: a file names what lies beside it.
Entry Path(const char* key, const char* comment, const char* example, const GetPath& field)
{
    return {key, comment, example,
            [field](TomlTable& table, const char* name, RunArguments& arguments) {
                if (table.Has(name)) {
                    field(arguments.options) = table.GetPathBeside(name);
                }
            },
            [field](RunOptions options) {
                const std::filesystem::path& path = field(options);
                return path.empty() ? std::string() : Quote(path.string());
            }};
}

/// Of what is written: a file of defaults does not say where its reader works.
Entry OutputPath(const char* key, const char* comment, const char* example, const GetPath& field)
{
    Entry entry = Path(key, comment, example, field);
    entry.read = [field](TomlTable& table, const char* name, RunArguments& arguments) {
        if (table.Has(name)) {
            field(arguments.options) = table.GetPath(name);
        }
    };
    return entry;
}

Entry Integer(const char* key, const char* comment, int low, int high, const GetInt& field)
{
    return {key, comment, "",
            [=](TomlTable& table, const char* name, RunArguments& arguments) {
                field(arguments.options) = table.GetInteger(name, low, high).value_or(field(arguments.options));
            },
            [field](RunOptions options) {
                return fmt::format("{}", field(options));
            }};
}

Entry OptionalInteger(const char* key, const char* comment, const char* example, int low, int high,
                      std::optional<int> PlacementOptions::*field, Write meant)
{
    return {key,
            comment,
            example,
            [=](TomlTable& table, const char* name, RunArguments& arguments) {
                if (const std::optional<int> value = table.GetInteger(name, low, high)) {
                    arguments.options.placement.*field = value;
                }
            },
            [field](const RunOptions& options) {
                const std::optional<int>& value = options.placement.*field;
                return value ? fmt::format("{}", *value) : std::string();
            },
            std::move(meant)};
}

/// "auto", "none", an integer, or where there may be `several` also an array of them.
Entry Place(const char* key, const char* comment, bool several, PlaceChoice PlacementOptions::*field)
{
    return {key, comment, "",
            [=](TomlTable& table, const char* name, RunArguments& arguments) {
                if (!table.Has(name)) {
                    return;
                }
                PlaceChoice& choice = arguments.options.placement.*field;
                if (table.IsString(name)) {
                    choice = ParsePlaceChoice(table.Locate(name), *table.GetString(name));
                    return;
                }
                constexpr int HIGHEST = 1 << 16;
                const std::string what = several ? "\"auto\", \"none\", an integer or an array of integers"
                                                 : "\"auto\", \"none\" or an integer";
                choice = {table.Locate(name), PlaceChoice::Kind::Given, *table.GetIntegers(name, 0, HIGHEST, what)};
            },
            [field](const RunOptions& options) {
                const PlaceChoice& choice = options.placement.*field;
                if (!choice.IsGiven()) {
                    return Quote(FormatPlaceChoice(choice));
                }
                return choice.numbers.size() == 1 ? fmt::format("{}", choice.numbers.front())
                                                  : fmt::format("[{}]", fmt::join(choice.numbers, ", "));
            }};
}

/// A size that the simulated mirror has: it may be said, but not changed.
Entry FixedSize(const char* key, const char* comment, int size)
{
    return {key, comment, "",
            [size](TomlTable& table, const char* name, RunArguments& /*arguments*/) {
                const int given = table.GetInteger(name, 1, std::numeric_limits<int>::max()).value_or(size);
                if (given != size) {
                    table.Refuse(name,
                                 fmt::format("expected {}, as the simulated mirror has, but got {}", size, given));
                }
            },
            [size](const RunOptions& /*options*/) {
                return fmt::format("{}", size);
            }};
}

// ---- entries that are like no other

Entry Workers()
{
    return {"workers", "worker threads; each controls a slice of the modes", "2",
            [](TomlTable& table, const char* name, RunArguments& arguments) {
                if (const std::optional<int> workers = table.GetInteger(name, 1, 256)) {
                    arguments.workers = workers;
                }
            },
            [](const RunOptions& options) {
                return fmt::format("{}", options.workers);
            }};
}

Entry Seed()
{
    return {"seed", "of everything random; equal seeds give equal bits", "",
            [](TomlTable& table, const char* name, RunArguments& arguments) {
                arguments.options.seed = table.GetUnsigned(name).value_or(arguments.options.seed);
            },
            [](const RunOptions& options) {
                const bool fits = std::in_range<std::int64_t>(options.seed);  // an integer of TOML has a sign
                return fits ? fmt::format("{}", options.seed) : fmt::format("\"{}\"", options.seed);
            }};
}

Entry Tones()
{
    return {"tones", "sines of disturbance on single modes, mode:Hz:nm", "",
            [](TomlTable& table, const char* name, RunArguments& arguments) {
                for (const std::string& tone :
                     table.GetStrings(name, "tones such as \"5:2.5:100\"").value_or(std::vector<std::string>())) {
                    try {
                        arguments.options.tones.push_back(ParseTone(tone));
                    } catch (const InputError& e) {
                        table.Refuse(name, e.what());
                    }
                }
            },
            [](const RunOptions& options) {
                std::vector<std::string> tones;
                tones.reserve(options.tones.size());
                for (const mirrorsim::Tone& tone : options.tones) {
                    tones.push_back(fmt::format("{}:{}:{}", tone.mode, tone.frequency_hz, tone.amplitude_um * 1.0e3));
                }
                return FormatStrings(tones);
            }};
}

Entry Recorded()
{
    return {"what", "some of \"modes\", \"es\" (edge-sensor frames), \"pact\" (actuator frames)", "",
            [](TomlTable& table, const char* name, RunArguments& arguments) {
                if (const auto names = table.GetStrings(name, "some of \"modes\", \"es\", \"pact\"")) {
                    try {
                        ParseRecorded(*names, arguments.options.record);
                    } catch (const InputError& e) {
                        table.Refuse(name, e.what());
                    }
                }
            },
            [](const RunOptions& options) {
                return FormatStrings(NameRecorded(options.record));
            }};
}

/// The same as `workers`, said the other way round. How many they are depends on the modes, which the command line may
/// say.
Entry SliceSize()
{
    return {"slice_size",
            "modes of each worker, but fewer for the last one where they do not divide; in the place of run.workers",
            "300",
            [](TomlTable& table, const char* name, RunArguments& arguments) {
                const std::optional<int> size = table.GetInteger(name, 1, mirrorsim::NUM_MODES);
                if (!size) {
                    return;
                }
                if (arguments.workers) {
                    table.Refuse(name, "expected either this or run.workers but got both");
                }
                arguments.slice_size = size;
            },
            [](const RunOptions& /*options*/) { return std::string(); },
            [](const RunOptions& options) {
                return fmt::format("{}", (options.modes + options.workers - 1) / options.workers);
            }};
}

/// A tenth of the duration.
std::string FormatMeantOpenLoop(const RunOptions& options)
{
    const double open_s = 0.1 * options.duration_s.value_or(RunOptions::DEFAULT_DURATION_S);
    return FormatNumber(std::strtod(FormatFigure(open_s).c_str(), nullptr));
}

Section MakePlacementSection()
{
    using Options = PlacementOptions;
    return {
        "placement",
        "Where the threads run, and what is asked of the system for them. CPUs and nodes: \"auto\" chooses from what "
        "the\n# machine has, \"none\" leaves it to the system.",
        {Place("cpus", "of the workers, such as [2, 3]: one each", true, &Options::cpus),
         Place("cycle_cpu", "of the cycle's thread", false, &Options::cycle_cpu),
         Place("numa_node", "of the workers and their memory", false, &Options::numa_node),
         OptionalInteger(
             "priority", "real-time, of the workers, 0 to 89 [50; 0 where cycles are not paced]", "50", 0, 89,
             &Options::priority,
             [](const RunOptions& o) { return fmt::format("{}", PriorityOf(o.placement, !o.as_fast_as_possible)); }),
         OptionalInteger("cycle_priority", "real-time, of the cycle's thread, 0 to 99 [10 above the workers']", "60", 0,
                         99, &Options::cycle_priority,
                         [](const RunOptions& o) {
                             return fmt::format("{}", CyclePriorityOf(o.placement, !o.as_fast_as_possible));
                         }),
         Flag("lock_memory", "keep the memory from being paged out, where cycles are paced",
              [](RunOptions& o) -> bool& { return o.placement.lock_memory; }),
         Flag("huge_pages", "put the matrices into huge pages",
              [](RunOptions& o) -> bool& { return o.placement.huge_pages; })}};
}

Entry QualifyCycles()
{
    return {"cycles", "to run, instead of a duration", "5000",
            [](TomlTable& table, const char* name, RunArguments& arguments) {
                const std::optional<std::uint64_t> cycles = table.GetUnsigned(name);
                if (cycles && (*cycles < 1 || std::cmp_greater(*cycles, QualifyTable::MOST_CYCLES))) {
                    table.Refuse(name, fmt::format("expected 1 to {} but got {}", QualifyTable::MOST_CYCLES, *cycles));
                }
                if (cycles) {
                    arguments.options.qualify.cycles = static_cast<std::int64_t>(*cycles);
                }
            },
            [](const RunOptions& options) {
                const std::optional<std::int64_t>& cycles = options.qualify.cycles;
                return cycles ? fmt::format("{}", *cycles) : std::string();
            }};
}

Section MakeQualifySection()
{
    return {"qualify",
            "For ravelctl qualify CONFIG, besides rate, workers, placement and cfg.task_sgemv; a run does not use it.",
            {Flag("flat_out", "do not wait between cycles", [](RunOptions& o) -> bool& { return o.qualify.flat_out; }),
             OptionalNumber("duration", "s; to run for [10]", "10.0", {0.001, 1.0e6, "s"},
                            [](RunOptions& o) -> std::optional<double>& { return o.qualify.duration_s; }),
             QualifyCycles(),
             OptionalNumber("deadline_us",
                            "us; from a start to all workers being ready, at most [the period; flat out: none]",
                            "2000.0", {1.0, 1.0e9, "us"},
                            [](RunOptions& o) -> std::optional<double>& { return o.qualify.deadline_us; }),
             OutputPath("output", "folder for its files, from the current one [ravelctl-qualify-<time> here]",
                        "\"machine\"", [](RunOptions& o) -> std::filesystem::path& { return o.qualify.output; }),
             Flag("overwrite", "replace the qualification that the output folder holds",
                  [](RunOptions& o) -> bool& { return o.qualify.overwrite; }),
             Flag("quiet", "print nothing but errors", [](RunOptions& o) -> bool& { return o.qualify.quiet; })}};
}

Entry TunedFrom()
{
    return {"from", "part of the run that tells the disturbance: \"open\", \"closed\" or \"auto\", the longer one", "",
            [](TomlTable& table, const char* name, RunArguments& arguments) {
                if (const std::optional<std::string> part = table.GetString(name)) {
                    try {
                        arguments.options.tune.from = ParseTuneFrom(*part);
                    } catch (const InputError& e) {
                        table.Refuse(name, e.what());
                    }
                }
            },
            [](const RunOptions& options) {
                return Quote(NameTuneFrom(options.tune.from));
            }};
}

Section MakeTuneSection()
{
    const auto demand = [](auto member) {
        return [member](RunOptions & o) -> auto&
        {
            return o.tune.demands.*member;
        };
    };
    return {"tune",
            "For ravelctl tune RUN --config CONFIG; a run does not use it.",
            {TunedFrom(),
             Number("phase_margin", "degrees, at least", {1.0, 89.0, "deg"}, demand(&LoopDemands::phase_margin_deg)),
             Number("gain_margin", "dB, at least", {0.1, 60.0, "dB"}, demand(&LoopDemands::gain_margin_db)),
             Number("max_sensitivity", "largest factor by which the loop may amplify a disturbance of any frequency",
                    {1.01, 100.0, ""}, demand(&LoopDemands::sensitivity_peak)),
             OptionalNumber("max_crossover", "Hz; of the open loop, at most [any]", "30.0", {0.002, 2500.0, "Hz"},
                            demand(&LoopDemands::max_crossover_hz)),
             OutputPath("output", "folder for gains.fits and tune.json, from the current one [no files]", "\"tuned\"",
                        [](RunOptions& o) -> std::filesystem::path& { return o.tune.output; }),
             Flag("overwrite", "replace these files in that folder",
                  [](RunOptions& o) -> bool& { return o.tune.overwrite; })}};
}

std::vector<Section> MakeRunSections()
{
    constexpr int MOST = std::numeric_limits<int>::max();
    const auto options = [](auto member) {
        return [member](RunOptions & o) -> auto&
        {
            return o.*member;
        };
    };
    return {
        {"run",
         "The loop.",
         {Integer("modes", "control modes, 1 to 2390, the least stiff ones", 1, mirrorsim::NUM_MODES,
                  options(&RunOptions::modes)),
          Number("rate", "Hz; cycle rate, 1 to 5000", {1.0, 5000.0, "Hz"}, options(&RunOptions::rate_hz)),
          OptionalNumber("duration", "s; length of the run, open loop included [20, or as long as what is played]",
                         "20.0", {0.01, 1.0e6, "s"}, options(&RunOptions::duration_s)),
          OptionalNumber("open_loop", "s; at the beginning, with the loop open [a tenth of the duration]", "2.0",
                         {0.0, 1.0e6, "s"}, options(&RunOptions::open_loop_s), FormatMeantOpenLoop),
          Workers(), Seed(),
          Flag("as_fast_as_possible", "do not wait between cycles; same results",
               options(&RunOptions::as_fast_as_possible)),
          Tones(),
          Path("matrices", "folder in which the matrices are kept [ravelctl/mirror-1 in the user's cache]",
               "\"matrices\"", options(&RunOptions::matrices)),
          Path("gains", "file of gains to begin with, such as ravelctl tune writes [designed ones]",
               "\"tuned/gains.fits\"", options(&RunOptions::gains)),
          Path("script", "file of changes to make while the loop runs", "\"changes.toml\"",
               options(&RunOptions::script)),
          OutputPath("output", "folder for the run's files, from the current one [ravelctl-<time> here]", "\"first\"",
                     options(&RunOptions::output)),
          Flag("overwrite", "replace the run that the output folder holds", options(&RunOptions::overwrite)),
          Path("log_config", "file of log4cplus properties [warnings to standard error]", "\"log.properties\"",
               options(&RunOptions::log_config)),
          Flag("quiet", "print nothing but errors", options(&RunOptions::quiet))}},
        {"record",
         "What is recorded.",
         {Recorded(),
          Integer("decimation", "one in so many cycles", 1, MOST,
                  [](RunOptions& o) -> int& { return o.record.decimation; }),
          OptionalNumber("last", "s; keep only the last seconds", "10.0", {0.001, 1.0e6, "s"},
                         [](RunOptions& o) -> std::optional<double>& { return o.record.last_s; })}},
        {"play",
         "Recorded frames in place of the simulated sensors.",
         {Path("es", "edge-sensor frames", "\"first/es.fits\"",
               [](RunOptions& o) -> std::filesystem::path& { return o.play.es; }),
          Path("pact", "actuator frames", "\"first/pact.fits\"",
               [](RunOptions& o) -> std::filesystem::path& { return o.play.pact; })}},
        {"inject",
         "Samples that are added to the references once these have been led to 0.",
         {Path("file", "um, one row per sample, one column per mode", "\"chirp.fits\"",
               [](RunOptions& o) -> std::filesystem::path& { return o.inject.file; }),
          Integer("decimation", "cycles that each sample lasts", 1, MOST,
                  [](RunOptions& o) -> int& { return o.inject.decimation; }),
          Flag("loop", "begin again after the last sample", [](RunOptions& o) -> bool& { return o.inject.loop; })}},
        MakePlacementSection(),
        MakeQualifySection(),
        MakeTuneSection(),
    };
}

/// A key that goes to the tasks as it is.
Entry LibraryKey(const char* key, const char* comment, const char* example, int low, const std::string& name)
{
    return {key, comment, example,
            [low, name](TomlTable& table, const char* short_name, RunArguments& arguments) {
                if (const auto value = table.GetInteger(short_name, low, std::numeric_limits<int>::max())) {
                    arguments.options.cfg[name] = std::to_string(*value);
                }
            },
            [name](const RunOptions& options) {
                const auto found = options.cfg.find(name);
                return found == options.cfg.end() ? std::string() : found->second;
            }};
}

/// The library's own keys.
std::vector<Section> MakeLibrarySections()
{
    return {{"cfg.task_edc",
             "Sizes of the control tasks, under the library's own names.",
             {FixedSize("num_pact", "position actuators", mirrorsim::NUM_PACT),
              FixedSize("num_es", "edge-sensor slots", mirrorsim::NUM_ES), SliceSize()}},
            {"cfg.task_sgemv",
             "The matrix-vector task, with which ravelctl qualify CONFIG times a machine; a run does not use it.",
             {LibraryKey("num_rows", "rows of the matrix", "600", 1, ravelcore::KEY_TASK_SGEMV_NUM_ROWS),
              LibraryKey("num_cols", "columns of the matrix", "4788", 1, ravelcore::KEY_TASK_SGEMV_NUM_COLS),
              LibraryKey("numa_node", "NUMA node of its memory; -1 for any", "0", -1,
                         ravelcore::KEY_TASK_SGEMV_NUMA_NODE)}}};
}

/// The option of a command that says what a key says; the full name of a key for which there is none.
std::string OptionOf(const std::string& section, const std::string& key)
{
    std::string full = section + "." + key;
    static const std::map<std::string, std::string> ODD_ONES = {{"run.tones", "--tone"},
                                                                {"record.what", "--record"},
                                                                {"inject.file", "--inject"},
                                                                {"cfg.task_edc.slice_size", "--workers"},
                                                                {ravelcore::KEY_TASK_SGEMV_NUM_ROWS, "--rows"},
                                                                {ravelcore::KEY_TASK_SGEMV_NUM_COLS, "--cols"}};
    const auto found = ODD_ONES.find(full);
    if (found != ODD_ONES.end()) {
        return found->second;
    }
    if (section.starts_with("cfg.")) {
        return full;
    }
    const bool is_named_alone = section == "run" || section == "placement";
    std::string option = (is_named_alone ? "--" : "--" + section + "-") + key;
    std::replace(option.begin(), option.end(), '_', '-');
    return option;
}

TomlTable::KnownKeys ListKeys()
{
    TomlTable::KnownKeys known;
    for (const std::vector<Section>& sections : {MakeRunSections(), MakeLibrarySections()}) {
        for (const Section& section : sections) {
            for (const Entry& entry : section.entries) {
                known.emplace_back(section.name, entry.key);
            }
        }
    }
    return known;
}

void ReadSection(TomlTable table, const Section& section, const TomlTable::KnownKeys& known, RunArguments& arguments)
{
    for (const Entry& entry : section.entries) {
        entry.read(table, entry.key, arguments);
        if (table.Has(entry.key)) {
            arguments.options.places.Set(OptionOf(section.name, entry.key), table.Locate(entry.key));
        }
    }
    table.RefuseUnknownKeys(known);
}

std::string FormatSection(const Section& section, const RunOptions& options)
{
    std::string text = fmt::format("\n# {}\n[{}]\n", section.comment, section.name);
    for (const Entry& entry : section.entries) {
        const std::string value = entry.write(options);
        const std::string meant = entry.meant ? entry.meant(options) : entry.example;
        const std::string line =
            value.empty() ? fmt::format("# {} = {}", entry.key, meant) : fmt::format("{} = {}", entry.key, value);
        text += fmt::format("{:<32}  # {}\n", line, entry.comment);
    }
    return text;
}

}  // namespace

void LoadConfig(const std::filesystem::path& file, RunArguments& arguments)
{
    TomlTable root = TomlTable::Open(file);
    const TomlTable::KnownKeys known = ListKeys();
    for (const Section& section : MakeRunSections()) {
        if (const std::optional<TomlTable> table = root.GetTable(section.name)) {
            ReadSection(*table, section, known, arguments);
        }
    }
    if (std::optional<TomlTable> cfg = root.GetTable("cfg")) {
        for (const Section& section : MakeLibrarySections()) {
            const std::string name = section.name;
            if (const std::optional<TomlTable> table = cfg->GetTable(name.substr(name.find('.') + 1))) {
                ReadSection(*table, section, known, arguments);
            }
        }
        cfg->RefuseUnknownKeys(known);
    }
    root.RefuseUnknownKeys(known);
}

std::string FormatConfig(const RunOptions& options)
{
    std::string text =
        "# Options of ravelctl run. Lines that are commented out are not given; [..] is what is meant then.\n"
        "# Names of files are seen from the folder of this file, those of output folders from the current one.\n";
    for (const std::vector<Section>& sections : {MakeRunSections(), MakeLibrarySections()}) {
        for (const Section& section : sections) {
            text += FormatSection(section, options);
        }
    }
    return text;
}

}  // namespace lumo::ravelctl
