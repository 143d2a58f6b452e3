#include "commandLine.hpp"
#include "error.hpp"
#include "inputPlace.hpp"
#include "recordingPlan.hpp"
#include "runConfig.hpp"
#include "support/testFolder.hpp"
#include "support/textFile.hpp"
#include "support/thrown.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace lumo::ravelctl {
namespace {

using testing::HasSubstr;

class RunConfigTest : public testing::Test
{
protected:
    RunOptions Load(const std::string& text)
    {
        test::WriteBytes(m_file, text);
        RunArguments arguments;
        LoadConfig(m_file, arguments);
        return ReadRunOptions(arguments);
    }

    /// What is refused, without the folder.
    std::string Refusal(const std::string& text)
    {
        const std::string line = test::ThrownLine<InputError>([&] { Load(text); });
        const std::string folder = m_folder.GetPath().string() + "/";
        EXPECT_EQ(line.substr(0, folder.size()), folder);
        return line.substr(std::min(folder.size(), line.size()));
    }

    const test::TestFolder m_folder;
    const std::filesystem::path m_file = m_folder / "night.toml";
};

/// None of them the default.
RunOptions OptionsOfEveryKind()
{
    RunOptions options;
    options.modes = 100;
    options.rate_hz = 250.0;
    options.duration_s = 12.5;
    options.open_loop_s = 0.0;
    options.workers = 3;
    options.seed = 18446744073709551615U;
    options.output = "a \"b\" \\ c";
    options.overwrite = true;
    options.matrices = "/m \"n\"";
    options.as_fast_as_possible = true;
    options.quiet = true;
    options.log_config = "/l";
    options.tones = {{5, 2.5, 0.1}, {7, 10.0, 0.0005}};
    options.record = {false, true, true, 4, 1.5};
    options.play = {"/e.fits", "/p.fits"};
    options.inject = {"/i.fits", 3, true};
    options.gains = "/g.fits";
    options.script = "/s.toml";
    options.qualify = {true, 1.5, 7, 300.0, "q", true, true};
    options.tune = {TuneFrom::Closed, {60.0, 9.0, 1.5, 12.5}, "t", true};
    options.placement.cpus = ParsePlaceChoice("--cpus", "5,4,6");
    options.placement.cycle_cpu = ParsePlaceChoice("--cycle-cpu", "3");
    options.placement.numa_node = ParsePlaceChoice("--numa-node", "none");
    options.placement.priority = 40;
    options.placement.cycle_priority = 70;
    options.placement.lock_memory = false;
    options.placement.huge_pages = false;
    options.cfg = {
        {"cfg.task_sgemv.num_rows", "600"}, {"cfg.task_sgemv.num_cols", "4788"}, {"cfg.task_sgemv.numa_node", "-1"}};
    return options;
}

void ExpectSameTones(const std::vector<mirrorsim::Tone>& found, const std::vector<mirrorsim::Tone>& expected)
{
    ASSERT_EQ(found.size(), expected.size());
    for (std::size_t i = 0; i < found.size(); ++i) {
        EXPECT_EQ(found[i].mode, expected[i].mode);
        EXPECT_EQ(found[i].frequency_hz, expected[i].frequency_hz);
        EXPECT_EQ(found[i].amplitude_um, expected[i].amplitude_um);
    }
}

void ExpectSamePlacement(const PlacementOptions& found, const PlacementOptions& expected)
{
    EXPECT_EQ(FormatPlaceChoice(found.cpus), FormatPlaceChoice(expected.cpus));
    EXPECT_EQ(FormatPlaceChoice(found.cycle_cpu), FormatPlaceChoice(expected.cycle_cpu));
    EXPECT_EQ(FormatPlaceChoice(found.numa_node), FormatPlaceChoice(expected.numa_node));
    EXPECT_EQ(found.priority, expected.priority);
    EXPECT_EQ(found.cycle_priority, expected.cycle_priority);
    EXPECT_EQ(found.lock_memory, expected.lock_memory);
    EXPECT_EQ(found.huge_pages, expected.huge_pages);
}

void ExpectSameForOtherCommands(const RunOptions& found, const RunOptions& expected)
{
    EXPECT_EQ(found.qualify.flat_out, expected.qualify.flat_out);
    EXPECT_EQ(found.qualify.duration_s, expected.qualify.duration_s);
    EXPECT_EQ(found.qualify.cycles, expected.qualify.cycles);
    EXPECT_EQ(found.qualify.deadline_us, expected.qualify.deadline_us);
    EXPECT_EQ(found.qualify.output, expected.qualify.output);
    EXPECT_EQ(found.qualify.overwrite, expected.qualify.overwrite);
    EXPECT_EQ(found.qualify.quiet, expected.qualify.quiet);
    EXPECT_EQ(found.tune.from, expected.tune.from);
    EXPECT_EQ(found.tune.demands.phase_margin_deg, expected.tune.demands.phase_margin_deg);
    EXPECT_EQ(found.tune.demands.gain_margin_db, expected.tune.demands.gain_margin_db);
    EXPECT_EQ(found.tune.demands.sensitivity_peak, expected.tune.demands.sensitivity_peak);
    EXPECT_EQ(found.tune.demands.max_crossover_hz, expected.tune.demands.max_crossover_hz);
    EXPECT_EQ(found.tune.output, expected.tune.output);
    EXPECT_EQ(found.tune.overwrite, expected.tune.overwrite);
}

void ExpectSame(const RunOptions& found, const RunOptions& expected)
{
    ExpectSameForOtherCommands(found, expected);
    EXPECT_EQ(found.modes, expected.modes);
    EXPECT_EQ(found.rate_hz, expected.rate_hz);
    EXPECT_EQ(found.duration_s, expected.duration_s);
    EXPECT_EQ(found.open_loop_s, expected.open_loop_s);
    EXPECT_EQ(found.workers, expected.workers);
    EXPECT_EQ(found.seed, expected.seed);
    EXPECT_EQ(found.output, expected.output);
    EXPECT_EQ(found.overwrite, expected.overwrite);
    EXPECT_EQ(found.matrices, expected.matrices);
    EXPECT_EQ(found.as_fast_as_possible, expected.as_fast_as_possible);
    EXPECT_EQ(found.quiet, expected.quiet);
    EXPECT_EQ(found.log_config, expected.log_config);
    ExpectSameTones(found.tones, expected.tones);
    EXPECT_EQ(NameRecorded(found.record), NameRecorded(expected.record));
    EXPECT_EQ(found.record.decimation, expected.record.decimation);
    EXPECT_EQ(found.record.last_s, expected.record.last_s);
    EXPECT_EQ(found.play.es, expected.play.es);
    EXPECT_EQ(found.play.pact, expected.play.pact);
    EXPECT_EQ(found.inject.file, expected.inject.file);
    EXPECT_EQ(found.inject.decimation, expected.inject.decimation);
    EXPECT_EQ(found.inject.loop, expected.inject.loop);
    EXPECT_EQ(found.gains, expected.gains);
    EXPECT_EQ(found.script, expected.script);
    ExpectSamePlacement(found.placement, expected.placement);
    EXPECT_EQ(found.cfg, expected.cfg);
}

TEST_F(RunConfigTest, WhatIsWrittenIsReadAgainToTheLastOption)
{
    ExpectSame(Load(FormatConfig(OptionsOfEveryKind())), OptionsOfEveryKind());
    RunOptions defaults;
    defaults.workers = 2;  // of the command line
    ExpectSame(Load(FormatConfig(defaults)), defaults);
}

TEST_F(RunConfigTest, AnEmptyFileMeansTheDefaults)
{
    RunOptions defaults;
    defaults.workers = 2;
    ExpectSame(Load(""), defaults);
}

TEST_F(RunConfigTest, EveryEntryOfTheFileHasAComment)
{
    const std::string text = FormatConfig(RunOptions());
    std::istringstream lines(text);
    std::string line;
    int entries = 0;
    while (std::getline(lines, line)) {
        if (line.find(" = ") != std::string::npos) {
            ++entries;
            EXPECT_THAT(line.substr(2), HasSubstr("  # ")) << line;
        }
    }
    EXPECT_EQ(entries, 50);
}

TEST_F(RunConfigTest, UnknownKeysAreRefusedWithTheNearestOne)
{
    EXPECT_THAT(Refusal("[run]\nmode = 3\n"), HasSubstr("night.toml:2:1: unknown key 'mode'; expected one of modes, "));
    EXPECT_THAT(Refusal("[run]\nmode = 3\n"), HasSubstr("did you mean 'modes'?"));
    EXPECT_THAT(Refusal("[rum]\n"), HasSubstr("night.toml:1:2: unknown key 'rum'; expected one of run, record, "));
    EXPECT_THAT(Refusal("[cfg.task_edcs]\n"), HasSubstr("did you mean 'task_edc'?"));
    EXPECT_THAT(Refusal("[cfg.task_edc]\nnum_pacts = 1\n"), HasSubstr("did you mean 'num_pact'?"));
}

TEST_F(RunConfigTest, WrongKindsAndValuesOutOfRangeAreRefusedWithTheirPlace)
{
    EXPECT_EQ(Refusal("[run]\nmodes = \"all\"\n"), "night.toml:2:9: modes: expected an integer but got a string");
    EXPECT_EQ(Refusal("[run]\nmodes = 2391\n"), "night.toml:2:9: modes: expected 1 to 2390 but got 2391");
    EXPECT_EQ(Refusal("[run]\nrate = 5001\n"), "night.toml:2:8: rate: expected 1 to 5000 Hz but got 5001");
    EXPECT_EQ(Refusal("[run]\nworkers = 0\n"), "night.toml:2:11: workers: expected 1 to 256 but got 0");
    EXPECT_EQ(Refusal("[run]\ntones = [\"1:2\"]\n"),
              "night.toml:2:9: tones: expected MODE:HZ:NM, such as 5:2.5:100, but got 1:2");
    EXPECT_EQ(Refusal("[record]\nwhat = [\"mode\"]\n"),
              "night.toml:2:8: what: expected some of modes, es and pact but got 'mode'");
    EXPECT_EQ(Refusal("[record]\nlast = 0\n"), "night.toml:2:8: last: expected 0.001 to 1000000 s but got 0");
}

TEST_F(RunConfigTest, AnInputThatOnlyTheDataPathHasKeepsItsName)
{
    const test::TestFolder data;
    test::WriteBytes(data / "kept-with-the-data.fits", "x");
    const std::string text = "[run]\ngains = \"kept-with-the-data.fits\"\n";
    EXPECT_EQ(Load(text).gains, m_folder / "kept-with-the-data.fits");
    ASSERT_EQ(setenv("BRISK_DATA_PATH", data.GetPath().c_str(), 1), 0);
    const std::filesystem::path from_data = Load(text).gains;
    const std::filesystem::path located = LocateInput(from_data);
    test::WriteBytes(m_folder / "kept-with-the-data.fits", "y");
    const std::filesystem::path from_file = Load(text).gains;
    unsetenv("BRISK_DATA_PATH");
    EXPECT_EQ(from_data, "kept-with-the-data.fits");
    EXPECT_EQ(located, data / "kept-with-the-data.fits");
    EXPECT_EQ(from_file, m_folder / "kept-with-the-data.fits") << "what is nearer comes first";
    EXPECT_EQ(LocateInput("nowhere.fits"), std::filesystem::current_path() / "nowhere.fits");
}

TEST_F(RunConfigTest, InputsAreSeenFromTheFileAndOutputsFromTheCurrentFolder)
{
    const RunOptions options = Load(
        "[run]\nmatrices = \"m\"\ngains = \"g.fits\"\nscript = \"/s.toml\"\noutput = \"o\"\nlog_config = \"../l\"\n"
        "[play]\nes = \"e.fits\"\npact = \"p.fits\"\n[inject]\nfile = \"i.fits\"\n"
        "[qualify]\noutput = \"q\"\n[tune]\noutput = \"t\"\n");
    EXPECT_EQ(options.matrices, m_folder / "m");
    EXPECT_EQ(options.gains, m_folder / "g.fits");
    EXPECT_EQ(options.script, "/s.toml");
    EXPECT_EQ(options.log_config, m_folder / "../l");
    EXPECT_EQ(options.play.es, m_folder / "e.fits");
    EXPECT_EQ(options.play.pact, m_folder / "p.fits");
    EXPECT_EQ(options.inject.file, m_folder / "i.fits");
    EXPECT_EQ(options.output, "o");
    EXPECT_EQ(options.qualify.output, "q");
    EXPECT_EQ(options.tune.output, "t");
}

TEST_F(RunConfigTest, WhatIsNotGivenIsShownAsItIsMeant)
{
    RunOptions options;
    options.modes = 301;
    options.workers = 2;
    options.duration_s = 3.0;
    options.placement.priority = 20;
    const std::string text = FormatConfig(options);
    EXPECT_THAT(text, HasSubstr("\n# open_loop = 0.3 "));
    EXPECT_THAT(text, HasSubstr("\n# slice_size = 151 "));
    EXPECT_THAT(text, HasSubstr("\n# cycle_priority = 30 "));
    options.as_fast_as_possible = true;
    options.placement.priority.reset();
    EXPECT_THAT(FormatConfig(options), HasSubstr("\n# priority = 0 "));
    EXPECT_THAT(FormatConfig(options), HasSubstr("\n# cycle_priority = 0 "));
}

TEST_F(RunConfigTest, WhatIsSaidForOtherCommandsIsRefusedAlike)
{
    EXPECT_THAT(Refusal("[qualify]\nflatout = true\n"), HasSubstr("did you mean 'flat_out'?"));
    EXPECT_EQ(Refusal("[qualify]\ncycles = 0\n"), "night.toml:2:10: cycles: expected 1 to 1000000000000 but got 0");
    EXPECT_EQ(Refusal("[qualify]\ndeadline_us = 0.5\n"),
              "night.toml:2:15: deadline_us: expected 1 to 1000000000 us but got 0.5");
    EXPECT_THAT(Refusal("[tune]\nphase_margn = 60\n"), HasSubstr("did you mean 'phase_margin'?"));
    EXPECT_EQ(Refusal("[tune]\nphase_margin = 90\n"), "night.toml:2:16: phase_margin: expected 1 to 89 deg but got 90");
    EXPECT_EQ(Refusal("[tune]\nfrom = \"both\"\n"), "night.toml:2:8: from: expected open, closed or auto but got both");
}

TEST_F(RunConfigTest, PlacesAreWordsOrNumbersAndRememberWhereTheyStand)
{
    const PlacementOptions options =
        Load("[placement]\ncpus = [3, 2]\ncycle_cpu = 1\nnuma_node = \"auto\"\n").placement;
    EXPECT_EQ(options.cpus.numbers, (std::vector<int>{3, 2}));
    EXPECT_EQ(options.cycle_cpu.numbers, (std::vector<int>{1}));
    EXPECT_EQ(options.cycle_cpu.name, m_file.string() + ":3:13: cycle_cpu") << "for what this machine does not have";
    EXPECT_EQ(options.numa_node.kind, PlaceChoice::Kind::Auto);
    EXPECT_EQ(Load("[placement]\ncpus = \"none\"\n").placement.cpus.kind, PlaceChoice::Kind::None);
    EXPECT_EQ(Load("").placement.cpus.name, "--cpus");
}

TEST_F(RunConfigTest, PlacesAndPrioritiesThatCannotBeAreRefused)
{
    EXPECT_EQ(Refusal("[placement]\ncpus = \"all\"\n"),
              "night.toml:2:8: cpus: expected auto, none or numbers such as 3 or 2,3 or 4-7 but got 'all'");
    EXPECT_EQ(
        Refusal("[placement]\ncpus = true\n"),
        "night.toml:2:8: cpus: expected \"auto\", \"none\", an integer or an array of integers but got a boolean");
    EXPECT_EQ(Refusal("[placement]\ncycle_cpu = -1\n"), "night.toml:2:13: cycle_cpu: expected 0 to 65536 but got -1");
    EXPECT_EQ(Refusal("[placement]\npriority = 90\n"), "night.toml:2:12: priority: expected 0 to 89 but got 90");
    EXPECT_THAT(Refusal("[placement]\ncpu = 1\n"), HasSubstr("did you mean 'cpus'?"));
}

TEST_F(RunConfigTest, TheMirrorsSizesMayBeSaidButNotChanged)
{
    EXPECT_NO_THROW(Load("[cfg.task_edc]\nnum_pact = 2394\nnum_es = 4788\n"));
    EXPECT_EQ(Refusal("[cfg.task_edc]\nnum_pact = 2391\n"),
              "night.toml:2:12: num_pact: expected 2394, as the simulated mirror has, but got 2391");
    EXPECT_EQ(Refusal("[cfg.task_edc]\nnum_es = 1\n"),
              "night.toml:2:10: num_es: expected 4788, as the simulated mirror has, but got 1");
}

TEST_F(RunConfigTest, AKeyOfAnotherTableIsSuggestedUnderItsTable)
{
    EXPECT_THAT(Refusal("modes = 10\n"), HasSubstr("did you mean 'modes' under [run]?"));
    EXPECT_THAT(Refusal("mdoes = 10\n"), HasSubstr("did you mean 'modes' under [run]?"));
    EXPECT_THAT(Refusal("[run]\nnum_pact = 10\n"), HasSubstr("did you mean 'num_pact' under [cfg.task_edc]?"));
    EXPECT_THAT(Refusal("[cfg]\nnum_rows = 10\n"), HasSubstr("did you mean 'num_rows' under [cfg.task_sgemv]?"));
    EXPECT_THAT(Refusal("[play]\ndecimation = 10\n"),
                HasSubstr("did you mean 'decimation' under [record] or [inject]?"));
    EXPECT_THAT(Refusal("[run]\nwhat_else_there_is = 10\n"), testing::Not(HasSubstr("did you mean")));
}

/// What is refused of a file once all of it has been read.
std::string RefusalOfPlan(const RunOptions& options)
{
    return test::ThrownLine<InputError>([&] { PlanRecording(options, PlanRun(options)); });
}

TEST_F(RunConfigTest, WhatDoesNotFitTheRestOfTheFileIsRefusedWithItsPlace)
{
    const std::string file = m_file.string();
    EXPECT_EQ(RefusalOfPlan(Load("[run]\nopen_loop = 100\n")),
              file + ":2:13: open_loop: expected 0 to 18 s but got 100");
    EXPECT_EQ(RefusalOfPlan(Load("[run]\ntones = [\"700:2:3\"]\n")),
              file + ":2:9: tones: mode: expected 0 to 599 but got 700");
    EXPECT_THAT(RefusalOfPlan(Load("[run]\nduration = 0.02\n")),
                testing::StartsWith(file + ":2:12: duration: expected 50 to "));
    EXPECT_EQ(RefusalOfPlan(Load("[run]\nmodes = 5\nworkers = 4\n")),
              file + ":3:11: workers: 5 modes in slices of 2 leave 1 of 4 workers without work; use 3");
    EXPECT_THAT(RefusalOfPlan(Load("[run]\nas_fast_as_possible = true\n[placement]\npriority = 50\n")),
                testing::StartsWith(file + ":4:12: priority: expected 0 with " + file +
                                    ":2:23: as_fast_as_possible but got 50"));
    EXPECT_THAT(RefusalOfPlan(Load("[record]\ndecimation = 100000\n")),
                testing::StartsWith(file + ":2:14: decimation: expected 1 to the run's 10000 cycles"));
}

TEST_F(RunConfigTest, EveryOptionOfARunThatAFileMayHoldRemembersItsPlace)
{
    const OptionPlaces places = Load(FormatConfig(OptionsOfEveryKind())).places;
    for (const CommandOutline& command : OutlineCommandLine().commands) {
        for (const OptionOutline& option : command.options) {
            const std::string& name = option.names.front();
            if (command.name == "run" && name.starts_with("--")) {
                EXPECT_THAT(places.Name(name), testing::StartsWith(m_file.string() + ":"));
            }
        }
    }
}

TEST_F(RunConfigTest, TheSliceSizeSaysHowManyWorkersThereAre)
{
    EXPECT_EQ(Load("[run]\nmodes = 600\n[cfg.task_edc]\nslice_size = 200\n").workers, 3);
    EXPECT_EQ(Load("[run]\nmodes = 11\n[cfg.task_edc]\nslice_size = 4\n").workers, 3) << "the last one has 3";
    EXPECT_EQ(Load("[run]\nmodes = 11\n[cfg.task_edc]\nslice_size = 300\n").workers, 1);
    EXPECT_EQ(Refusal("[run]\nworkers = 2\n[cfg.task_edc]\nslice_size = 200\n"),
              "night.toml:4:14: slice_size: expected either this or run.workers but got both");
}

TEST_F(RunConfigTest, ASliceSizeThatNoWorkersHaveIsRefusedWithOneThatTheyHave)
{
    EXPECT_EQ(Refusal("[cfg.task_edc]\nslice_size = 250\n"),
              "night.toml:2:14: slice_size: expected 200, in which 3 workers share 600 modes evenly, but got 250");
    EXPECT_EQ(Load("[cfg.task_edc]\nslice_size = 200\n").workers, 3);
    EXPECT_EQ(Refusal("[cfg.task_edc]\nslice_size = 1\n"),
              "night.toml:2:14: slice_size: expected slices for at most 256 workers but 600 modes in slices of 1 are "
              "for 600");
}

TEST_F(RunConfigTest, TheLibrarysOwnKeysReachTheTasksUnderTheirNames)
{
    const RunOptions options = Load("[cfg.task_sgemv]\nnum_rows = 300\nnum_cols = 10\n");
    EXPECT_EQ(options.cfg, (std::map<std::string, std::string>{{"cfg.task_sgemv.num_cols", "10"},
                                                               {"cfg.task_sgemv.num_rows", "300"}}));
}

}  // namespace
}  // namespace lumo::ravelctl
