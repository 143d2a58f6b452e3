#include "error.hpp"
#include "loopSearch.hpp"
#include "modeDisturbance.hpp"
#include "parameterFile.hpp"
#include "runFolder.hpp"
#include "support/quietLog.hpp"
#include "support/recording.hpp"
#include "support/runInProcess.hpp"
#include "support/sanitizer.hpp"
#include "support/textFile.hpp"
#include "support/thrown.hpp"
#include "tune.hpp"
#include "tuneReport.hpp"

#include <lumo/mirrorsim/geometry.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <memory>
#include <sstream>

// Whole runs on the simulated mirror: what is found of their disturbance, and whether what is predicted comes true.

namespace lumo::ravelctl {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using testing::HasSubstr;
using testing::StartsWith;

constexpr int MODES = 60;
constexpr double DURATION_S = test::SANITIZED ? 8.0 : 20.0;

struct Tuned
{
    int status = -1;
    std::string text;
    std::string err;
};

Tuned RunTune(const TuneOptions& options)
{
    std::ostringstream out;
    std::ostringstream err;
    const int status = Tune(options, out, err);
    return {status, out.str(), err.str()};
}

json ReadJson(const fs::path& file)
{
    return json::parse(test::ReadBytes(file));
}

class TuneTest : public testing::Test
{
protected:
    TuneTest() { test::QuietLog(); }

    /// A run that every test may read.
    static void SetUpTestSuite()
    {
        s_shared = std::make_unique<test::TestFolder>();
        test::RunInProcess(Run(*s_shared, "first"));
    }

    static void TearDownTestSuite() { s_shared.reset(); }

    static fs::path FirstRun() { return *s_shared / "first"; }

    static RunOptions Run(const test::TestFolder& folder, const std::string& name)
    {
        RunOptions options = test::ShortRun(folder, name);
        options.modes = MODES;
        options.duration_s = DURATION_S;
        return options;
    }

    RunOptions Run(const std::string& name) const { return Run(m_folder, name); }

    TuneOptions Options(const fs::path& run) const
    {
        TuneOptions options;
        options.run = run;
        options.output = m_folder / "tuned";
        return options;
    }

    /// Runs with the proposed gains, and what `--check` says of it.
    Tuned Confirm(const std::string& name, std::uint64_t seed) const
    {
        RunOptions options = Run(name);
        options.seed = seed;
        options.gains = m_folder / "tuned" / "gains.fits";
        const test::FinishedRun run = test::RunInProcess(options);
        EXPECT_EQ(run.status, EXIT_OK) << run.text;
        TuneOptions check;
        check.run = m_folder / name;
        check.check = m_folder / "tuned" / "tune.json";
        Tuned tuned = RunTune(check);
        // By the run's own figure, the one that it prints.
        const double predicted = ReadJson(check.check).at("surface_nm").at("predicted");
        const double measured = run.report.controlled_rms_nm.after.value();
        EXPECT_NEAR(measured, predicted, 0.2 * predicted) << "seed " << seed;
        std::cout << "seed " << seed << ": surface predicted " << predicted << " nm, measured " << measured << " nm\n"
                  << tuned.text;
        return tuned;
    }

    static std::string Refusal(const TuneOptions& options)
    {
        return test::ThrownLine<InputError>([&] { RunTune(options); });
    }

