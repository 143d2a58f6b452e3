#include "error.hpp"
#include "script.hpp"
#include "support/testFolder.hpp"
#include "support/textFile.hpp"
#include "support/thrown.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>

namespace lumo::ravelctl {
namespace {

using test::ThrownLine;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::StartsWith;

constexpr int NUM_MODES = 20;
constexpr double DURATION_S = 20.0;

// Everything that a script can say.
constexpr const char* EXAMPLE = R"(# times are seconds from the run's first cycle, ascending
[[at]]
time = 10.0
gains = { kp = 0.9, ki = 40.0 }                      # every mode

[[at]]
time = 12
gains = { modes = "0,3,10-19", kp = 0.5 }
references = { modes = [5, 6], value = 0.1 }         # um

[[at]]
time = 14.0
pdc = { modes = 3, value = 0.0 }                     # replaced by the value: out of the loop

[[at]]
time = 15.0
pdc = { modes = 3, release = true }                  # given back
p2edc = "other.fits"
pact2modes = "in.fits"
modes2pact = "/data/out.fits"
gains = { file = "gains.fits" }
references = { file = "references.fits" }

[[at]]
time = 16.0
fdc = { modes = "all", value = 0.2 }
save = "first"
)";

constexpr const char* GAIN_NAMES = "kp, ki, kd, karw, bp, tt, n, ulow, uhigh, freq";

class ScriptTest : public testing::Test
{
protected:
    std::vector<ScriptStep> Load(const std::string& text) const
    {
        test::WriteBytes(m_file, text);
        return LoadScript(m_file, NUM_MODES, DURATION_S);
    }

    /// A step at 1 s that makes this change.
    ScriptStep LoadChange(const std::string& change) const { return Load("[[at]]\ntime = 1\n" + change + "\n").at(0); }

    /// The message without the folder of the file.
    std::string Refusal(const std::string& text) const
    {
        const std::string line = ThrownLine<InputError>([&] { Load(text); });
        const std::string folder = m_folder.GetPath().string() + "/";
        EXPECT_THAT(line, StartsWith(folder + "script.toml:"));
        return line.substr(std::min(folder.size(), line.size()));
    }

    /// The message about a change on line 3, from its column on.
    std::string ChangeRefusal(const std::string& change) const
    {
        const std::string line = Refusal("[[at]]\ntime = 1\n" + change + "\n");
        const std::string place = "script.toml:3:";
        EXPECT_THAT(line, StartsWith(place));
        return line.substr(std::min(place.size(), line.size()));
    }

