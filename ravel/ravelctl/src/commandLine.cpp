#include "commandLine.hpp"

#include "bashCompletion.hpp"
#include "commandOutline.hpp"
#include "doctorArguments.hpp"
#include "error.hpp"
#include "helpText.hpp"
#include "inputPlace.hpp"
#include "inspectArguments.hpp"
#include "manPage.hpp"
#include "modulationArguments.hpp"
#include "parseRefusal.hpp"
#include "programNotes.hpp"
#include "qualifyArguments.hpp"
#include "replayArguments.hpp"
#include "runArguments.hpp"
#include "runConfig.hpp"
#include "tuneArguments.hpp"
#include "version.hpp"
#include "workerGroup.hpp"

#include <CLI/CLI.hpp>
#include <fmt/core.h>

#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace lumo::ravelctl {

namespace {

std::string VersionText()
{
    return fmt::format("ravelctl {}\n{}", VERSION, DescribeBlas());
}

std::string ProgramFooter()
{
    std::string text = "Examples, a night's walk:\n";
    for (const char* example : NIGHT_EXAMPLES) {
        text += fmt::format("  {}\n", example);
    }
    text += "\nExit status:\n";
    for (const ExitStatus& status : EXIT_STATUSES) {
        text += FormatNote(std::to_string(status.status), status.meaning, 7);
    }
    text += "\nEnvironment:\n";
    for (const ProgramNote& variable : ENVIRONMENT_VARIABLES) {
        text += FormatNote(variable.name, variable.meaning, 24);
    }
    return text + "\nThe manual page, ravelctl(1), has all of this and the files: man ravelctl";
}

void CheckPrinted(std::ostream& out)
{
    if (!out.flush()) {
        throw RunError("cannot write to standard output; free some space or send it elsewhere");
    }
}

/// The words for the parser, the last one first, as it takes them. The name of a file, such as [a], it would take for a
/// list of names.
std::vector<std::string> ReverseWords(int argc, const char* const* argv)
{
    const bool are_files = argc > 1 && std::string(argv[1]) == "inspect";
    std::vector<std::string> words;
    for (int i = argc - 1; i > 0; --i) {
        const std::string word = argv[i];
        const bool like_a_list = are_files && word.starts_with('[') && word.ends_with(']');
        words.push_back(like_a_list ? "./" + word : word);
    }
    return words;
}

/// A parser that knows every command. It writes into what stands here; `run`, `qualify` and `tune` are what is meant
/// where a run, a qualification or a tuning is told nothing.
class Parser
{
public:
    explicit Parser(RunArguments run = {}, QualifyOptions qualify = {}, TuneOptions tune = {})
        : m_run(std::move(run)), m_tune(std::move(tune)), m_qualify(std::move(qualify))
    {
        m_app.set_help_flag("-h,--help", "Print this help and leave");
        m_app.set_version_flag("--version", VersionText, "Print version and BLAS and leave");
        AddPrintFlag("--man-page", "Print the manual page, for man -l -, and leave",
                     [](const ProgramOutline& program) { return FormatManPage(program, VERSION); });
        AddPrintFlag("--bash-completion", "Print the completion, for bash to source, and leave", FormatBashCompletion);
        m_app.formatter_fn([](const CLI::App* app, const std::string& /*name*/, CLI::AppFormatMode /*mode*/) {
            return app->get_parent() == nullptr ? FormatHelp(OutlineProgram(*app)) : FormatHelp(OutlineCommand(*app));
        });
        m_app.footer(ProgramFooter());
        m_app.require_subcommand(1);
        Add(
            "run", "Run the closed loop on a simulated mirror and save what happened",
            [this](CLI::App& command) { AddRunOptions(command, m_run); }, [this] { return ReadRunOptions(m_run); });
        Add(
            "config", "Print a run's options as a file, with the defaults of what is not given",
            [this](CLI::App& command) {
                AddRunOptions(command, m_run);
                command.footer(
                    FormatFooter("The options are those of a run; what they say stands in the file. Nothing is run.",
                                 {"ravelctl config > night.toml", "ravelctl config --modes 300 --rate 250 > slow.toml",
                                  "ravelctl config night.toml --seed 2 > other.toml"},
                                 "the file was printed, and can be run", "it could not be printed"));
            },
            [this] { return ReadRunOptions(m_run); });
        Add(
            "make-modulation", "Make a file of signals to inject into the modes' references",
            [this](CLI::App& command) { AddModulationOptions(command, m_modulation); },
            [this] { return ReadModulationOptions(m_modulation); });
        Add(
            "inspect", "Say what recordings, modulations and matrices hold",
            [this](CLI::App& command) { AddInspectOptions(command, m_inspect); },
            [this] { return ReadInspectOptions(m_inspect); });
        Add(
            "replay", "Compute a run's control channels once more, or with other gains",
            [this](CLI::App& command) { AddReplayOptions(command, m_replay); },
            [this] { return ReadReplayOptions(m_replay); });
        Add(
            "tune", "Propose gains that leave less of what a run recorded",
            [this](CLI::App& command) { AddTuneOptions(command, m_tune); }, [this] { return ReadTuneOptions(m_tune); });
        Add(
            "qualify", "Load and time the processors, as the loop would",
            [this](CLI::App& command) { AddQualifyOptions(command, m_qualify); },
            [this] { return ReadQualifyOptions(m_qualify); });
        Add(
            "doctor", "List what this machine has for real-time work, and what would help",
            [this](CLI::App& command) { AddDoctorOptions(command, m_doctor); }, [this] { return m_doctor; });
    }