    const test::TestFolder m_folder;

private:
    static inline std::unique_ptr<test::TestFolder> s_shared;
};

TEST_F(TuneTest, TheDisturbanceDerivedFromTheClosedLoopIsTheOneThatTheOpenLoopShows)
{
    // The same mirror with the loop open all the while: the sensors then show the same wind and noise, on the
    // actuators' positions, which do not change.
    RunOptions open = Run("open");
    open.open_loop_s = 0.9 * DURATION_S;
    test::RunInProcess(open);
    const RunFolder first(FirstRun());
    const Plant plant = first.GetPlant();
    const auto begin = first.GetOpenCycles();
    const auto end = RunFolder(open.output).GetOpenCycles();
    const test::Recording shown = test::LoadRecording(open.output / "modes_in.fits");
    const test::Recording in = test::LoadRecording(FirstRun() / "modes_in.fits");
    const test::Recording out = test::LoadRecording(FirstRun() / "modes_out.fits");
    const auto first_derived = static_cast<int>(begin + CyclesToForget(plant));
    for (const int mode : {0, 1, 7, 30, MODES - 1}) {
        std::vector<double> measured;
        std::vector<double> command;
        for (auto cycle = static_cast<int>(begin); cycle < static_cast<int>(end); ++cycle) {
            measured.push_back(static_cast<double>(in.At(cycle, mode)));
            command.push_back(static_cast<double>(out.At(cycle, mode)));
        }
        const std::vector<double> derived = DeriveDisturbance(measured, command, plant);
        const double standing = static_cast<double>(shown.At(first_derived, mode)) - derived.front();
        double largest = 0.0;
        for (std::size_t i = 0; i < derived.size(); ++i) {
            const double expected = static_cast<double>(shown.At(first_derived + static_cast<int>(i), mode)) - standing;
            largest = std::max(largest, std::abs(derived[i] - expected));
        }
        EXPECT_LT(largest, 1e-4) << "um, mode " << mode;  // of disturbances of some um: single precision
    }
}

TEST_F(TuneTest, ARunWithTheProposedGainsConfirmsWhatIsPredictedAlsoOfAnotherDisturbance)
{
    const Tuned tuned = RunTune(Options(FirstRun()));
    EXPECT_EQ(tuned.status, EXIT_OK);
    EXPECT_THAT(tuned.text, HasSubstr("derived from the closed loop"));
    const json found = ReadJson(m_folder / "tuned" / "tune.json");
    const double now = found.at("surface_nm").at("now");
    EXPECT_NEAR(now, found.at("surface_nm").at("recorded").get<double>(), 0.1 * now) << "the gains are the run's";
    EXPECT_LT(found.at("surface_nm").at("predicted").get<double>(), 0.9 * now) << "it is worth the while";
    double squares = 0.0;
    for (const double quarter : found.at("surface_nm").at("predicted_by_quarter")) {
        squares += 0.25 * quarter * quarter;
    }
    const double predicted = found.at("surface_nm").at("predicted");
    EXPECT_NEAR(std::sqrt(squares), predicted, 0.01 * predicted);
    // A short run's wind is not another's: that takes the whole duration.
    const std::vector<std::uint64_t> seeds =
        test::SANITIZED ? std::vector<std::uint64_t>{1} : std::vector<std::uint64_t>{1, 2};
    for (const std::uint64_t seed : seeds) {
        const Tuned check = Confirm("seed " + std::to_string(seed), seed);
        EXPECT_EQ(check.status, EXIT_OK) << check.text;
        EXPECT_THAT(check.text, testing::EndsWith("verdict                 confirmed within 20 %\n"));
    }
}

TEST_F(TuneTest, TheOpenLoopTellsTheDisturbanceAsWell)
{
    RunOptions open = Run("half open");
    open.open_loop_s = 0.6 * DURATION_S;
    test::RunInProcess(open);
    const Tuned tuned = RunTune(Options(open.output));
    EXPECT_EQ(tuned.status, EXIT_OK);
    EXPECT_THAT(tuned.text, HasSubstr("measured with the loop open"));
    EXPECT_EQ(ReadJson(m_folder / "tuned" / "tune.json").at("from"), "open");
    EXPECT_EQ(Confirm("next", 1).status, EXIT_OK);
}

TEST_F(TuneTest, EveryProposedLoopMeetsTheDemandsAndIsTheOneInTheFile)
{
    TuneOptions options = Options(FirstRun());
    options.demands = {60.0, 8.0, 1.6, 25.0};
    RunTune(options);
    const std::vector<float> before = LoadGainsFile(FirstRun() / "gains.fits", MODES);
    const std::vector<float> params = LoadGainsFile(m_folder / "tuned" / "gains.fits", MODES);
    const json modes = ReadJson(m_folder / "tuned" / "tune.json").at("modes");
    ASSERT_EQ(modes.size(), static_cast<std::size_t>(MODES));
    const Plant plant = RunFolder(FirstRun()).GetPlant();
    std::vector<ravelcore::PidFilterContext> channels;
    ravelcore::PidFilterCopy(static_cast<float>(plant.period_s), 0.0F, params, channels);
    for (std::size_t mode = 0; mode < channels.size(); ++mode) {
        EXPECT_TRUE(MeetsDemands(channels[mode], plant, options.demands)) << mode;
        EXPECT_EQ(modes[mode].at("proposed").at("kp").get<float>(), channels[mode].kp);
        EXPECT_EQ(modes[mode].at("proposed").at("ki").get<float>(), channels[mode].ki);
        for (std::size_t i = 2; i < 10; ++i) {
            EXPECT_EQ(params[10 * mode + i], before[10 * mode + i]) << mode << ", parameter " << i;
        }
    }
}

TEST_F(TuneTest, GainsThatAreAsGoodAreKept)
{
    RunTune(Options(FirstRun()));
    RunOptions run = Run("second");
    run.gains = m_folder / "tuned" / "gains.fits";
    test::RunInProcess(run);
    TuneOptions again = Options(run.output);
    again.output = m_folder / "again";
    const Tuned tuned = RunTune(again);
    EXPECT_THAT(tuned.text, HasSubstr("of 60 modes keep their gains: others would not leave 1 % less\n"));
    const json modes = ReadJson(m_folder / "again" / "tune.json").at("modes");
    const auto kept = std::count_if(modes.begin(), modes.end(), [](const json& mode) { return mode.at("kept"); });
    EXPECT_GT(kept, MODES / 2);
    const std::vector<float> first = LoadGainsFile(m_folder / "tuned" / "gains.fits", MODES);
    const std::vector<float> second = LoadGainsFile(m_folder / "again" / "gains.fits", MODES);
    for (std::size_t mode = 0; mode < modes.size(); ++mode) {
        const bool is_same = std::equal(first.begin() + static_cast<std::ptrdiff_t>(10 * mode),
                                        first.begin() + static_cast<std::ptrdiff_t>(10 * mode + 10),
                                        second.begin() + static_cast<std::ptrdiff_t>(10 * mode));
        EXPECT_EQ(is_same, modes[mode].at("kept").get<bool>()) << mode;
    }
}

TEST_F(TuneTest, CommandsThatWereLimitedAreReckonedWith)
{
    // What the actuators did not follow must not be taken for disturbance.
    RunOptions limited = Run("limited");
    limited.tones = {{3, 40.0, 400.0}};
    const test::FinishedRun run = test::RunInProcess(limited);
    ASSERT_GT(run.report.limited_commands, 100);
    RunOptions open = limited;
    open.output = m_folder / "open";
    open.open_loop_s = 0.9 * DURATION_S;
    test::RunInProcess(open);
    TuneOptions options = Options(limited.output);
    const Tuned closed = RunTune(options);
    EXPECT_THAT(closed.text, testing::ContainsRegex("commands were limited in [1-9][0-9]+ of [0-9]+ cycles"));
    const double from_closed = ReadJson(m_folder / "tuned" / "tune.json").at("measured_nm").at("now");
    options.run = open.output;
    options.overwrite = true;
    RunTune(options);
    const double from_open = ReadJson(m_folder / "tuned" / "tune.json").at("measured_nm").at("now");
    EXPECT_NEAR(from_closed, from_open, 0.05 * from_open);
}

TEST_F(TuneTest, ReferencesAreNotTakenForDisturbance)
{
    TuneOptions options = Options(FirstRun());
    RunTune(options);
    const double plain = ReadJson(m_folder / "tuned" / "tune.json").at("surface_nm").at("now");
    RunOptions run = Run("moved");
    run.script = m_folder / "script.toml";
    test::WriteBytes(run.script, R"([[at]]
time = 4.0
references = { modes = "0-9", value = 2.0 }
[[at]]
time = 6.0
references = { modes = "3-5", value = -3.0 }
)");
    test::RunInProcess(run);
    options.run = run.output;
    options.overwrite = true;
    const Tuned tuned = RunTune(options);
    const json found = ReadJson(m_folder / "tuned" / "tune.json").at("surface_nm");
    EXPECT_NEAR(found.at("now").get<double>(), plain, 0.001 * plain);
    EXPECT_GT(found.at("recorded").get<double>(), 2.0 * plain);
    EXPECT_THAT(tuned.text, HasSubstr("what was measured in the run is not what is computed"));
}

TEST_F(TuneTest, ARunWithOtherGainsIsNotCompared)
{
    RunTune(Options(FirstRun()));
    TuneOptions check;
    check.run = FirstRun();
    check.check = m_folder / "tuned" / "tune.json";
    EXPECT_THAT(Refusal(check),
                testing::MatchesRegex(".*first: mode [0-9]+: expected kp .* and ki .*, as proposed, but "
                                      "the run had .*; run with --gains"));
    json prediction = ReadJson(check.check);
    prediction["rate_hz"] = 400.0;
    test::WriteBytes(check.check, prediction.dump());
    EXPECT_THAT(Refusal(check), HasSubstr("expected 60 modes at 400 Hz, as predicted, but the run had 60 at 500 Hz"));
}

TEST_F(TuneTest, APredictionThatDoesNotComeTrueIsSaid)
{
    RunTune(Options(FirstRun()));
    const fs::path file = m_folder / "tuned" / "tune.json";
    json prediction = ReadJson(file);
    const std::vector<float> params = LoadGainsFile(FirstRun() / "gains.fits", MODES);
    for (std::size_t mode = 0; mode < MODES; ++mode) {  // as if the run's own gains had been proposed
        prediction["modes"][mode]["proposed"]["kp"] = params[10 * mode];
        prediction["modes"][mode]["proposed"]["ki"] = params[10 * mode + 1];
    }
    const double recorded = prediction.at("measured_nm").at("recorded");
    prediction["measured_nm"]["predicted"] = recorded / 1.3;
    prediction["surface_nm"]["predicted"] = prediction.at("surface_nm").at("recorded");
    test::WriteBytes(file, prediction.dump());
    TuneOptions check;
    check.run = FirstRun();
    check.check = file;
    const Tuned tuned = RunTune(check);
    EXPECT_EQ(tuned.status, EXIT_FAILED);
    EXPECT_THAT(tuned.text, HasSubstr("+30.0 %\n"));
    EXPECT_THAT(tuned.text, testing::EndsWith("verdict                 NOT confirmed within 20 %\n"));
    const std::string problem = "ravelctl: " + FirstRun().string() + ": what " + file.string() +
                                " predicts is NOT confirmed within 20 %: the disturbance, its noise or the plant is "
                                "another one; tune this run anew: ravelctl tune " +
                                FirstRun().string() + "\n";
    EXPECT_EQ(tuned.err, problem);
    check.quiet = true;
    const Tuned quiet = RunTune(check);
    EXPECT_EQ(quiet.status, EXIT_FAILED);
    EXPECT_EQ(quiet.text, "");
    EXPECT_EQ(quiet.err, problem);
    check.quiet = false;

    prediction["measured_nm"]["predicted"] = recorded;
    prediction["surface_nm"]["predicted"] = 0.0;
    test::WriteBytes(file, prediction.dump());
    const Tuned noise_alone = RunTune(check);
    EXPECT_EQ(noise_alone.status, EXIT_OK) << "where only noise is predicted the surface is not judged by it";
    EXPECT_EQ(noise_alone.err, "");
    EXPECT_THAT(noise_alone.text, testing::ContainsRegex("surface, controlled +0.00 +[0-9.]+ +-\n"));

    prediction["surface_nm"]["predicted"] = prediction.at("surface_nm").at("recorded").get<double>() / 1.3;
    test::WriteBytes(file, prediction.dump());
    EXPECT_EQ(RunTune(check).status, EXIT_FAILED) << "the surface counts as well";
}

TEST_F(TuneTest, DemandsThatCostMoreThanTheyGainAreRemarkedOn)
{
    constexpr const char* REMARK =
        "the proposed gains leave more than those of the run: these do not meet the demands; relax them, or keep the "
        "run's\n";
    TuneOptions options = Options(FirstRun());
    options.output.clear();
    EXPECT_THAT(RunTune(options).text, testing::Not(HasSubstr(REMARK)));
    options.demands.max_crossover_hz = 5.0;
    EXPECT_THAT(RunTune(options).text, HasSubstr(REMARK));
}

TEST_F(TuneTest, QuietLeavesTheFilesAndSaysNothing)
{
    TuneOptions options = Options(FirstRun());
    options.quiet = true;
    const Tuned tuned = RunTune(options);
    EXPECT_EQ(tuned.status, EXIT_OK);
    EXPECT_EQ(tuned.text + tuned.err, "");
    EXPECT_TRUE(fs::exists(options.output / "gains.fits"));
    EXPECT_TRUE(fs::exists(options.output / "tune.json"));
}

TEST_F(TuneTest, AFileThatPredictsNothingIsRefused)
{
    TuneOptions check;
    check.run = FirstRun();
    check.check = FirstRun() / "summary.json";
    const std::string expected =
        "--check: " + check.check.string() + ": expected a tune.json, as ravelctl tune --output leaves it, but ";
    EXPECT_EQ(Refusal(check), expected + "key 'measured_nm' not found");
    check.check = m_folder / "text.json";
    test::WriteBytes(check.check, "kp = 1\n");
    EXPECT_EQ(Refusal(check), "--check: " + check.check.string() +
                                  ": expected a tune.json, as ravelctl tune --output leaves it, but it is no JSON");
    check.check = m_folder / "none.json";
    EXPECT_EQ(Refusal(check),
              "--check: expected a tune.json but " + (m_folder / "none.json").string() + " cannot be read");
}

TEST_F(TuneTest, NothingIsWrittenOverARunOrAnEarlierProposal)
{
    TuneOptions options = Options(FirstRun());
    options.overwrite = true;
    options.output = FirstRun();
    EXPECT_EQ(Refusal(options),
              "--output: " + FirstRun().string() + " holds a run, whose gains are kept; choose another folder");
    options = Options(FirstRun());
    RunTune(options);
    const std::string before = test::ReadBytes(m_folder / "tuned" / "gains.fits");
    options.demands.max_crossover_hz = 5.0;
    EXPECT_EQ(Refusal(options),
              "--output: " + options.output.string() +
                  " holds a gains.fits already; choose another folder, or replace it with --overwrite");
    EXPECT_TRUE(test::ReadBytes(m_folder / "tuned" / "gains.fits") == before);
    options.overwrite = true;
    RunTune(options);
    EXPECT_FALSE(test::ReadBytes(m_folder / "tuned" / "gains.fits") == before);
}

TEST_F(TuneTest, WithoutAFolderNothingIsWritten)
{
    TuneOptions options;
    options.run = FirstRun();
    const Tuned tuned = RunTune(options);
    EXPECT_EQ(tuned.status, EXIT_OK);
    EXPECT_THAT(tuned.text, HasSubstr("surface, controlled"));
    EXPECT_EQ(m_folder.CountEntries(), 0U);
}

TEST_F(TuneTest, APartThatIsTooShortIsRefusedWithTheRemedy)
{
    RunOptions run = test::ShortRun(m_folder, "short");  // 300 cycles, 30 of them open
    test::RunInProcess(run);
    TuneOptions options;
    options.run = run.output;
    options.from = TuneFrom::Open;
    EXPECT_EQ(Refusal(options), options.run.string() +
                                    ": expected at least 500 cycles of the disturbance but there are 30 with the loop "
                                    "open; run with a longer --open-loop, or tune --from closed");
    options.from = TuneFrom::Auto;
    EXPECT_THAT(Refusal(options),
                testing::MatchesRegex(".*there are 2[0-9][0-9] with the loop closed; run for a longer "
                                      "--duration"));
}

TEST_F(TuneTest, OnlyTheCyclesBeforeAScriptReplacedModesCount)
{
    RunOptions run = Run("replaced");
    run.modes = 20;
    run.duration_s = 3.0;
    run.script = m_folder / "script.toml";
    test::WriteBytes(run.script, "[[at]]\ntime = 2.0\npdc = { modes = 3, value = 0.0 }\n");
    test::RunInProcess(run);
    TuneOptions options;
    options.run = run.output;
    EXPECT_EQ(RunFolder(run.output).GetCyclesBeforeRedefinition(), 1000);
    const std::int64_t expected = 1000 - 150 - CyclesToForget(RunFolder(run.output).GetPlant());
    EXPECT_THAT(RunTune(options).text, HasSubstr(": " + std::to_string(expected) + " cycles ("));
    TuneOptions check;
    check.run = run.output;
    check.check = m_folder / "tune.json";
    test::WriteBytes(check.check, R"({"rate_hz": 500, "measured_nm": {"predicted": 1}, "surface_nm": {"predicted": 1},
                                      "modes": []})");
    EXPECT_THAT(Refusal(check),
                HasSubstr("expected a run with the same modes throughout but its script replaced some"));
    EXPECT_THAT(RunTune(options).text, HasSubstr("a disturbance of 1.6 s does not tell what changes more slowly"));
    test::WriteBytes(run.script, "[[at]]\ntime = 1.0\npdc = { modes = 3, value = 0.0 }\n");
    run.overwrite = true;
    test::RunInProcess(run);
    EXPECT_THAT(Refusal(options),
                HasSubstr(" with the loop closed, before cycle 500, in which the script replaced modes "
                          "or a matrix; run for a longer --duration"));
}

