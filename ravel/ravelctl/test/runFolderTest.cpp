#include "error.hpp"
#include "replay.hpp"
#include "runFolder.hpp"
#include "support/quietLog.hpp"
#include "support/testFolder.hpp"
#include "support/textFile.hpp"
#include "support/thrown.hpp"

#include <lumo/ravelcore/utils.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <sstream>

namespace lumo::ravelctl {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using testing::HasSubstr;

constexpr int ROWS = 3;
constexpr int MODES = 2;

/// The files of a run of three cycles and two modes whose loop stayed open.
class RunFolderTest : public testing::Test
{
protected:
    RunFolderTest()
    {
        test::QuietLog();
        WriteSummary();
        Save("gains", 1, 20, std::vector<float>(20, 1.0F), {});
        for (const char* name : {"modes_in", "modes_out"}) {
            Save(name, ROWS, MODES, {1.0F, 2.0F, 3.0F, 4.0F, 5.0F, 6.0F});
        }
        for (const char* name : {"modes_ref", "modes_arw"}) {
            Save(name, ROWS, MODES, std::vector<float>(6, 0.0F));
        }
    }

    void WriteSummary() const { test::WriteBytes(m_folder / "summary.json", m_summary.dump()); }

    void Save(const std::string& name, int rows, int cols, const std::vector<float>& values,
              const std::vector<double>& timestamps = {0.0, 0.01, 0.02}) const
    {
        const fs::path file = m_folder / (name + ".fits");
        fs::remove(file);
        ravelcore::SaveMatrixToFitsBinTable(file.string(), name, rows, cols, timestamps, values);
    }

    std::string Refusal() const
    {
        return test::ThrownLine<InputError>([this] { RunFolder(m_folder.GetPath()); });
    }

    std::string RefusalOfModesIn() const
    {
        return test::ThrownLine<InputError>([this] { RunFolder(m_folder.GetPath()).LoadEveryCycle("modes_in"); });
    }

    std::string RefusalOfGains() const
    {
        return test::ThrownLine<InputError>([this] { RunFolder(m_folder.GetPath()).LoadGains(); });
    }