    const test::TestFolder m_folder;
    const std::filesystem::path m_file = m_folder / "script.toml";
};

std::vector<int> AllModes()
{
    std::vector<int> modes(NUM_MODES);
    std::iota(modes.begin(), modes.end(), 0);
    return modes;
}

TEST_F(ScriptTest, EverythingThatAScriptCanSayIsRead)
{
    const std::vector<ScriptStep> sut = Load(EXAMPLE);
    ASSERT_EQ(sut.size(), 5U);

    EXPECT_EQ(sut[0].time_s, 10.0);
    EXPECT_EQ(sut[0].line, 2);
    ASSERT_TRUE(sut[0].gains.has_value());
    EXPECT_EQ(sut[0].gains->modes, AllModes());
    EXPECT_THAT(sut[0].gains->params, ElementsAre(Pair(0, 0.9F), Pair(1, 40.0F)));
    EXPECT_FALSE(sut[0].references || sut[0].pdc || sut[0].fdc);
    EXPECT_EQ(sut[0].gains_file.string() + sut[0].references_file.string() + sut[0].p2edc.string() +
                  sut[0].pact2modes.string() + sut[0].modes2pact.string() + sut[0].save,
              "");

    EXPECT_EQ(sut[1].time_s, 12.0);
    EXPECT_EQ(sut[1].line, 6);
    ASSERT_TRUE(sut[1].gains && sut[1].references);
    EXPECT_THAT(sut[1].gains->modes, ElementsAre(0, 3, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19));
    EXPECT_THAT(sut[1].gains->params, ElementsAre(Pair(0, 0.5F)));
    EXPECT_THAT(sut[1].references->modes, ElementsAre(5, 6));
    EXPECT_EQ(sut[1].references->value_um, 0.1F);

    ASSERT_TRUE(sut[2].pdc.has_value());
    EXPECT_THAT(sut[2].pdc->modes, ElementsAre(3));
    EXPECT_TRUE(sut[2].pdc->replace);
    EXPECT_EQ(sut[2].pdc->value_um, 0.0F);

    EXPECT_EQ(sut[3].line, 15);
    ASSERT_TRUE(sut[3].pdc.has_value());
    EXPECT_THAT(sut[3].pdc->modes, ElementsAre(3));
    EXPECT_FALSE(sut[3].pdc->replace);
    EXPECT_FALSE(sut[3].gains || sut[3].references);
    EXPECT_EQ(sut[3].gains_file, m_folder / "gains.fits") << "beside the script";
    EXPECT_EQ(sut[3].references_file, m_folder / "references.fits");
    EXPECT_EQ(sut[3].p2edc, m_folder / "other.fits");
    EXPECT_EQ(sut[3].pact2modes, m_folder / "in.fits");
    EXPECT_EQ(sut[3].modes2pact, "/data/out.fits");

    EXPECT_FALSE(sut[4].pdc.has_value());
    ASSERT_TRUE(sut[4].fdc.has_value());
    EXPECT_EQ(sut[4].fdc->modes, AllModes());
    EXPECT_TRUE(sut[4].fdc->replace);
    EXPECT_EQ(sut[4].fdc->value_um, 0.2F);
    EXPECT_EQ(sut[4].save, "first");
}

TEST_F(ScriptTest, EveryStepIsDescribedInOneLine)
{
    std::vector<std::string> lines;
    const std::string folder = m_folder.GetPath().string() + "/";
    for (const ScriptStep& step : Load(EXAMPLE)) {
        std::string line = Describe(step, NUM_MODES);
        for (std::size_t place = line.find(folder); place != std::string::npos; place = line.find(folder)) {
            line.erase(place, folder.size());
        }
        lines.push_back(line);
    }
    EXPECT_THAT(lines,
                ElementsAre("gains of every mode: kp = 0.9, ki = 40",
                            "gains of modes 0,3,10-19: kp = 0.5; references of modes 5,6: 0.1 um",
                            "PDC replaces mode 3 by 0 um",
                            "gains from gains.fits; references from references.fits; PDC gives mode 3 back; P2EDC from "
                            "other.fits; PACT2MODES from in.fits; MODES2PACT from /data/out.fits",
                            "FDC replaces every mode by 0.2 um; saves what was recorded into first"));
}

TEST_F(ScriptTest, EveryParameterStandsInItsPlaceWhateverTheOrderInTheScript)
{
    const ScriptStep sut = LoadChange(
        "gains = { freq = 9, uhigh = 8, ulow = 7, n = 6, tt = 5, bp = 4, karw = 3, kd = 2, ki = 1, kp = 0.5 }");
    ASSERT_TRUE(sut.gains.has_value());
    EXPECT_THAT(sut.gains->params,
                ElementsAre(Pair(0, 0.5F), Pair(1, 1.0F), Pair(2, 2.0F), Pair(3, 3.0F), Pair(4, 4.0F), Pair(5, 5.0F),
                            Pair(6, 6.0F), Pair(7, 7.0F), Pair(8, 8.0F), Pair(9, 9.0F)));
    EXPECT_EQ(Describe(sut, NUM_MODES),
              "gains of every mode: kp = 0.5, ki = 1, kd = 2, karw = 3, bp = 4, tt = 5, n = 6, ulow = 7, uhigh = 8, "
              "freq = 9");
}

TEST_F(ScriptTest, ModesAreReadFromEveryNotationAscendingAndOnce)
{
    const auto modes = [this](const std::string& text) {
        return LoadChange("references = { modes = " + text + ", value = 1 }").references.value().modes;
    };
    EXPECT_THAT(modes("7"), ElementsAre(7));
    EXPECT_THAT(modes("'7'"), ElementsAre(7));
    EXPECT_THAT(modes("[9, 0, 9, 19]"), ElementsAre(0, 9, 19));
    EXPECT_THAT(modes("'9,0,9,18-19'"), ElementsAre(0, 9, 18, 19));
    EXPECT_EQ(modes("'all'"), AllModes());
    EXPECT_EQ(LoadChange("references = { value = 1 }").references.value().modes, AllModes());
    EXPECT_EQ(LoadChange("pdc = { value = 1 }").pdc.value().modes, AllModes());
    EXPECT_EQ(LoadChange("fdc = { release = true }").fdc.value().modes, AllModes());
}

TEST_F(ScriptTest, AScriptWithoutAStepIsNoMistake)
{
    EXPECT_THAT(Load(""), IsEmpty());
    EXPECT_THAT(Load("# [[at]]\n# time = 1\n"), IsEmpty());
}

TEST_F(ScriptTest, TheWholeRunIsThereForSteps)
{
    const std::vector<ScriptStep> sut = Load("[[at]]\ntime = 0\nsave = 'a'\n[[at]]\ntime = 20\nsave = 'b'\n");
    EXPECT_EQ(sut.at(0).time_s, 0.0);
    EXPECT_EQ(sut.at(1).time_s, 20.0);
}

TEST_F(ScriptTest, LimitsMayBeEqualAndTimesZero)
{
    EXPECT_NO_THROW(LoadChange("gains = { ulow = -1.5, uhigh = -1.5, kd = 0, tt = 0 }"));
    EXPECT_NO_THROW(LoadChange("gains = { kp = -1, ki = -1, karw = -1, bp = -1 }"));
}

TEST_F(ScriptTest, UnknownKeysAreRefusedWithTheKnownOnes)
{
    const std::string steps = "time, gains, references, pdc, fdc, p2edc, pact2modes, modes2pact, save";
    EXPECT_EQ(Refusal("[[att]]\ntime = 1\n"), "script.toml:1:3: unknown key 'att'; expected at; did you mean 'at'?");
    EXPECT_EQ(Refusal("[[at]]\ntiem = 1\nsave = 'a'\n"),
              "script.toml:2:1: unknown key 'tiem'; expected one of " + steps + "; did you mean 'time'?");
    EXPECT_EQ(ChangeRefusal("matrix = 'a.fits'"), "1: unknown key 'matrix'; expected one of " + steps);
    EXPECT_EQ(
        ChangeRefusal("gains = { kpp = 1 }"),
        std::string("11: unknown key 'kpp'; expected one of modes, file, ") + GAIN_NAMES + "; did you mean 'kp'?");
    EXPECT_EQ(ChangeRefusal("references = { modes = 1, values = 1 }"),
              "27: unknown key 'values'; expected one of modes, file, value; did you mean 'value'?");
    EXPECT_EQ(ChangeRefusal("pdc = { file = 'a.fits' }"),
              "9: unknown key 'file'; expected one of modes, value, release");
    EXPECT_EQ(ChangeRefusal("fdc = { mode = 1 }"),
              "9: unknown key 'mode'; expected one of modes, value, release; did you mean 'modes'?");
}

TEST_F(ScriptTest, WrongKindsAreRefused)
{
    EXPECT_EQ(Refusal("[at]\ntime = 1\n"), "script.toml:1:1: at: expected tables, each under [[at]], but got a table");
    EXPECT_EQ(Refusal("[[at]]\ntime = '10'\n"), "script.toml:2:8: time: expected a number of seconds but got a string");
    EXPECT_EQ(ChangeRefusal("gains = 0.9"), "9: gains: expected a table but got a floating-point number");
    EXPECT_EQ(ChangeRefusal("gains = { kp = '1' }"), "16: kp: expected a number but got a string");
    EXPECT_EQ(ChangeRefusal("gains = { tt = '1' }"), "16: tt: expected a number of seconds but got a string");
    EXPECT_EQ(ChangeRefusal("gains = { file = 1 }"), "18: file: expected the name of a file but got an integer");
    EXPECT_EQ(ChangeRefusal("references = 'r.fits'"), "14: references: expected a table but got a string");
    EXPECT_EQ(ChangeRefusal("references = { value = true }"), "24: value: expected a number of um but got a boolean");
    EXPECT_EQ(ChangeRefusal("pdc = 3"), "7: pdc: expected a table but got an integer");
    EXPECT_EQ(ChangeRefusal("fdc = { release = 1 }"), "19: release: expected true or false but got an integer");
    EXPECT_EQ(ChangeRefusal("p2edc = { file = 'a' }"), "9: p2edc: expected the name of a file but got a table");
    EXPECT_EQ(ChangeRefusal("pact2modes = ''"), "14: pact2modes: expected the name of a file but got ''");
    EXPECT_EQ(ChangeRefusal("modes2pact = 1"), "14: modes2pact: expected the name of a file but got an integer");
    EXPECT_EQ(ChangeRefusal("save = true"), "8: save: expected a string but got a boolean");
}

TEST_F(ScriptTest, TimesOutsideTheRunAreRefused)
{
    EXPECT_EQ(Refusal("[[at]]\nsave = 'a'\n"), "script.toml:1:1: time: expected a number of seconds but got none");
    EXPECT_EQ(Refusal("[[at]]\ntime = -0.5\n"), "script.toml:2:8: time: expected 0 to 20 seconds but got -0.5");
    EXPECT_EQ(Refusal("[[at]]\ntime = 20.5\n"), "script.toml:2:8: time: expected 0 to 20 seconds but got 20.5");
    EXPECT_EQ(Refusal("[[at]]\ntime = nan\n"),
              "script.toml:2:8: time: expected a finite number of seconds but got nan");
    EXPECT_EQ(Refusal("[[at]]\ntime = inf\n"),
              "script.toml:2:8: time: expected a finite number of seconds but got inf");
}

TEST_F(ScriptTest, TimesThatDoNotAscendAreRefused)
{
    const auto two = [](const std::string& first, const std::string& second) {
        return "[[at]]\ntime = " + first + "\nsave = 'a'\n[[at]]\ntime = " + second + "\nsave = 'b'\n";
    };
    EXPECT_EQ(Refusal(two("12", "11.5")),
              "script.toml:5:8: time: expected more than 12 seconds, the time of line 1, but got 11.5");
    EXPECT_EQ(Refusal(two("12", "12.0")),
              "script.toml:5:8: time: expected more than 12 seconds, the time of line 1, but got 12; put what happens "
              "at one time under one [[at]]");
}

TEST_F(ScriptTest, AStepThatChangesNothingIsRefused)
{
    EXPECT_EQ(Refusal("\n[[at]]\ntime = 1\n"),
              "script.toml:2:1: expected a change (gains, references, pdc, fdc, p2edc, pact2modes, modes2pact or save) "
              "but got none");
}

TEST_F(ScriptTest, ModesThatTheRunDoesNotHaveAreRefused)
{
    for (const std::string change : {"gains = { kp = 1, ", "references = { value = 1, ", "pdc = { value = 1, "}) {
        const std::string column = std::to_string(change.size() + 9);
        EXPECT_EQ(ChangeRefusal(change + "modes = 20 }"), column + ": modes: expected 0 to 19 but got 20");
        EXPECT_EQ(ChangeRefusal(change + "modes = -1 }"), column + ": modes: expected 0 to 19 but got -1");
        EXPECT_EQ(ChangeRefusal(change + "modes = '19-20' }"), column + ": modes: expected modes 0 to 19 but got 20");
    }
    EXPECT_EQ(ChangeRefusal("fdc = { value = 1, modes = [1, 20] }"), "32: modes: expected 0 to 19 but got 20");
}

TEST_F(ScriptTest, WhatIsNoListOfModesIsRefused)
{
    const auto refusal = [this](const std::string& modes) {
        return ChangeRefusal("pdc = { modes = " + modes + ", value = 1 }");
    };
    for (const std::string text : {"", "1,", "1;2", "-1", "All", "1-", "1.5"}) {
        EXPECT_EQ(refusal("'" + text + "'"),
                  "17: modes: expected a list of modes, such as 5 or 0,3,10-19, but got " + text);
    }
    EXPECT_EQ(refusal("'4-3'"), "17: modes: expected the smaller mode first but got 4-3");
    EXPECT_EQ(refusal("[]"), "17: modes: expected at least one integer but got an empty array");
    EXPECT_EQ(refusal("[1, '2-3']"), "21: modes: expected integers in the array but got a string");
    EXPECT_EQ(refusal("1.0"),
              "17: modes: expected a mode, an array of modes or a string such as \"0,3,10-19\" but got a "
              "floating-point number");
}

TEST_F(ScriptTest, AReplacementEitherTakesAValueOrGivesBack)
{
    for (const std::string name : {"pdc", "fdc"}) {
        const auto refusal = [&](const std::string& table) {
            return ChangeRefusal(name + " = " + table);
        };
        EXPECT_EQ(refusal("{ value = 1, release = true }"),
                  "7: " + name + ": expected either value or release = true but got both");
        EXPECT_EQ(refusal("{ modes = 1 }"), "7: " + name + ": expected either value or release = true but got neither");
        EXPECT_EQ(refusal("{ release = false }"), "19: release: expected true but got false; leave it out to replace");
        EXPECT_EQ(refusal("{ value = 1, release = false }"),
                  "30: release: expected true but got false; leave it out to replace");
    }
}

TEST_F(ScriptTest, AFileExcludesModesAndValues)
{
    EXPECT_EQ(ChangeRefusal("gains = { file = 'g.fits', modes = 1 }"),
              "9: gains: expected file alone but got modes besides");
    for (const std::string name : {"kp", "ki", "kd", "karw", "bp", "tt", "n", "ulow", "uhigh", "freq"}) {
        EXPECT_EQ(ChangeRefusal("gains = { file = 'g.fits', " + name + " = 1 }"),
                  "9: gains: expected file alone but got " + name + " besides");
    }
    EXPECT_EQ(ChangeRefusal("references = { file = 'r.fits', modes = 1 }"),
              "14: references: expected file alone but got modes besides");
    EXPECT_EQ(ChangeRefusal("references = { file = 'r.fits', value = 1 }"),
              "14: references: expected file alone but got value besides");
}

TEST_F(ScriptTest, ATableThatGivesNothingIsRefused)
{
    for (const char* change : {"gains = {}", "gains = { modes = 1 }"}) {
        EXPECT_EQ(ChangeRefusal(change),
                  std::string("9: gains: expected file or at least one of ") + GAIN_NAMES + " but got none");
    }
    for (const char* change : {"references = {}", "references = { modes = 1 }"}) {
        EXPECT_EQ(ChangeRefusal(change), "14: references: expected file or value but got none");
    }
}

TEST_F(ScriptTest, NumbersThatTheLoopCannotHoldAreRefused)
{
    for (const std::string name : {"kp", "ki", "karw", "bp", "n"}) {
        const std::string column = std::to_string(name.size() + 14);
        EXPECT_EQ(ChangeRefusal("gains = { " + name + " = nan }"),
                  column + ": " + name + ": expected a finite number but got nan");
        EXPECT_EQ(ChangeRefusal("gains = { " + name + " = 1e39 }"),
                  column + ": " + name + ": expected a number of single precision but got 1e+39");
    }
    EXPECT_EQ(ChangeRefusal("gains = { uhigh = inf }"), "19: uhigh: expected a finite number of um but got inf");
    EXPECT_EQ(ChangeRefusal("gains = { freq = inf }"), "18: freq: expected a finite number of Hz but got inf");
    EXPECT_EQ(ChangeRefusal("references = { value = -inf }"), "24: value: expected a finite number of um but got -inf");
    EXPECT_EQ(ChangeRefusal("pdc = { value = nan }"), "17: value: expected a finite number of um but got nan");
    EXPECT_EQ(ChangeRefusal("fdc = { value = -1e39 }"),
              "17: value: expected a number of single precision but got -1e+39");
}

TEST_F(ScriptTest, GainsThatMakeNoSenseAreRefused)
{
    EXPECT_EQ(ChangeRefusal("gains = { kd = -1 }"), "16: kd: expected 0 seconds or above but got -1");
    EXPECT_EQ(ChangeRefusal("gains = { tt = -0.5 }"), "16: tt: expected 0 seconds or above but got -0.5");
    EXPECT_EQ(ChangeRefusal("gains = { n = -1 }"), "15: n: expected more than 0 but got -1");
    EXPECT_EQ(ChangeRefusal("gains = { n = 0 }"), "15: n: expected more than 0 but got 0");
    EXPECT_EQ(ChangeRefusal("gains = { freq = -30 }"), "18: freq: expected more than 0 Hz but got -30");
    EXPECT_EQ(ChangeRefusal("gains = { freq = 0.0 }"), "18: freq: expected more than 0 Hz but got 0");
    EXPECT_EQ(ChangeRefusal("gains = { uhigh = 1.5, ulow = 2 }"), "31: ulow: expected at most uhigh = 1.5 but got 2");
}

TEST_F(ScriptTest, ANameThatIsNoPlainFolderIsRefused)
{
    for (const std::string name : {"", ".", "..", "a/b", "/a", "a/"}) {
        EXPECT_EQ(ChangeRefusal("save = '" + name + "'"),
                  "8: save: expected the name of a folder, not a path, but got '" + name + "'");
    }
    EXPECT_EQ(ChangeRefusal("save = \"a\\u0000b\""),
              "8: save: expected the name of a folder, not a path, but got 'a?b'");
    for (const std::string name : {"es.fits", "summary.json", "config.toml"}) {
        EXPECT_EQ(ChangeRefusal("save = '" + name + "'"),
                  "8: save: expected the name of a folder, not of a file, but got '" + name + "'");
    }
    for (const std::string name : {"...", ".a", "a b", "first.2"}) {
        EXPECT_EQ(LoadChange("save = '" + name + "'").save, name);
    }
}

TEST_F(ScriptTest, NoTwoSavesGoIntoOneFolder)
{
    EXPECT_EQ(Refusal("[[at]]\ntime = 1\nsave = 'a'\n[[at]]\ntime = 2\nsave = 'b'\n[[at]]\ntime = 3\nsave = 'a'\n"),
              "script.toml:9:8: save: expected a name of its own but got 'a', the one of line 1");
}

TEST_F(ScriptTest, WhatIsNoTomlIsRefusedWithItsPlace)
{
    EXPECT_EQ(Refusal("[[at]]\ntime = = 3\n"),
              "script.toml:2:8: expected TOML but this value cannot be read: could not determine value type");
}

TEST_F(ScriptTest, AMissingScriptIsRefused)
{
    EXPECT_EQ(
        ThrownLine<InputError>([&] { LoadScript(m_folder / "none.toml", NUM_MODES, DURATION_S); }),
        "expected a TOML file but " + (m_folder / "none.toml").string() + " cannot be read: No such file or directory");
}

TEST_F(ScriptTest, OneModeOfManyIsNamedAndTheOnlyOneIsEveryMode)
{
    ScriptStep sut;
    sut.fdc = ReplacementChange{{0}, false, 0.0F};
    EXPECT_EQ(Describe(sut, 2), "FDC gives mode 0 back");
    EXPECT_EQ(Describe(sut, 1), "FDC gives every mode back");
}

}  // namespace
}  // namespace lumo::ravelctl