TEST_F(TuneTest, WhereTheScriptChangedGainsTheNextRunIsToldToLeaveItOut)
{
    RunOptions run = Run("changed");
    run.modes = 20;
    run.duration_s = 3.0;
    run.script = m_folder / "script.toml";
    test::WriteBytes(run.script, "[[at]]\ntime = 2.0\ngains = { kp = 0.3 }\n");
    test::RunInProcess(run);
    const std::string text = RunTune(Options(run.output)).text;
    EXPECT_THAT(text, HasSubstr("/tuned/gains.fits --script \"\" --output NEXT\n"));
    EXPECT_THAT(text, testing::ContainsRegex("surface, controlled +- ")) << "of two sets of gains at once";
    TuneOptions check;
    check.run = run.output;
    check.check = m_folder / "tuned" / "tune.json";
    EXPECT_THAT(Refusal(check), HasSubstr(" at its end; run with --gains and without its script: --script \"\""));
}

TEST_F(TuneTest, ARunOfPlayedFramesIsRefused)
{
    RunOptions recorded = test::ShortRun(m_folder, "recorded");
    recorded.record.es = true;
    test::RunInProcess(recorded);
    RunOptions played = test::ShortRun(m_folder, "played");
    played.play.es = recorded.output / "es.fits";
    test::RunInProcess(played);
    TuneOptions options;
    options.run = played.output;
    EXPECT_THAT(Refusal(options), HasSubstr("recorded frames were played back; tune from the run that recorded them"));
}

TEST_F(TuneTest, DemandsThatMakeNoSenseAreRefused)
{
    TuneOptions options;
    options.run = FirstRun();
    options.demands.phase_margin_deg = 95.0;
    EXPECT_EQ(Refusal(options), "--phase-margin: expected 1 to 89 deg but got 95");
    options.demands = {};
    options.demands.gain_margin_db = std::nan("");
    EXPECT_EQ(Refusal(options), "--gain-margin: expected 0.1 to 60 dB but got nan");
    options.demands = {};
    options.demands.sensitivity_peak = 1.0;
    EXPECT_EQ(Refusal(options), "--max-sensitivity: expected 1.01 to 100 but got 1");
    options.demands = {};
    options.demands.max_crossover_hz = 0.0;
    EXPECT_EQ(Refusal(options), "--max-crossover: expected 0.002 to 2500 Hz but got 0");
    options.demands = {};
    options.check = "tune.json";
    options.output = "tuned";
    EXPECT_EQ(Refusal(options),
              "--check: expected no --output, --overwrite or --from besides: nothing is proposed then");
}

}  // namespace
}  // namespace lumo::ravelctl
