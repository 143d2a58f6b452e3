#include "commandLine.hpp"
#include "error.hpp"
#include "helpText.hpp"
#include "programNotes.hpp"
#include "support/testFolder.hpp"
#include "support/textFile.hpp"
#include "support/thrown.hpp"
#include "version.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <iterator>
#include <map>
#include <sstream>

namespace lumo::ravelctl {
namespace {

using testing::HasSubstr;

Command Parse(const std::vector<std::string>& arguments, std::ostream& out)
{
    std::vector<const char*> argv = {"ravelctl"};
    for (const std::string& argument : arguments) {
        argv.push_back(argument.c_str());
    }
    return ParseCommandLine(static_cast<int>(argv.size()), argv.data(), out);
}

template <typename Options>
Options ParseAs(const std::vector<std::string>& arguments)
{
    std::ostringstream out;
    return std::get<Options>(Parse(arguments, out));
}

RunOptions ParseRun(std::vector<std::string> arguments)
{
    arguments.insert(arguments.begin(), "run");
    std::ostringstream out;
    const RunOptions options = std::get<RunOptions>(Parse(arguments, out));
    EXPECT_EQ(out.str(), "");
    return options;
}

void ExpectDefaults(const PlacementOptions& options)
{
    for (const PlaceChoice* choice : {&options.cpus, &options.cycle_cpu, &options.numa_node}) {
        EXPECT_EQ(choice->kind, PlaceChoice::Kind::Auto) << choice->name;
    }
    EXPECT_FALSE(options.priority || options.cycle_priority);
    EXPECT_TRUE(options.lock_memory && options.huge_pages);
}

TEST(CommandLineTest, EveryOptionOfAPlacementReachesItsPlace)
{
    const PlacementOptions options = ParseRun({"--cpus", "3,1", "--cycle-cpu", "0", "--numa-node", "none", "--priority",
                                               "5", "--cycle-priority", "7", "--no-lock-memory", "--no-huge-pages"})
                                         .placement;
    EXPECT_EQ(FormatPlaceChoice(options.cpus), "3,1");
    EXPECT_EQ(FormatPlaceChoice(options.cycle_cpu), "0");
    EXPECT_EQ(FormatPlaceChoice(options.numa_node), "none");
    EXPECT_EQ(options.priority, 5);
    EXPECT_EQ(options.cycle_priority, 7);
    EXPECT_FALSE(options.lock_memory || options.huge_pages);
    ExpectDefaults(ParseRun({"--cpus", "auto", "--lock-memory", "--huge-pages"}).placement);
}

TEST(CommandLineTest, WhatTheFileSaysAboutAPlaceIsOverridden)
{
    const test::TestFolder folder;
    test::WriteBytes(folder / "night.toml", "[placement]\ncpus = 60000\ncycle_cpu = 3\nlock_memory = false\n");
    const std::string file = (folder / "night.toml").string();
    const PlacementOptions options = ParseRun({file, "--cpus", "none", "--lock-memory"}).placement;
    EXPECT_EQ(FormatPlaceChoice(options.cpus), "none");
    EXPECT_EQ(options.cpus.name, "--cpus");
    EXPECT_EQ(options.cycle_cpu.name, file + ":3:13: cycle_cpu");
    EXPECT_TRUE(options.lock_memory);
}

TEST(CommandLineTest, RunAloneMeansTheDefaults)
{
    const RunOptions options = ParseRun({});
    EXPECT_EQ(options.modes, 600);
    EXPECT_EQ(options.rate_hz, 500.0);
    EXPECT_FALSE(options.duration_s) << "what is played may say how long the run is";
    EXPECT_EQ(options.workers, 2);
    EXPECT_EQ(options.seed, 1U);
    EXPECT_FALSE(options.open_loop_s);
    EXPECT_FALSE(options.as_fast_as_possible || options.quiet || options.overwrite);
    EXPECT_TRUE(options.output.empty() && options.matrices.empty() && options.log_config.empty());
    EXPECT_TRUE(options.tones.empty());
    EXPECT_TRUE(options.record.modes);
    EXPECT_FALSE(options.record.es || options.record.pact || options.record.last_s);
    EXPECT_EQ(options.record.decimation, 1);
    EXPECT_TRUE(options.play.es.empty() && options.play.pact.empty());
    EXPECT_TRUE(options.inject.file.empty());
    EXPECT_EQ(options.inject.decimation, 1);
    EXPECT_FALSE(options.inject.loop);
    EXPECT_TRUE(options.script.empty() && options.gains.empty());
    ExpectDefaults(options.placement);
}

TEST(CommandLineTest, OneModeGetsOneWorkerUnlessToldOtherwise)
{
    EXPECT_EQ(ParseRun({"--modes", "1"}).workers, 1);
    EXPECT_EQ(ParseRun({"--modes", "1", "--workers", "3"}).workers, 3);
}

TEST(CommandLineTest, EveryOptionReachesItsPlace)
{
    const RunOptions options = ParseRun({"--modes",
                                         "300",
                                         "--rate",
                                         "250",
                                         "--duration",
                                         "5.5",
                                         "--workers",
                                         "2",
                                         "--seed",
                                         "18446744073709551615",
                                         "--output",
                                         "a b",
                                         "--matrices",
                                         "m",
                                         "--open-loop",
                                         "0",
                                         "--overwrite",
                                         "--as-fast-as-possible",
                                         "--quiet",
                                         "--log-config",
                                         "l"});
    EXPECT_EQ(options.modes, 300);
    EXPECT_EQ(options.rate_hz, 250.0);
    EXPECT_EQ(options.duration_s, 5.5);
    EXPECT_EQ(options.workers, 2);
    EXPECT_EQ(options.seed, 18446744073709551615U);
    EXPECT_EQ(options.output, "a b");
    EXPECT_EQ(options.matrices, "m");
    EXPECT_EQ(options.log_config, "l");
    EXPECT_EQ(options.open_loop_s.value_or(-1.0), 0.0);
    EXPECT_TRUE(options.as_fast_as_possible && options.quiet && options.overwrite);
}

TEST(CommandLineTest, TonesAreModeFrequencyAndAmplitudeInNanometres)
{
    const RunOptions options = ParseRun({"--tone", "5:2.5:100", "--tone", "7:1e1:0.5"});
    ASSERT_EQ(options.tones.size(), 2U);
    EXPECT_EQ(options.tones[0].mode, 5);
    EXPECT_EQ(options.tones[0].frequency_hz, 2.5);
    EXPECT_DOUBLE_EQ(options.tones[0].amplitude_um, 0.1);
    EXPECT_EQ(options.tones[1].mode, 7);
    EXPECT_EQ(options.tones[1].frequency_hz, 10.0);
    EXPECT_DOUBLE_EQ(options.tones[1].amplitude_um, 0.0005);
}

TEST(CommandLineTest, EveryOptionOfWhatGoesInAndComesOutReachesItsPlace)
{
    const RunOptions options =
        ParseRun({"--record", "es", "--record-decimation", "7", "--record-last", "2.5", "--play-es", "e 1.fits",
                  "--play-pact", "p.fits", "--inject", "i.fits", "--inject-decimation", "3", "--inject-loop",
                  "--script", "s.toml", "--gains", "g.fits"});
    EXPECT_TRUE(options.record.es);
    EXPECT_FALSE(options.record.modes || options.record.pact);
    EXPECT_EQ(options.record.decimation, 7);
    EXPECT_EQ(options.record.last_s, 2.5);
    EXPECT_EQ(options.play.es, "e 1.fits");
    EXPECT_EQ(options.play.pact, "p.fits");
    EXPECT_EQ(options.inject.file, "i.fits");
    EXPECT_EQ(options.inject.decimation, 3);
    EXPECT_TRUE(options.inject.loop);
    EXPECT_EQ(options.script, "s.toml");
    EXPECT_EQ(options.gains, "g.fits");
}

TEST(CommandLineTest, ExactlyWhatIsNamedIsRecordedHoweverItIsSeparated)
{
    struct Case
    {
        std::vector<std::string> arguments;
        bool modes;
        bool es;
        bool pact;
    };
    for (const Case& c :
         {Case{{"--record", "modes"}, true, false, false}, Case{{"--record", "pact"}, false, false, true},
          Case{{"--record", "modes,es,pact"}, true, true, true}, Case{{"--record", "pact,es"}, false, true, true},
          Case{{"--record", "es", "pact"}, false, true, true},
          Case{{"--record=es", "--record", "modes"}, true, true, false},
          Case{{"--record", "es,es"}, false, true, false}}) {
        const RecordOptions record = ParseRun(c.arguments).record;
        EXPECT_EQ(record.modes, c.modes) << testing::PrintToString(c.arguments);
        EXPECT_EQ(record.es, c.es) << testing::PrintToString(c.arguments);
        EXPECT_EQ(record.pact, c.pact) << testing::PrintToString(c.arguments);
    }
}

TEST(CommandLineTest, TheLastSecondsAreTenWhereNoNumberIsGiven)
{
    EXPECT_EQ(ParseRun({"--record-last"}).record.last_s, 10.0);
    EXPECT_EQ(ParseRun({"--record-last", "--quiet"}).record.last_s, 10.0);
    EXPECT_TRUE(ParseRun({"--record-last", "--quiet"}).quiet);
    EXPECT_EQ(ParseRun({"--record-last", "0.5", "--quiet"}).record.last_s, 0.5);
    EXPECT_EQ(ParseRun({"--record-last=1e2"}).record.last_s, 100.0);
    EXPECT_EQ(ParseRun({"--record-last", "0"}).record.last_s, 0.0) << "for the plan to refuse";
    EXPECT_EQ(ParseRun({"--record-last=-3"}).record.last_s, -3.0) << "for the plan to refuse";
}

TEST(CommandLineTest, OptionsOverrideTheFileAndTheFileTheDefaults)
{
    const test::TestFolder folder;
    const std::string file = (folder / "night.toml").string();
    test::WriteBytes(file,
                     "[run]\nmodes = 30\nworkers = 3\nseed = 5\ntones = [\"1:2:3\"]\n[record]\nwhat = [\"es\"]\n");
    const RunOptions from_file = ParseRun({file});
    EXPECT_EQ(from_file.modes, 30);
    EXPECT_EQ(from_file.workers, 3);
    EXPECT_EQ(from_file.seed, 5U);
    EXPECT_EQ(from_file.rate_hz, 500.0);
    EXPECT_EQ(from_file.tones.size(), 1U);
    EXPECT_EQ(NameRecorded(from_file.record), std::vector<std::string>{"es"});
    const RunOptions overridden =
        ParseRun({"--modes", "40", file, "--workers", "2", "--tone", "4:5:6", "--tone", "7:8:9", "--record", "pact"});
    EXPECT_EQ(overridden.modes, 40);
    EXPECT_EQ(overridden.workers, 2);
    EXPECT_EQ(overridden.seed, 5U);
    ASSERT_EQ(overridden.tones.size(), 2U);
    EXPECT_EQ(overridden.tones[0].mode, 4);
    EXPECT_EQ(NameRecorded(overridden.record), std::vector<std::string>{"pact"});
}

TEST(CommandLineTest, APrintedConfigurationNamesItsInputsWhereverItIsPut)
{
    std::ostringstream out;
    Parse({"config", "--gains", "a/g.fits", "--script", "/s.toml", "--output", "first"}, out);
    const std::string here = std::filesystem::current_path().string();
    EXPECT_THAT(out.str(), HasSubstr("\ngains = \"" + here + "/a/g.fits\" "));
    EXPECT_THAT(out.str(), HasSubstr("\nscript = \"/s.toml\" "));
    EXPECT_THAT(out.str(), HasSubstr("\n# matrices = "));
    EXPECT_THAT(out.str(), HasSubstr("\noutput = \"first\" "));
}

TEST(CommandLineTest, NoneTakesBackWhatTheFileGives)
{
    const test::TestFolder folder;
    const std::string file = (folder / "night.toml").string();
    test::WriteBytes(file, "[run]\nduration = 3.0\nopen_loop = 0.5\ntones = [\"1:2:3\"]\n[record]\nlast = 2.0\n");
    const RunOptions options =
        ParseRun({file, "--duration", "none", "--open-loop", "none", "--tone", "none", "--record-last", "none"});
    EXPECT_EQ(options.duration_s, std::nullopt);
    EXPECT_EQ(options.open_loop_s, std::nullopt);
    EXPECT_EQ(options.record.last_s, std::nullopt);
    EXPECT_TRUE(options.tones.empty());
}

TEST(CommandLineTest, WhatTheCommandLineSaysIsNoLongerSaidByTheFile)
{
    const test::TestFolder folder;
    const std::string file = (folder / "night.toml").string();
    test::WriteBytes(file, "[run]\nopen_loop = 5.0\nduration = 30.0\ntones = [\"1:2:3\"]\n");
    const OptionPlaces places = ParseRun({file, "--duration", "2", "--tone", "4:5:6"}).places;
    EXPECT_EQ(places.Name("--open-loop"), file + ":2:13: open_loop");
    EXPECT_EQ(places.Name("--duration"), "--duration");
    EXPECT_EQ(places.Name("--tone"), "--tone");
    const auto qualify = ParseAs<QualifyOptions>({"qualify", file, "--rate", "100"});
    EXPECT_EQ(qualify.places.Name("--rate"), "--rate");
}

TEST(CommandLineTest, TheSizeOfTheSlicesIsForTheModesOfTheCommandLineAndItsWorkersComeFirst)
{
    const test::TestFolder folder;
    const std::string file = (folder / "night.toml").string();
    test::WriteBytes(file, "[run]\nmodes = 600\n[cfg.task_edc]\nslice_size = 300\n");
    EXPECT_EQ(ParseRun({file}).workers, 2);
    EXPECT_EQ(ParseRun({file, "--modes", "1200"}).workers, 4);
    EXPECT_EQ(ParseRun({file, "--workers", "3"}).workers, 3);
    const auto qualify = ParseAs<QualifyOptions>({"qualify", file});
    EXPECT_EQ(qualify.workers, 2);
    EXPECT_EQ(qualify.rows, 300);

    test::WriteBytes(file, "[run]\nmodes = 600\n[cfg.task_edc]\nslice_size = 250\n");
    EXPECT_EQ(ParseRun({file, "--modes", "1000"}).workers, 4) << "what does not fit the file's modes";
    EXPECT_EQ(ParseRun({file, "--workers", "3"}).workers, 3);
}

ModulationOptions ParseModulation(std::vector<std::string> arguments)
{
    arguments.insert(arguments.begin(), "make-modulation");
    std::ostringstream out;
    const ModulationOptions options = std::get<ModulationOptions>(Parse(arguments, out));
    EXPECT_EQ(out.str(), "");
    return options;
}

TEST(CommandLineTest, AModulationNeedsAShapeAndAFileAndHasDefaultsForTheRest)
{
    const ModulationOptions options = ParseModulation({"step", "--output", "f"});
    const ModulationOptions defaults;
    EXPECT_EQ(options.shape, ModulationShape::Step);
    EXPECT_EQ(options.output, "f");
    EXPECT_EQ(options.modes, defaults.modes);
    EXPECT_EQ(options.on, defaults.on);
    EXPECT_EQ(options.amplitude_um, defaults.amplitude_um);
    EXPECT_EQ(options.rate_hz, defaults.rate_hz);
    EXPECT_EQ(options.duration_s, defaults.duration_s);
    EXPECT_EQ(options.start_s, defaults.start_s);
    EXPECT_FALSE(options.frequency_hz || options.to_hz || options.seed || options.overwrite);
}

TEST(CommandLineTest, EveryOptionOfAModulationReachesItsPlace)
{
    const ModulationOptions options = ParseModulation(
        {"--output",   "a b",         "--modes", "20",    "--on",       "0,3,10-19", "--amplitude",
         "-0.5",       "--rate",      "250",     "chirp", "--duration", "5.5",       "--start",
         "1.5",        "--frequency", "2",       "--to",  "20",         "--seed",    "18446744073709551615",
         "--overwrite"});
    EXPECT_EQ(options.shape, ModulationShape::Chirp);
    EXPECT_EQ(options.output, "a b");
    EXPECT_EQ(options.modes, 20);
    EXPECT_EQ(options.on, "0,3,10-19");
    EXPECT_EQ(options.amplitude_um, -0.5);
    EXPECT_EQ(options.rate_hz, 250.0);
    EXPECT_EQ(options.duration_s, 5.5);
    EXPECT_EQ(options.start_s, 1.5);
    EXPECT_EQ(options.frequency_hz, 2.0);
    EXPECT_EQ(options.to_hz, 20.0);
    EXPECT_EQ(options.seed, 18446744073709551615U);
    EXPECT_TRUE(options.overwrite);
}

InspectOptions ParseInspect(std::vector<std::string> arguments)
{
    arguments.insert(arguments.begin(), "inspect");
    std::ostringstream out;
    const InspectOptions options = std::get<InspectOptions>(Parse(arguments, out));
    EXPECT_EQ(out.str(), "");
    return options;
}

TEST(CommandLineTest, InspectTakesOneFileOrManyAndShowsAllOfThem)
{
    const InspectOptions options = ParseInspect({"a.fits"});
    EXPECT_EQ(options.files, std::vector<std::filesystem::path>{"a.fits"});
    EXPECT_FALSE(options.statistics || options.csv || options.json);
    EXPECT_EQ(options.columns, "");
    EXPECT_EQ(options.rows.begin, 0);
    EXPECT_FALSE(options.rows.end);
    EXPECT_EQ(ParseInspect({"b", "a", "--json", "c d"}).files, (std::vector<std::filesystem::path>{"b", "a", "c d"}));
    EXPECT_EQ(ParseInspect({"--", "--json"}).files, std::vector<std::filesystem::path>{"--json"});
}

TEST(CommandLineTest, BracketsInTheNameOfAFileToInspectMeanNothing)
{
    EXPECT_EQ(ParseInspect({"a[1].fits", "[a,b]", "[a]"}).files,
              (std::vector<std::filesystem::path>{"a[1].fits", "./[a,b]", "./[a]"}));
}

TEST(CommandLineTest, EveryOptionOfInspectReachesItsPlace)
{
    const InspectOptions statistics = ParseInspect({"--statistics", "--columns", "0,3,10-19", "--json", "f"});
    EXPECT_TRUE(statistics.statistics && statistics.json);
    EXPECT_FALSE(statistics.csv);
    EXPECT_EQ(statistics.columns, "0,3,10-19");
    EXPECT_EQ(statistics.files, std::vector<std::filesystem::path>{"f"});
    const InspectOptions csv = ParseInspect({"f", "--csv", "--rows", "10:2000000000000", "--columns=5"});
    EXPECT_TRUE(csv.csv);
    EXPECT_FALSE(csv.statistics || csv.json);
    EXPECT_EQ(csv.columns, "5");
    EXPECT_EQ(csv.rows.begin, 10);
    EXPECT_EQ(csv.rows.end, 2000000000000);
}

TEST(CommandLineTest, EitherEndOfTheRowsMayBeLeftOut)
{
    EXPECT_EQ(ParseInspect({"f", "--csv", "--rows", ":7"}).rows.begin, 0);
    EXPECT_EQ(ParseInspect({"f", "--csv", "--rows", ":7"}).rows.end, 7);
    EXPECT_EQ(ParseInspect({"f", "--csv", "--rows", "7:"}).rows.begin, 7);
    EXPECT_FALSE(ParseInspect({"f", "--csv", "--rows", "7:"}).rows.end);
}

std::string Print(const std::vector<std::string>& arguments)
{
    std::ostringstream out;
    EXPECT_EQ(std::get<int>(Parse(arguments, out)), EXIT_OK);
    return out.str();
}

TEST(CommandLineTest, VersionIsNoErrorAndNamesTheBlas)
{
    const std::string version = Print({"--version"});
    EXPECT_THAT(version, HasSubstr(std::string("ravelctl ") + VERSION));
    EXPECT_THAT(version, HasSubstr("OpenBLAS"));
}

TEST(CommandLineTest, TheHelpHasALineForEachCommandAWalkTheStatusesAndTheEnvironment)
{
    const std::string help = Print({"--help"});
    for (const CommandOutline& command : OutlineCommandLine().commands) {
        EXPECT_THAT(help, HasSubstr("\n  " + command.name + " "));
        EXPECT_THAT(help, HasSubstr(command.description.substr(0, 20)));
    }
    for (const char* example : NIGHT_EXAMPLES) {
        EXPECT_THAT(help, HasSubstr(std::string("\n  ") + example + "\n"));
    }
    for (const ExitStatus& status : EXIT_STATUSES) {
        EXPECT_THAT(help, testing::ContainsRegex("\n  " + std::to_string(status.status) + " +[a-zC]"));
    }
    for (const ProgramNote& variable : ENVIRONMENT_VARIABLES) {
        EXPECT_THAT(help, HasSubstr(std::string("\n  ") + variable.name + " "));
    }
    EXPECT_THAT(help, HasSubstr("man ravelctl"));
}

TEST(CommandLineTest, TheHelpOfEachCommandHasItsOptionsTwoExamplesAndTheStatuses)
{
    for (const CommandOutline& command : OutlineCommandLine().commands) {
        const std::string help = Print({command.name, "--help"});
        EXPECT_THAT(help, HasSubstr("\nUsage: ravelctl " + command.name + " "));
        for (const OptionOutline& option : command.options) {
            EXPECT_THAT(help, HasSubstr("\n  " + FormatName(option))) << command.name;
            EXPECT_FALSE(option.description.empty()) << command.name << " " << option.names.back();
        }
        const std::string example = "\n  ravelctl " + command.name;
        const std::size_t first = help.find(example);
        ASSERT_NE(first, std::string::npos) << command.name;
        EXPECT_NE(help.find(example, first + 1), std::string::npos) << command.name << ": one example is not enough";
        for (const ExitStatus& status : EXIT_STATUSES) {
            EXPECT_THAT(help, testing::ContainsRegex("Exit status:.*[ \n]" + std::to_string(status.status) + "[ \n]"))
                << command.name;
        }
    }
}

TEST(CommandLineTest, EachExampleOfTheHelpIsUnderstood)
{
    int tried = 0;
    for (const CommandOutline& command : OutlineCommandLine().commands) {
        std::istringstream lines(command.footer);
        for (std::string line; std::getline(lines, line);) {
            if (!line.starts_with("  ravelctl ") || line.find("night.toml") != std::string::npos ||
                line.find("/config.toml") != std::string::npos) {  // files that are not there
                continue;
            }
            std::istringstream words(line.substr(std::string("  ravelctl ").size(), line.find_first_of("|>") - 11));
            std::ostringstream out;
            const std::vector<std::string> arguments{std::istream_iterator<std::string>(words), {}};
            EXPECT_NO_THROW(Parse(arguments, out)) << line;
            ++tried;
        }
    }
    EXPECT_GE(tried, 14) << "two of each of seven commands";
}

TEST(CommandLineTest, HelpFitsATerminalOf80Columns)
{
    for (CommandOutline command : OutlineCommandLine().commands) {
        command.footer.clear();  // examples are as long as they are
        std::istringstream lines(FormatHelp(command));
        for (std::string line; std::getline(lines, line);) {
            EXPECT_LE(line.size(), 80U) << line;
        }
    }
}

TEST(CommandLineTest, OptionsOfOneNameMeanOneThingInEveryCommand)
{
    const std::map<std::string, std::string> values = {{"--rate", "HZ"},     {"--duration", "S"}, {"--overwrite", ""},
                                                       {"--quiet", ""},      {"--json", ""},      {"--cpus", "LIST"},
                                                       {"--columns", "LIST"}};
    for (const CommandOutline& command : OutlineCommandLine().commands) {
        for (const OptionOutline& option : command.options) {
            const auto expected = values.find(option.names.back());
            if (expected != values.end()) {
                EXPECT_EQ(option.value, expected->second) << command.name << " " << option.names.back();
            }
            if (option.names.back() == "--output") {
                EXPECT_TRUE(option.kind == ValueKind::File || option.kind == ValueKind::Folder) << command.name;
            }
        }
    }
}

struct BadLine
{
    std::vector<std::string> arguments;
    std::string complaint;  // part of the one line
};

class CommandLineErrorTest : public testing::TestWithParam<BadLine>
{
};

TEST_P(CommandLineErrorTest, IsOneLineThatNamesWhatIsWrong)
{
    std::ostringstream out;
    const std::string line = test::ThrownLine<InputError>([&] { Parse(GetParam().arguments, out); });
    EXPECT_THAT(line, HasSubstr(GetParam().complaint));
    EXPECT_EQ(out.str(), "");
}

INSTANTIATE_TEST_SUITE_P(
    All, CommandLineErrorTest,
    testing::Values(
        BadLine{{}, "expected a command but got none (try: ravelctl --help)"},
        BadLine{{"fly"}, "fly is no command or option of ravelctl (try: ravelctl --help)"},
        BadLine{{"inpsect", "a"}, "inpsect is no command or option of ravelctl; did you mean inspect? (try: "},
        BadLine{{"--versoin"}, "; did you mean --version? (try: "}, BadLine{{"--foo"}, "--foo is no command or option"},
        BadLine{{"run", "--foo"}, "--foo is no option of ravelctl run (try: ravelctl run --help)"},
        BadLine{{"run", "--mdoes=5"},
                "--mdoes is no option of ravelctl run; did you mean --modes? (try: ravelctl run "},
        BadLine{{"run", "extra", "more"}, "run: expected nothing more but got more (try: "},
        BadLine{{"run", "extra"}, "extra"}, BadLine{{"run", "--modes"}, "--modes"},
        BadLine{{"run", "--modes", "x"}, "--modes: expected a whole number but got x (try: "},
        BadLine{{"run", "--modes", "5.5"}, "--modes: expected a whole number but got 5.5"},
        BadLine{{"run", "--modes", "99999999999"}, "--modes: expected a smaller number but got 99999999999"},
        BadLine{{"run", "--modes", "5.0"}, "--modes: expected a whole number but got 5.0"},
        BadLine{{"run", "--modes", "1e5"}, "--modes: expected a whole number but got 1e5"},
        BadLine{{"run", "--modes", "-99999999999"}, "--modes: expected a larger number but got -99999999999"},
        BadLine{{"run", "--rate", "fast"}, "--rate: expected a number but got fast"},
        BadLine{{"run", "--seed", "-1"}, "expected 0 or above but got -1"},
        BadLine{{"run", "--modes", "1", "--modes", "2"}, "--modes"},
        BadLine{{"run", "--duration", "soon"}, "--duration: expected seconds or none but got 'soon'"},
        BadLine{{"run", "--open-loop", "2s"}, "--open-loop: expected seconds or none but got '2s'"},
        BadLine{{"run", "--open-loop", ""}, "--open-loop: expected seconds or none but got ''"},
        BadLine{{"run", "--tone", "none", "--tone", "1:2:3"}, "but got none"},
        BadLine{{"run", "--tone", "5:2"}, "--tone: expected MODE:HZ:NM"},
        BadLine{{"run", "--tone", "5:2:3:4"}, "but got 5:2:3:4"},
        BadLine{{"run", "--tone", "5:2:3nm"}, "but got 5:2:3nm"},
        BadLine{{"run", "--tone", "99999999999:1:1"}, "but got 99999999999:1:1"}));

INSTANTIATE_TEST_SUITE_P(
    WhatGoesInAndComesOut, CommandLineErrorTest,
    testing::Values(
        BadLine{{"run", "--record", "all"}, "--record: expected some of modes, es and pact but got 'all'"},
        BadLine{{"run", "--record", "es,mods"}, "--record: expected some of modes, es and pact but got 'mods'"},
        BadLine{{"run", "--record", "ES"}, "--record: expected some of modes, es and pact but got 'ES'"},
        BadLine{{"run", "--record"}, "--record"}, BadLine{{"run", "--record-decimation"}, "--record-decimation"},
        BadLine{{"run", "--record-decimation", "1.5"}, "--record-decimation: expected a whole number but got 1.5"},
        BadLine{{"run", "--record-decimation", "99999999999"},
                "--record-decimation: expected a smaller number but got "},
        BadLine{{"run", "--record-last", "long"}, "--record-last: expected seconds but got long"},
        BadLine{{"run", "--record-last", "5s"}, "--record-last: expected seconds but got 5s"},
        BadLine{{"run", "--record-last", "1", "2"}, "2"}, BadLine{{"run", "--play-es"}, "--play-es"},
        BadLine{{"run", "--play-pact"}, "--play-pact"}, BadLine{{"run", "--inject"}, "--inject"},
        BadLine{{"run", "--inject-decimation", "x"}, "--inject-decimation: expected a whole number but got x"},
        BadLine{{"run", "--inject-loop", "i.fits"}, "i.fits"}, BadLine{{"run", "--script"}, "--script"}));

INSTANTIATE_TEST_SUITE_P(MakeModulation, CommandLineErrorTest,
                         testing::Values(BadLine{{"run", "--foo"}, "(try: ravelctl run --help)"},
                                         BadLine{{"run", "make-modulation"}, "make-modulation"},
                                         BadLine{{"make-modulation", "--output", "f"}, "SHAPE is required"},
                                         BadLine{{"make-modulation", "sine"}, "--output is required"},
                                         BadLine{{"make-modulation", "sine", "step", "--output", "f"}, "step"},
                                         BadLine{{"make-modulation", "saw", "--output", "f"},
                                                 "SHAPE: expected sine, step, chirp or noise but got saw"},
                                         BadLine{{"make-modulation", "noise", "--output", "f", "--seed", "-1"},
                                                 "expected 0 or above but got -1"},
                                         BadLine{{"make-modulation", "sine", "--output", "f", "--workers", "2"},
                                                 "(try: ravelctl make-modulation --help)"}));

INSTANTIATE_TEST_SUITE_P(
    Replay, CommandLineErrorTest,
    testing::Values(
        BadLine{{"replay"}, "RUN is required"}, BadLine{{"replay", "a", "b"}, "(try: ravelctl replay --help)"},
        BadLine{{"replay", "a", "--set"}, "--set"},
        BadLine{{"replay", "a", "--set", "kpp=1"},
                "--set: expected NAME=VALUE with one of kp, ki, kd, karw, bp, tt, n, ulow, uhigh, freq, such as "
                "kp=0.5, but got kpp=1"},
        BadLine{{"replay", "a", "--set", "kp"}, "but got kp"}, BadLine{{"replay", "a", "--set", "=1"}, "but got =1"},
        BadLine{{"replay", "a", "--set", "kp="}, "--set: kp: expected a number but got "},
        BadLine{{"replay", "a", "--set", "kp=1x"}, "--set: kp: expected a number but got 1x"},
        BadLine{{"replay", "a", "--set", "kp=nan"}, "--set: kp: expected a number but got nan"},
        BadLine{{"replay", "a", "--set", "kp=1e39"}, "--set: kp: expected a number but got 1e39"},
        BadLine{{"replay", "a", "--set", "n=0"}, "--set: n: expected more than 0 but got 0"},
        BadLine{{"replay", "a", "--set", "kd=-1"}, "--set: kd: expected 0 or above but got -1"},
        BadLine{{"replay", "a", "--set", "kp=0.5", "--set", "ki=2", "--set", "kp=0.6"},
                "--set: kp: expected one value but got 0.5 and 0.6; replay once for each"},
        BadLine{{"replay", "a", "--modes", "3"}, "--modes: expected --set besides"}));

INSTANTIATE_TEST_SUITE_P(
    Tune, CommandLineErrorTest,
    testing::Values(BadLine{{"tune"}, "RUN is required"}, BadLine{{"tune", "a", "b"}, "(try: ravelctl tune --help)"},
                    BadLine{{"tune", "a", "--from", "both"}, "--from: expected open, closed or auto but got both"},
                    BadLine{{"tune", "a", "--phase-margin", "x"}, "--phase-margin: expected a number but got x"}));

TEST(CommandLineTest, EveryOptionOfATuningReachesItsPlace)
{
    std::ostringstream out;
    const auto options = std::get<TuneOptions>(
        Parse({"tune", "night 1", "--from", "open", "--phase-margin", "50", "--gain-margin", "7.5", "--max-sensitivity",
               "1.8", "--max-crossover", "30", "--output", "o", "--overwrite", "--check", "t.json", "--quiet"},
              out));
    EXPECT_EQ(options.run, "night 1");
    EXPECT_EQ(options.from, TuneFrom::Open);
    EXPECT_EQ(options.demands.phase_margin_deg, 50.0);
    EXPECT_EQ(options.demands.gain_margin_db, 7.5);
    EXPECT_EQ(options.demands.sensitivity_peak, 1.8);
    EXPECT_EQ(options.demands.max_crossover_hz, 30.0);
    EXPECT_EQ(options.output, "o");
    EXPECT_TRUE(options.overwrite);
    EXPECT_EQ(options.check, "t.json");
    EXPECT_TRUE(options.quiet);
    const auto defaults = std::get<TuneOptions>(Parse({"tune", "a"}, out));
    EXPECT_EQ(defaults.from, TuneFrom::Auto);
    EXPECT_FALSE(defaults.demands.max_crossover_hz);
    EXPECT_FALSE(defaults.quiet);
}

TEST(CommandLineTest, EveryOptionOfAReplayReachesItsPlace)
{
    std::ostringstream out;
    const auto options =
        std::get<ReplayOptions>(Parse({"replay", "--set", "kp=0.5", "night 1", "--set", "freq=1e1", "--set", "ulow=-3",
                                       "--modes", "0-3", "--output", "o.fits", "--overwrite"},
                                      out));
    EXPECT_EQ(options.run, "night 1");
    ASSERT_EQ(options.set.size(), 3U);
    EXPECT_EQ(options.set[0].param, 0);
    EXPECT_EQ(options.set[0].value, 0.5F);
    EXPECT_EQ(options.set[1].param, 9);
    EXPECT_EQ(options.set[1].value, 10.0F);
    EXPECT_EQ(options.set[2].param, 7);
    EXPECT_EQ(options.set[2].value, -3.0F);
    EXPECT_EQ(options.modes, "0-3");
    EXPECT_EQ(options.output, "o.fits");
    EXPECT_TRUE(options.overwrite);
}

TEST(CommandLineTest, EveryOptionOfAQualificationReachesItsPlace)
{
    const auto options = ParseAs<QualifyOptions>(
        {"qualify",       "--rows", "7",          "--cols",     "8",           "--workers", "2",        "--cpus",
         "3,1",           "--rate", "100",        "--flat-out", "--duration",  "1.5",       "--cycles", "9",
         "--deadline-us", "40.5",   "--priority", "5",          "--numa-node", "1",         "--output", "o p",
         "--overwrite",   "--quiet"});
    EXPECT_EQ(options.rows, 7);
    EXPECT_EQ(options.cols, 8);
    EXPECT_EQ(options.workers, 2);
    EXPECT_EQ(options.placement.cpus.numbers, (std::vector<int>{3, 1}));
    EXPECT_EQ(options.rate_hz, 100.0);
    EXPECT_EQ(options.duration_s, 1.5);
    EXPECT_EQ(options.cycles, 9);
    EXPECT_EQ(options.deadline_us, 40.5);
    EXPECT_EQ(options.placement.priority, 5);
    EXPECT_EQ(options.placement.numa_node.numbers, (std::vector<int>{1}));
    EXPECT_EQ(options.output, "o p");
    EXPECT_TRUE(options.flat_out && options.overwrite && options.quiet);
}

TEST(CommandLineTest, AQualificationAloneMeansTheDefaults)
{
    const auto options = ParseAs<QualifyOptions>({"qualify"});
    EXPECT_EQ(options.rows, 300);
    EXPECT_EQ(options.cols, 4788);
    EXPECT_EQ(options.rate_hz, 500.0);
    EXPECT_FALSE(options.workers || options.duration_s || options.cycles || options.deadline_us);
    EXPECT_TRUE(options.output.empty());
    ExpectDefaults(options.placement);
    EXPECT_FALSE(options.flat_out || options.overwrite || options.quiet);
}

TEST(CommandLineTest, AQualificationForARunHasItsRateWorkersSlicesAndPlacement)
{
    const test::TestFolder folder;
    const std::string file = (folder / "night.toml").string();
    test::WriteBytes(file, "[run]\nmodes = 1001\nrate = 250.0\nworkers = 4\n[placement]\npriority = 20\n");
    const auto options = ParseAs<QualifyOptions>({"qualify", file});
    EXPECT_EQ(options.workers, 4);
    EXPECT_EQ(options.rate_hz, 250.0);
    EXPECT_EQ(options.rows, 251) << "the largest slice of 1001 modes";
    EXPECT_EQ(options.cols, 4788);
    EXPECT_EQ(options.placement.priority, 20);
    EXPECT_EQ(options.placement.numa_node.kind, PlaceChoice::Kind::Auto);

    const auto overridden = ParseAs<QualifyOptions>({"qualify", file, "--rows", "9", "--rate", "100"});
    EXPECT_EQ(overridden.rows, 9);
    EXPECT_EQ(overridden.rate_hz, 100.0);
    EXPECT_EQ(overridden.workers, 4);
}

TEST(CommandLineTest, AQualificationHasWhatTheFileSaysOfItAndOptionsOverrideThat)
{
    const test::TestFolder folder;
    const std::string file = (folder / "night.toml").string();
    test::WriteBytes(file,
                     "[run]\nduration = 60.0\nquiet = true\n[placement]\npriority = 20\n"
                     "[qualify]\nduration = 2.0\ndeadline_us = 700\noutput = \"q\"\noverwrite = true\n");
    const auto options = ParseAs<QualifyOptions>({"qualify", file});
    EXPECT_EQ(options.duration_s, 2.0);
    EXPECT_EQ(options.deadline_us, 700.0);
    EXPECT_EQ(options.output, "q");
    EXPECT_TRUE(options.overwrite);
    EXPECT_FALSE(options.quiet || options.flat_out || options.cycles);
    EXPECT_EQ(options.places.Name("--duration"), file + ":7:12: duration") << "not that of the run";
    EXPECT_EQ(options.places.Name("--quiet"), "--quiet");

    const auto overridden = ParseAs<QualifyOptions>({"qualify", file, "--cycles", "9", "--flat-out"});
    EXPECT_EQ(overridden.cycles, 9);
    EXPECT_EQ(overridden.duration_s, std::nullopt) << "there is one of both";
    EXPECT_EQ(overridden.placement.priority, std::nullopt) << "what never sleeps has none";
    test::WriteBytes(file, "[qualify]\nflat_out = true\ncycles = 12345678901\n");
    EXPECT_TRUE(ParseAs<QualifyOptions>({"qualify", file}).flat_out);
    EXPECT_EQ(ParseAs<QualifyOptions>({"qualify", file}).cycles, 12345678901);
    EXPECT_EQ(ParseAs<QualifyOptions>({"qualify", file, "--duration", "1"}).cycles, std::nullopt);
}

TEST(CommandLineTest, ATuningHasWhatTheFileSaysOfItAndOptionsOverrideThat)
{
    const test::TestFolder folder;
    const std::string file = (folder / "night.toml").string();
    test::WriteBytes(file,
                     "[tune]\nfrom = \"open\"\nphase_margin = 60\nmax_crossover = 25\noutput = \"t\"\n"
                     "overwrite = true\n");
    const auto options = ParseAs<TuneOptions>({"tune", "night1", "--config", file, "--gain-margin", "8"});
    EXPECT_EQ(options.from, TuneFrom::Open);
    EXPECT_EQ(options.demands.phase_margin_deg, 60.0);
    EXPECT_EQ(options.demands.gain_margin_db, 8.0);
    EXPECT_EQ(options.demands.max_crossover_hz, 25.0);
    EXPECT_EQ(options.output, "t");
    EXPECT_TRUE(options.overwrite);
    EXPECT_EQ(ParseAs<TuneOptions>({"tune", "night1", "--config", file, "--from", "closed"}).from, TuneFrom::Closed);

    const auto check = ParseAs<TuneOptions>({"tune", "night2", "--config", file, "--check", "t/tune.json"});
    EXPECT_NO_THROW(CheckTuneOptions(check)) << "what the file says is for proposals";
    EXPECT_THAT(test::ThrownLine<InputError>([&] {
                    CheckTuneOptions(ParseAs<TuneOptions>(
                        {"tune", "night2", "--config", file, "--check", "t/tune.json", "--output", "x"}));
                }),
                HasSubstr("--check: expected no --output"));
}

TEST(CommandLineTest, AsFastAsPossibleTakesAFilesPrioritiesAway)
{
    const test::TestFolder folder;
    const std::string file = (folder / "night.toml").string();
    test::WriteBytes(file, "[placement]\npriority = 20\ncycle_priority = 30\n");
    EXPECT_EQ(ParseRun({file}).placement.priority, 20);
    EXPECT_EQ(ParseRun({file, "--as-fast-as-possible"}).placement.priority, std::nullopt);
    EXPECT_EQ(ParseRun({file, "--as-fast-as-possible"}).placement.cycle_priority, std::nullopt);
    EXPECT_EQ(ParseRun({file, "--as-fast-as-possible", "--priority", "5"}).placement.priority, 5)
        << "for the plan to refuse";
}

TEST(CommandLineTest, TheKeysOfTheMatrixVectorTaskSizeAQualification)
{
    const test::TestFolder folder;
    const std::string file = (folder / "night.toml").string();
    test::WriteBytes(file, "[cfg.task_sgemv]\nnum_rows = 70\nnum_cols = 80\nnuma_node = 0\n");
    const auto options = ParseAs<QualifyOptions>({"qualify", file});
    EXPECT_EQ(options.rows, 70);
    EXPECT_EQ(options.cols, 80);
    EXPECT_EQ(options.workers, 2);
    EXPECT_EQ(options.placement.numa_node.numbers, std::vector<int>{0});

    test::WriteBytes(file, "[cfg.task_sgemv]\nnuma_node = -1\n");
    EXPECT_EQ(ParseAs<QualifyOptions>({"qualify", file}).placement.numa_node.kind, PlaceChoice::Kind::None);
    test::WriteBytes(file, "[placement]\nnuma_node = 1\n[cfg.task_sgemv]\nnuma_node = 0\n");
    EXPECT_EQ(ParseAs<QualifyOptions>({"qualify", file}).placement.numa_node.numbers, std::vector<int>{1})
        << "what is said of the placement comes first";
}

TEST(CommandLineTest, TheDoctorPrintsJsonWhenAskedTo)
{
    EXPECT_FALSE(ParseAs<DoctorOptions>({"doctor"}).json);
    EXPECT_TRUE(ParseAs<DoctorOptions>({"doctor", "--json"}).json);
}

std::vector<BadLine> BadRows()
{
    std::vector<BadLine> lines;
    for (const char* rows : {"5", "x:5", "5:x", "-1:5", "0:-1", "1:2:3", "1.5:3", " 1:3", "99999999999999999999:"}) {
        lines.push_back({{"inspect", "f", "--csv", std::string("--rows=") + rows},
                         std::string("--rows: expected BEGIN:END, such as 0:100, :100 or 100:, but got ") + rows});
    }
    return lines;
}

INSTANTIATE_TEST_SUITE_P(InspectRows, CommandLineErrorTest, testing::ValuesIn(BadRows()));

INSTANTIATE_TEST_SUITE_P(
    Inspect, CommandLineErrorTest,
    testing::Values(BadLine{{"inspect"}, "FILE is required (try: ravelctl inspect --help)"},
                    BadLine{{"inspect", "f", "--foo"}, "--foo"},
                    BadLine{{"inspect", "a", "b", "--csv"}, "--csv: expected one file but got 2"},
                    BadLine{{"inspect", "f", "--csv", "--json"}, "--csv excludes --json"},
                    BadLine{{"inspect", "f", "--csv", "--statistics"}, "--statistics excludes --csv"},
                    BadLine{{"inspect", "f", "--rows", "0:1"}, "--rows requires --csv"},
                    BadLine{{"inspect", "f", "--columns", "1"}, "--columns: expected --statistics or --csv"}));

}  // namespace
}  // namespace lumo::ravelctl