    const test::TestFolder m_folder;
    json m_summary = {{"cycles", ROWS},
                      {"open_loop_cycles", 3},
                      {"modes", MODES},
                      {"rate_hz", 100.0},
                      {"recorded", {{"what", {"modes"}}, {"decimation", 1}, {"last_s", nullptr}}},
                      {"gains", {{{"before_cycle", 0}, {"file", "gains.fits"}}}},
                      {"files", {"modes_in.fits"}}};
};

TEST_F(RunFolderTest, WhatTheRunLeftIsRead)
{
    const RunFolder sut(m_folder.GetPath());
    EXPECT_EQ(sut.GetCycles(), 3);
    EXPECT_EQ(sut.GetOpenCycles(), 3);
    EXPECT_EQ(sut.GetModes(), 2);
    EXPECT_EQ(sut.GetRateHz(), 100.0);
    const ModesRecording in = sut.LoadEveryCycle("modes_in");
    EXPECT_EQ(in.cols, 2);
    EXPECT_THAT(in.Row(1), testing::ElementsAre(3.0F, 4.0F));
    EXPECT_THAT(in.timestamps, testing::ElementsAre(0.0, 0.01, 0.02));
    ASSERT_EQ(sut.LoadGains().size(), 1U);
    EXPECT_EQ(sut.LoadGains()[0].before_cycle, 0);
    EXPECT_EQ(sut.LoadGains()[0].params, std::vector<float>(20, 1.0F));
}

TEST_F(RunFolderTest, WhatTheRunWentThroughIsRead)
{
    m_summary["first_judged_cycle"] = 2;
    m_summary["plant"] = {{"lag_coefficient", 0.5}, {"delay_cycles", 2}};
    m_summary["played"] = {{"es", "es.fits"}, {"pact", ""}};
    m_summary["controlled_rms_nm"] = {{"before", 9.0}, {"after", 3.5}};
    m_summary["script"] = {{{"before_cycle", -1}, {"redefines_modes", true}},  // it was refused
                           {{"before_cycle", 0}, {"redefines_modes", false}},
                           {{"before_cycle", 2}, {"redefines_modes", true}}};
    WriteSummary();
    const RunFolder sut(m_folder.GetPath());
    EXPECT_EQ(sut.GetFirstJudgedCycle(), 2);
    EXPECT_EQ(sut.GetPlant().lag_coefficient, 0.5);
    EXPECT_EQ(sut.GetPlant().delay_cycles, 2);
    EXPECT_EQ(sut.GetPlant().period_s, 0.01);
    EXPECT_TRUE(sut.WasPlayed());
    EXPECT_EQ(sut.GetSurfaceNm(), 3.5);
    EXPECT_EQ(sut.GetCyclesBeforeRedefinition(), 2);
}

TEST_F(RunFolderTest, WhatAnOlderVersionDidNotSayIsOnlyMissedWhereItIsNeeded)
{
    const RunFolder sut(m_folder.GetPath());
    EXPECT_FALSE(sut.WasPlayed());
    EXPECT_FALSE(sut.GetSurfaceNm());
    EXPECT_EQ(sut.GetCyclesBeforeRedefinition(), 3);
    EXPECT_EQ(test::ThrownLine<InputError>([&] { sut.GetPlant(); }),
              (m_folder / "summary.json").string() +
                  ": expected the plant but there is none; repeat the run if an older version made it");
}

TEST_F(RunFolderTest, APlantThatThereCannotBeIsRefused)
{
    const auto refusal = [this](double lag_coefficient, int delay_cycles) {
        m_summary["plant"] = {{"lag_coefficient", lag_coefficient}, {"delay_cycles", delay_cycles}};
        WriteSummary();
        return test::ThrownLine<InputError>([this] { RunFolder(m_folder.GetPath()).GetPlant(); });
    };
    const std::string file = (m_folder / "summary.json").string();
    EXPECT_EQ(refusal(0.0, 1), file + ": plant: lag_coefficient: expected more than 0, at most 1, but got 0");
    EXPECT_EQ(refusal(0.5, -1), file + ": plant: delay_cycles: expected 0 to 1000 but got -1");
}

TEST_F(RunFolderTest, OfALoopThatStayedOpenTheOutputsAreWhatWasMeasuredWhateverTheGains)
{
    std::ostringstream out;
    EXPECT_EQ(ReplayRun({m_folder.GetPath(), {{0, 2.0F}}, "1", {}, false}, out, out), EXIT_OK);
    EXPECT_EQ(out.str(),
              "replayed 3 cycles of 2 modes: every output equal to the last bit\n"
              "with kp = 2 for mode 1, what is measured being as recorded:\n"
              "the loop was not closed in this run, and with the loop open no output depends on the gains\n"
              "verdict                 reproduced\n");
}

TEST_F(RunFolderTest, AFolderWithoutARunIsRefused)
{
    fs::remove(m_folder / "summary.json");
    EXPECT_EQ(Refusal(),
              "expected the output folder of a run but " + m_folder.GetPath().string() + " holds no summary.json");
    fs::create_directory(m_folder / "summary.json");
    EXPECT_THAT(Refusal(), HasSubstr("holds no summary.json"));
}

TEST_F(RunFolderTest, ASummaryThatIsNoneIsRefusedWithItsName)
{
    for (const char* text : {"", "{", "[]", "{}", "7"}) {
        test::WriteBytes(m_folder / "summary.json", text);
        EXPECT_THAT(Refusal(), testing::AllOf(testing::StartsWith((m_folder / "summary.json").string() +
                                                                  ": expected the summary of a run but "),
                                              testing::Not(HasSubstr("json.exception"))))
            << text;
    }
}

TEST_F(RunFolderTest, ASummaryThatLacksSomethingOrSaysWhatCannotBeIsRefused)
{
    const json good = m_summary;
    for (const auto& item : good.items()) {
        m_summary = good;
        m_summary.erase(item.key());
        WriteSummary();
        EXPECT_THAT(Refusal(), HasSubstr("'" + item.key() + "'"));
    }
    const std::vector<std::pair<json, std::string>> bad = {
        {{{"cycles", 0}}, "cycles: expected 1 to 2147483647 but got 0"},
        {{{"cycles", 3'000'000'000}}, "cycles: expected 1 to 2147483647 but got 3000000000"},
        {{{"open_loop_cycles", -1}}, "open_loop_cycles: expected 0 or above but got -1"},
        {{{"modes", 0}}, "modes: expected 1 to 2390 but got 0"},
        {{{"modes", 2391}}, "modes: expected 1 to 2390 but got 2391"},
        {{{"rate_hz", 0.0}}, "rate_hz: expected more than 0 but got 0"},
        {{{"gains", json::array()}}, "gains: expected those with which the run began"},
        {{{"gains", {{{"before_cycle", 1}, {"file", "a"}}}}}, "gains: expected those with which the run began"},
        {{{"gains",
           {{{"before_cycle", 0}, {"file", "a"}},
            {{"before_cycle", 9}, {"file", "b"}},
            {{"before_cycle", 8}, {"file", "c"}}}}},
         "gains: expected cycles in ascending order"},
    };
    for (const auto& [change, complaint] : bad) {
        m_summary = good;
        m_summary.update(change);
        WriteSummary();
        EXPECT_EQ(Refusal(), (m_folder / "summary.json").string() + ": " + complaint);
    }
}

TEST_F(RunFolderTest, ARecordingThatIsNotTheRunsIsRefusedWithItsName)
{
    const std::string file = (m_folder / "modes_in.fits").string();
    const std::string repeat =
        ": the file is not as the run left it; repeat the run (" + (m_folder / "config.toml").string() + ")";
    Save("modes_in", 2, 2, {1.0F, 2.0F, 3.0F, 4.0F}, {0.0, 0.01});
    EXPECT_EQ(RefusalOfModesIn(), file + ": expected each of the run's 3 cycles but it has 2 rows" + repeat);
    Save("modes_in", 3, 2, std::vector<float>(6), {0.0, 0.01, 0.03});
    EXPECT_EQ(RefusalOfModesIn(), file + ": expected each of the run's 3 cycles but row 2 is of 0.03 s" + repeat);
    Save("modes_in", 3, 3, std::vector<float>(9));
    EXPECT_EQ(RefusalOfModesIn(), file + ": expected rows of 2 modes but they have 3");
    Save("modes_in", 3, 2, std::vector<float>(6), {});
    EXPECT_EQ(RefusalOfModesIn(), file + ": expected time stamps but there are none");
    test::WriteBytes(file, "no table");
    EXPECT_THAT(RefusalOfModesIn(), testing::StartsWith(file + ": "));
    fs::remove(file);
    EXPECT_EQ(RefusalOfModesIn(), file + ": expected each of the run's 3 cycles but it is not there" + repeat);
}

TEST_F(RunFolderTest, ARecordingThatLacksCyclesIsRefusedWithTheReasonAndTheRemedy)
{
    const std::string file = (m_folder / "modes_in.fits").string();
    const auto expected = [&](const std::string& flaw, const std::string& reason) {
        return file + ": expected each of the run's 3 cycles but " + flaw + ": " + reason;
    };
    const std::string repeat = "; repeat the run: ravelctl run " + (m_folder / "config.toml").string();
    const auto refusal = [this](const json& recorded) {
        m_summary["recorded"].update(recorded);
        WriteSummary();
        return RefusalOfModesIn();
    };
    Save("modes_in", 2, 2, {1.0F, 2.0F, 3.0F, 4.0F}, {0.01, 0.02});
    EXPECT_EQ(refusal({{"last_s", 0.02}}),
              expected("it has 2 rows", "the last 0.02 s were kept" + repeat + " --record-last none"));
    EXPECT_EQ(refusal({{"decimation", 3}}), expected("it has 2 rows", "one in 3 was recorded" + repeat +
                                                                          " --record-decimation 1 --record-last none"));
    fs::remove(file);
    EXPECT_EQ(refusal({{"what", {"es", "pact"}}, {"decimation", 1}, {"last_s", nullptr}}),
              expected("it is not there", "the modes were not recorded" + repeat + " --record modes,es,pact"));
}

TEST_F(RunFolderTest, TheLastSecondsThatAreTheWholeRunAreEveryCycle)
{
    m_summary["recorded"]["last_s"] = 5.0;
    WriteSummary();
    EXPECT_EQ(RunFolder(m_folder.GetPath()).LoadEveryCycle("modes_in").timestamps.size(), 3U);
}

TEST_F(RunFolderTest, GainsThatAreNotOneRowOfTenPerModeAreRefused)
{
    const std::string file = (m_folder / "gains.fits").string();
    Save("gains", 2, 20, std::vector<float>(40), {});
    EXPECT_EQ(RefusalOfGains(), file + ": expected one row but it has 2");
    Save("gains", 1, 30, std::vector<float>(30), {});
    EXPECT_THAT(RefusalOfGains(), HasSubstr("has dimension [1,30], expecting [1,20]"));
    fs::remove(file);
    EXPECT_THAT(RefusalOfGains(), HasSubstr(file));
}

}  // namespace
}  // namespace lumo::ravelctl
