#include "error.hpp"
#include "htmlReport.hpp"
#include "runFiles.hpp"
#include "support/testFolder.hpp"
#include "support/textFile.hpp"
#include "support/thrown.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace lumo::ravelctl {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

class RunFilesTest : public testing::Test
{
protected:
    RunFilesTest() { m_options.output = m_folder.GetPath(); }

    void Put(const std::string& name) const
    {
        fs::create_directories((m_folder / name).parent_path());
        test::WriteBytes(m_folder / name, "{}");
    }

    void Check() const { CheckRunFolder(m_options, m_script); }

    std::string Refusal() const
    {
        return test::ThrownLine<InputError>([this] { Check(); });
    }

    /// Expects `name` to be in the run's way if it is there, unless it is to be replaced.
    void ExpectInTheWay(const std::string& name)
    {
        Put(name);
        EXPECT_THAT(Refusal(), HasSubstr("holds a " + name + " already, which the run would replace; choose another"));
        EXPECT_THAT(Refusal(), HasSubstr("or replace it with --overwrite"));
        m_options.overwrite = true;
        EXPECT_NO_THROW(Check()) << name;
        m_options.overwrite = false;
        fs::remove(m_folder / name);
        EXPECT_NO_THROW(Check()) << name;
    }

    void ExpectNotInTheWay(const std::string& name) const
    {
        Put(name);
        EXPECT_NO_THROW(Check()) << name;
        fs::remove(m_folder / name);
    }

    const test::TestFolder m_folder;
    RunOptions m_options;
    std::vector<ScriptStep> m_script;
};

TEST_F(RunFilesTest, AFolderThatHoldsARunIsRefusedUnlessItIsToBeReplaced)
{
    Put("summary.json");
    Put("gains.fits");
    EXPECT_THAT(Refusal(), HasSubstr("holds a run already; choose another folder, or replace that run with --over"));
    m_options.overwrite = true;
    EXPECT_NO_THROW(Check());
}

TEST_F(RunFilesTest, WhateverTheRunWouldReplaceIsInItsWay)
{
    m_options.record = {true, true, true, 1, {}};
    for (const char* name : {"modes_in.fits", "modes_out.fits", "modes_ref.fits", "modes_arw.fits", "es.fits",
                             "pact.fits", "gains.fits", "config.toml"}) {
        ExpectInTheWay(name);
    }
    if (!ReportTemplate().empty()) {
        ExpectInTheWay("report.html");
    }
}

TEST_F(RunFilesTest, WhatTheRunDoesNotWriteIsNotInItsWay)
{
    for (const char* name : {"notes.txt", "es.fits", "pact.fits", "gains-100.fits", "first/modes_in.fits"}) {
        ExpectNotInTheWay(name);
    }
}

TEST_F(RunFilesTest, WhatAScriptLetsTheRunWriteIsInItsWay)
{
    m_script.resize(1);
    m_script[0].save = "first";
    ExpectInTheWay("first/modes_in.fits");
    ExpectNotInTheWay("first/es.fits");
    ExpectNotInTheWay("gains-100.fits");
    m_script[0].gains_file = "other.fits";
    ExpectInTheWay("gains-100.fits");
    ExpectNotInTheWay("gains-.fits");
    ExpectNotInTheWay("gains-mine.fits");
}

TEST_F(RunFilesTest, ALinkThatLeadsNowhereIsInTheWayToo)
{
    fs::create_symlink(m_folder / "gone", m_folder / "config.toml");
    EXPECT_THAT(Refusal(), HasSubstr("holds a config.toml already"));
}

TEST_F(RunFilesTest, TheFolderOfSomethingElseIsRefusedInAnyCase)
{
    m_options.overwrite = true;
    Put("tune.json");
    EXPECT_THAT(Refusal(), HasSubstr("holds a proposal of gains (tune.json); choose another folder"));
    fs::remove(m_folder / "tune.json");
    Put("qualify.json");
    EXPECT_THAT(Refusal(), HasSubstr("holds a qualification (qualify.json); choose another folder"));
}

TEST_F(RunFilesTest, WhatTheRunIsMadeFromIsNotReplacedByIt)
{
    m_options.overwrite = true;
    const auto refuses = [this](fs::path& input, const std::string& name) {
        Put(name);
        input = m_folder / name;
        EXPECT_EQ(Refusal(), "--output: the run is made from " + input.string() +
                                 ", which it would replace; choose another folder, or copy that file");
        input.clear();
    };
    refuses(m_options.config, "config.toml");
    refuses(m_options.gains, "gains.fits");
    m_script.resize(1);
    refuses(m_script[0].references_file, "modes_ref.fits");
    Put("es.fits");
    m_options.play.es = m_folder / "es.fits";
    EXPECT_NO_THROW(Check()) << "nobody writes it";
    test::WriteBytes(m_folder / "summary.json", "{\"files\": [\"es.fits\"]}");
    EXPECT_THAT(Refusal(), HasSubstr("es.fits, which it would replace")) << "it would go with the old run";
}

TEST_F(RunFilesTest, OfAReplacedRunNothingStaysThatIsNotWrittenAgainAndOfAnythingElseEverything)
{
    for (const char* name : {"modes_in.fits", "es.fits", "first/es.fits", "notes.txt"}) {
        Put(name);
    }
    const test::TestFolder elsewhere;
    test::WriteBytes(elsewhere / "kept", "x");
    test::WriteBytes(m_folder / "summary.json",
                     "{\"files\": [\"modes_in.fits\", \"es.fits\", \"first/es.fits\", \"gone\", \"\", "
                     "7, \"../" +
                         elsewhere.GetPath().filename().string() + "/kept\", \"" + (elsewhere / "kept").string() +
                         "\"]}");
    RemoveStaleFiles(m_folder.GetPath(), ListFilesOfOldRun(m_folder.GetPath()), {"modes_in.fits", "summary.json"});
    EXPECT_EQ(m_folder.CountEntries(), 3U);
    for (const char* name : {"modes_in.fits", "notes.txt", "summary.json"}) {
        EXPECT_TRUE(fs::exists(m_folder / name)) << name;
    }
    EXPECT_TRUE(fs::exists(elsewhere / "kept"));
}

TEST_F(RunFilesTest, AFolderWithoutASummaryOrWithABrokenOneNamesNoFiles)
{
    Put("notes.txt");
    EXPECT_TRUE(ListFilesOfOldRun(m_folder.GetPath()).empty());
    test::WriteBytes(m_folder / "summary.json", "{\"files\": [");
    EXPECT_TRUE(ListFilesOfOldRun(m_folder.GetPath()).empty());
}

}  // namespace
}  // namespace lumo::ravelctl