    /// Failure: CLI::Success for help and version, InputError.
    void Parse(int argc, const char* const* argv)
    {
        try {
            m_app.parse(ReverseWords(argc, argv));
        } catch (const CLI::Success&) {
            throw;
        } catch (const CLI::ParseError& error) {
            throw InputError(ExplainRefusal(m_app, error));
        }
        ForgetPlaces();
    }

    /// Prints help or version, whichever was asked for.
    void Print(const CLI::Success& request, std::ostream& out) { m_app.exit(request, out, out); }

    ProgramOutline Outline() const { return OutlineProgram(m_app); }

    bool IsAbout(const std::string& command) const { return m_app.got_subcommand(command); }

    /// The file of a run's options that the command is given.
    const std::filesystem::path& GetConfig() const
    {
        if (IsAbout("tune")) {
            return m_tune.config;
        }
        return IsAbout("qualify") ? m_qualify.config : m_run.config;
    }

    /// The options of the command that was parsed.
    Command Read() const { return m_reads.at(m_app.get_subcommands().front()->get_name())(); }

private:
    /// What the command line says is not said by the file any more.
    void ForgetPlaces()
    {
        for (const CLI::Option* option : m_app.get_subcommands().front()->get_options()) {
            for (const std::string& name : option->get_lnames()) {
                if (option->count() > 0) {
                    m_run.options.places.Forget("--" + name);
                    m_qualify.places.Forget("--" + name);
                    m_tune.places.Forget("--" + name);
                }
            }
        }
    }

    /// A flag that prints and leaves, as that of the version does.
    void AddPrintFlag(const std::string& name, const std::string& description,
                      std::function<std::string(const ProgramOutline&)> format)
    {
        m_app.add_flag_callback(
            name, [this, format = std::move(format)] { throw CLI::CallForVersion(format(OutlineProgram(m_app)), 0); },
            description);
    }

    void Add(const std::string& name, const std::string& description, const std::function<void(CLI::App&)>& add_options,
             std::function<Command()> read)
    {
        add_options(*m_app.add_subcommand(name, description));
        m_reads[name] = std::move(read);
    }

    CLI::App m_app{PROGRAM_DESCRIPTION, "ravelctl"};
    std::map<std::string, std::function<Command()>> m_reads;
    RunArguments m_run;
    ModulationArguments m_modulation;
    InspectArguments m_inspect;
    ReplayArguments m_replay;
    TuneOptions m_tune;
    QualifyOptions m_qualify;
    DoctorOptions m_doctor;
};

}  // namespace

ProgramOutline OutlineCommandLine()
{
    return Parser().Outline();
}

Command ParseCommandLine(int argc, const char* const* argv, std::ostream& out)
{
    Parser parser;
    try {
        parser.Parse(argc, argv);
    } catch (const CLI::Success& request) {
        parser.Print(request, out);
        CheckPrinted(out);
        return EXIT_OK;
    }
    if (parser.GetConfig().empty() && !parser.IsAbout("config")) {
        return parser.Read();
    }
    RunArguments from_file;
    QualifyOptions qualify_for;
    TuneOptions tune_as;
    if (!parser.GetConfig().empty()) {
        LoadConfig(parser.GetConfig(), from_file);
    }
    if (parser.IsAbout("qualify")) {
        QualifyFor(from_file, qualify_for);
    }
    TuneAs(from_file.options, tune_as);
    Parser over_file(from_file, qualify_for, tune_as);
    over_file.Parse(argc, argv);  // once more, over what the file says
    Command command = over_file.Read();
    if (parser.IsAbout("config")) {
        RunOptions& options = std::get<RunOptions>(command);
        PlanRun(options);  // what it prints can be run
        for (std::filesystem::path* const path : ListInputs(options)) {
            *path = path->empty() ? *path : LocateInput(*path);  // wherever what it prints is put
        }
        out << FormatConfig(options);
        CheckPrinted(out);
        return EXIT_OK;
    }
    return command;
}

}  // namespace lumo::ravelctl
