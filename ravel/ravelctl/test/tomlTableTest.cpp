#include "error.hpp"
#include "support/testFolder.hpp"
#include "support/textFile.hpp"
#include "support/thrown.hpp"
#include "tomlTable.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

namespace lumo::ravelctl {
namespace {

using test::ThrownLine;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

/// Files that are named file.toml in messages: a folder's name in them would differ from run to run.
class TomlTableTest : public testing::Test
{
protected:
    TomlTable Read(const std::string& text) const
    {
        test::WriteBytes(m_file, text);
        return TomlTable::Open(m_file);
    }

    /// The message for what `read` refuses in a table of `text`, without the folder.
    std::string Refusal(const std::string& text, const std::function<void(TomlTable&)>& read) const
    {
        std::string line = ThrownLine<InputError>([&] {
            TomlTable sut = Read(text);
            read(sut);
        });
        const std::string folder = m_folder.GetPath().string() + "/";
        EXPECT_THAT(line, StartsWith(folder + "file.toml:"));
        return line.substr(std::min(folder.size(), line.size()));
    }

    const test::TestFolder m_folder;
    const std::filesystem::path m_file = m_folder / "file.toml";
};

TEST_F(TomlTableTest, EveryKindOfValueIsReadAsItIsWritten)
{
    TomlTable sut = Read(
        "number = -2.5\nwhole = 3\ncount = 0x10\nyes = true\nno = false\ntext = 'a \"b\"'\nfile = \"sub/x.fits\"\n"
        "one = 7\nmany = [3, 1,\n 3]\n");
    EXPECT_EQ(sut.GetNumber("number"), -2.5);
    EXPECT_EQ(sut.GetNumber("whole"), 3.0);
    EXPECT_EQ(sut.GetInteger("count", 0, 16), 16);
    EXPECT_EQ(sut.GetBool("yes"), true);
    EXPECT_EQ(sut.GetBool("no"), false);
    EXPECT_EQ(sut.GetString("text"), "a \"b\"");
    EXPECT_EQ(sut.GetPath("file"), "sub/x.fits");
    EXPECT_THAT(sut.GetIntegers("one", 0, 9).value(), ElementsAre(7));
    EXPECT_THAT(sut.GetIntegers("many", 0, 9).value(), ElementsAre(3, 1, 3));
    EXPECT_TRUE(sut.IsString("text"));
    EXPECT_FALSE(sut.IsString("one"));
    EXPECT_NO_THROW(sut.RefuseUnknownKeys());
}

TEST_F(TomlTableTest, AKeyThatIsNotThereGivesNoValue)
{
    TomlTable sut = Read("");
    EXPECT_FALSE(sut.Has("a"));
    EXPECT_FALSE(sut.IsString("a"));
    EXPECT_EQ(sut.GetNumber("a"), std::nullopt);
    EXPECT_EQ(sut.GetInteger("a", 0, 1), std::nullopt);
    EXPECT_EQ(sut.GetIntegers("a", 0, 1), std::nullopt);
    EXPECT_EQ(sut.GetBool("a"), std::nullopt);
    EXPECT_EQ(sut.GetString("a"), std::nullopt);
    EXPECT_EQ(sut.GetPath("a"), "");
    EXPECT_FALSE(sut.GetTable("a").has_value());
    EXPECT_TRUE(sut.GetTables("a").empty());
}

TEST_F(TomlTableTest, TablesAreFoundHoweverTheyAreWritten)
{
    for (const char* text : {"[a.b]\nc = 1\n", "[a]\nb.c = 1\n", "a = { b = { c = 1 } }\n", "a.b.c = 1\n"}) {
        TomlTable sut = Read(text);
        EXPECT_EQ(sut.GetTable("a").value().GetTable("b").value().GetInteger("c", 0, 1), 1) << text;
    }
    for (const char* text : {"[[a]]\nb = 0\n[[a]]\nb = 1\n", "a = [{ b = 0 }, { b = 1 }]\n"}) {
        TomlTable sut = Read(text);
        std::vector<TomlTable> tables = sut.GetTables("a");
        ASSERT_EQ(tables.size(), 2U) << text;
        EXPECT_EQ(tables[0].GetInteger("b", 0, 1), 0);
        EXPECT_EQ(tables[1].GetInteger("b", 0, 1), 1);
    }
}

TEST_F(TomlTableTest, ATableKnowsItsLine)
{
    TomlTable sut = Read("x = 1\n\n[[a]]\n# nothing\n[[a]]\n");
    EXPECT_EQ(sut.GetTables("a").at(0).GetLine(), 3);
    EXPECT_EQ(sut.GetTables("a").at(1).GetLine(), 5);
}

TEST_F(TomlTableTest, ATableOutlivesTheOneItWasFoundIn)
{
    std::optional<TomlTable> sut = Read("[a]\nb = 1\n").GetTable("a");
    EXPECT_EQ(sut.value().GetInteger("b", 0, 1), 1);
}

TEST_F(TomlTableTest, AWrongKindIsRefusedWithThePlaceOfTheValueAndBothKinds)
{
    const auto number = [](TomlTable& sut) {
        sut.GetNumber("a");
    };
    EXPECT_EQ(Refusal("a = '3'", number), "file.toml:1:5: a: expected a number but got a string");
    EXPECT_EQ(Refusal("\n  a = true", number), "file.toml:2:7: a: expected a number but got a boolean");
    EXPECT_EQ(Refusal("a = [1]", number), "file.toml:1:5: a: expected a number but got an array");
    EXPECT_EQ(Refusal("[a]", number), "file.toml:1:1: a: expected a number but got a table");
    EXPECT_EQ(Refusal("a = 2026-01-02", number), "file.toml:1:5: a: expected a number but got a date or time");
    EXPECT_EQ(Refusal("a = '3'", [](TomlTable& sut) { sut.GetNumber("a", {.low = {}, .high = {}, .unit = "um"}); }),
              "file.toml:1:5: a: expected a number of um but got a string");
    EXPECT_EQ(Refusal("a = 1.0", [](TomlTable& sut) { sut.GetInteger("a", 0, 1); }),
              "file.toml:1:5: a: expected an integer but got a floating-point number");
    EXPECT_EQ(Refusal("a = 1", [](TomlTable& sut) { sut.GetBool("a"); }),
              "file.toml:1:5: a: expected true or false but got an integer");
    EXPECT_EQ(Refusal("a = 1", [](TomlTable& sut) { sut.GetString("a"); }),
              "file.toml:1:5: a: expected a string but got an integer");
    EXPECT_EQ(Refusal("a = 1", [](TomlTable& sut) { sut.GetPath("a"); }),
              "file.toml:1:5: a: expected the name of a file but got an integer");
    EXPECT_EQ(Refusal("a = 1", [](TomlTable& sut) { sut.GetTable("a"); }),
              "file.toml:1:5: a: expected a table but got an integer");
}

TEST_F(TomlTableTest, WhatIsNoArrayOfTablesIsRefused)
{
    const auto tables = [](TomlTable& sut) {
        sut.GetTables("a");
    };
    EXPECT_EQ(Refusal("[a]", tables), "file.toml:1:1: a: expected tables, each under [[a]], but got a table");
    EXPECT_EQ(Refusal("a = [{}, 1]", tables),
              "file.toml:1:10: a: expected tables, each under [[a]], but got an integer");
}

TEST_F(TomlTableTest, WhatIsNoListOfIntegersIsRefusedAtTheElement)
{
    const auto integers = [](TomlTable& sut) {
        sut.GetIntegers("a", 0, 9);
    };
    EXPECT_EQ(Refusal("a = 'x'", integers),
              "file.toml:1:5: a: expected an integer or an array of integers but got a string");
    EXPECT_EQ(Refusal("a = [1,\n 2.0]", integers),
              "file.toml:2:2: a: expected integers in the array but got a floating-point number");
    EXPECT_EQ(Refusal("a = [1,\n 10]", integers), "file.toml:2:2: a: expected 0 to 9 but got 10");
    EXPECT_EQ(Refusal("a = []", integers), "file.toml:1:5: a: expected at least one integer but got an empty array");
    EXPECT_EQ(Refusal("a = 'x'", [](TomlTable& sut) { sut.GetIntegers("a", 0, 9, "modes"); }),
              "file.toml:1:5: a: expected modes but got a string");
}

TEST_F(TomlTableTest, UnsignedNumbersReachAllOfTheir64BitsAsDigits)
{
    TomlTable sut = Read("a = 0\nb = 9223372036854775807\nc = \"18446744073709551615\"\n");
    EXPECT_EQ(sut.GetUnsigned("a"), 0U);
    EXPECT_EQ(sut.GetUnsigned("b"), 9223372036854775807U);
    EXPECT_EQ(sut.GetUnsigned("c"), 18446744073709551615U);
    EXPECT_EQ(sut.GetUnsigned("d"), std::nullopt);
    const auto unsigned_number = [](TomlTable& table) {
        table.GetUnsigned("a");
    };
    EXPECT_EQ(Refusal("a = -1", unsigned_number), "file.toml:1:5: a: expected 0 or above but got -1");
    EXPECT_EQ(Refusal("a = 1.5", unsigned_number),
              "file.toml:1:5: a: expected an integer but got a floating-point number");
    EXPECT_EQ(Refusal("a = \"18446744073709551616\"", unsigned_number),
              "file.toml:1:5: a: expected an integer of at most 64 bits but got '18446744073709551616'");
    EXPECT_EQ(Refusal("a = \"7x\"", unsigned_number),
              "file.toml:1:5: a: expected an integer of at most 64 bits but got '7x'");
    EXPECT_EQ(Refusal("a = \"\"", unsigned_number),
              "file.toml:1:5: a: expected an integer of at most 64 bits but got ''");
}

TEST_F(TomlTableTest, ArraysOfStringsAreReadAndAnythingElseIsRefusedAtTheElement)
{
    TomlTable sut = Read("a = [\"x\", 'y z']\nb = []\n");
    EXPECT_THAT(sut.GetStrings("a", "letters").value(), ElementsAre("x", "y z"));
    EXPECT_TRUE(sut.GetStrings("b", "letters").value().empty());
    EXPECT_EQ(sut.GetStrings("c", "letters"), std::nullopt);
    const auto strings = [](TomlTable& table) {
        table.GetStrings("a", "letters");
    };
    EXPECT_EQ(Refusal("a = 'x'", strings), "file.toml:1:5: a: expected an array of letters but got a string");
    EXPECT_EQ(Refusal("a = ['x',\n 2]", strings),
              "file.toml:2:2: a: expected strings in the array of letters but got an integer");
}

TEST_F(TomlTableTest, NumbersOutOfRangeAreRefusedWithTheRange)
{
    const auto between = [](TomlTable& sut) {
        sut.GetNumber("a", {.low = 0.5, .high = 2.0, .unit = "seconds"});
    };
    EXPECT_EQ(Refusal("a = 2.25", between), "file.toml:1:5: a: expected 0.5 to 2 seconds but got 2.25");
    EXPECT_EQ(Refusal("a = 0", between), "file.toml:1:5: a: expected 0.5 to 2 seconds but got 0");
    EXPECT_EQ(Refusal("a = -1", [](TomlTable& sut) { sut.GetNumber("a", {.low = 0.0, .high = {}, .unit = "Hz"}); }),
              "file.toml:1:5: a: expected 0 Hz or above but got -1");
    EXPECT_EQ(Refusal("a = 1", [](TomlTable& sut) { sut.GetNumber("a", {.low = {}, .high = 0.0, .unit = ""}); }),
              "file.toml:1:5: a: expected 0 or below but got 1");
    const auto integer = [](TomlTable& sut) {
        sut.GetInteger("a", -3, 4);
    };
    EXPECT_EQ(Refusal("a = 5", integer), "file.toml:1:5: a: expected -3 to 4 but got 5");
    EXPECT_EQ(Refusal("a = -4", integer), "file.toml:1:5: a: expected -3 to 4 but got -4");
    EXPECT_EQ(Refusal("a = 4294967297", integer), "file.toml:1:5: a: expected -3 to 4 but got 4294967297");

    TomlTable ends = Read("low = 0.5\nhigh = 2\nfew = -3\nmany = 4\n");
    const NumberRange range{.low = 0.5, .high = 2.0, .unit = ""};
    EXPECT_EQ(ends.GetNumber("low", range), 0.5);
    EXPECT_EQ(ends.GetNumber("high", range), 2.0);
    EXPECT_EQ(ends.GetInteger("few", -3, 4), -3);
    EXPECT_EQ(ends.GetInteger("many", -3, 4), 4);
}

TEST_F(TomlTableTest, NumbersThatAreNotFiniteAreRefused)
{
    const auto number = [](TomlTable& sut) {
        sut.GetNumber("a", {.low = {}, .high = {}, .unit = "um"});
    };
    EXPECT_EQ(Refusal("a = nan", number), "file.toml:1:5: a: expected a finite number of um but got nan");
    EXPECT_EQ(Refusal("a = -inf", number), "file.toml:1:5: a: expected a finite number of um but got -inf");
}

TEST_F(TomlTableTest, APathThatNamesNoFileIsRefused)
{
    const auto path = [](TomlTable& sut) {
        sut.GetPath("a");
    };
    EXPECT_EQ(Refusal("a = ''", path), "file.toml:1:5: a: expected the name of a file but got ''");
    EXPECT_EQ(Refusal("a = \"x\\u0000y\"", path), "file.toml:1:5: a: expected the name of a file but got 'x?y'");
}

TEST_F(TomlTableTest, AKeyThatNobodyAskedForIsRefusedWithTheKnownOnes)
{
    const auto read = [](TomlTable& sut) {
        sut.Has("rate");
        sut.GetNumber("duration");
        sut.GetNumber("rate");
        sut.RefuseUnknownKeys();
    };
    EXPECT_EQ(Refusal("rate = 1\nlength = 2\n", read),
              "file.toml:2:1: unknown key 'length'; expected one of rate, duration");
    EXPECT_EQ(Refusal("x = 1\n", [](TomlTable& sut) { sut.RefuseUnknownKeys(); }),
              "file.toml:1:1: unknown key 'x'; expected an empty table");
    EXPECT_EQ(Refusal("x = 1\n",
                      [](TomlTable& sut) {
                          sut.GetBool("length");
                          sut.RefuseUnknownKeys();
                      }),
              "file.toml:1:1: unknown key 'x'; expected length");
}

TEST_F(TomlTableTest, OfSeveralUnknownKeysTheFirstInTheFileIsRefused)
{
    const auto refuse = [](TomlTable& sut) {
        sut.RefuseUnknownKeys();
    };
    EXPECT_THAT(Refusal("z = 1\na = 1\nm = 1\n", refuse), HasSubstr("file.toml:1:1: unknown key 'z'"));
    EXPECT_THAT(Refusal("a.b = 1\n[c]\n", [](TomlTable& sut) { sut.GetTable("a").value().RefuseUnknownKeys(); }),
                HasSubstr("file.toml:1:3: unknown key 'b'"));
}

TEST_F(TomlTableTest, TheNearestKnownKeyIsOfferedIfItIsNear)
{
    const auto offer = [this](const std::string& key) {
        const std::string line = Refusal(key + " = 1\n", [](TomlTable& sut) {
            for (const char* known : {"n", "kp", "ki", "time", "pact2modes", "modes2pact"}) {
                sut.Has(known);
            }
            sut.RefuseUnknownKeys();
        });
        const std::size_t at = line.find("; did you mean ");
        return at == std::string::npos ? "" : line.substr(at + 2);
    };
    EXPECT_EQ(offer("kpp"), "did you mean 'kp'?");
    EXPECT_EQ(offer("p"), "did you mean 'kp'?");
    EXPECT_EQ(offer("KI"), "");
    EXPECT_EQ(offer("tiem"), "did you mean 'time'?");
    EXPECT_EQ(offer("time_s"), "did you mean 'time'?");
    EXPECT_EQ(offer("pact2mode"), "did you mean 'pact2modes'?");
    EXPECT_EQ(offer("mode2pact"), "did you mean 'modes2pact'?");
    EXPECT_EQ(offer("x"), "");
    EXPECT_EQ(offer("duration"), "");
}

TEST_F(TomlTableTest, AReadersOwnRefusalNamesThePlaceOfTheValueOrOfTheTable)
{
    const char* const text = "[a]\nb = 1\n";
    EXPECT_EQ(Refusal(text, [](TomlTable& sut) { sut.GetTable("a").value().Refuse("b", "expected better"); }),
              "file.toml:2:5: b: expected better");
    EXPECT_EQ(Refusal(text, [](TomlTable& sut) { sut.GetTable("a").value().Refuse("c", "expected something"); }),
              "file.toml:1:1: c: expected something");
    EXPECT_EQ(Refusal(text, [](TomlTable& sut) { sut.GetTable("a").value().Refuse("expected more"); }),
              "file.toml:1:1: expected more");
}

TEST_F(TomlTableTest, WhatIsNoTomlIsRefusedWithItsPlace)
{
    const auto nothing = [](TomlTable& /*sut*/) {
    };
    EXPECT_EQ(Refusal("a = 1\nb = = 2\n", nothing),
              "file.toml:2:5: expected TOML but this value cannot be read: could not determine value type");
    EXPECT_THAT(Refusal("a = 1\na = 2\n", nothing),
                AllOf(HasSubstr("file.toml:2:"), HasSubstr("cannot redefine existing integer 'a'")));
    EXPECT_THAT(Refusal("a = \"x\ny\"\n", nothing),
                HasSubstr("file.toml:1:7: expected TOML but this string cannot be read: "));
    EXPECT_THAT(Refusal("a = 1\n\xFF = 2\n", nothing), HasSubstr("utf-8"));
    EXPECT_THAT(Refusal(std::string(1000, '\0'), nothing), HasSubstr("file.toml:1:1: "));
    EXPECT_THAT(Refusal("a = " + std::string(100'000, '['), nothing), HasSubstr("file.toml:1:"));
}

TEST_F(TomlTableTest, AMessageIsOneLineWhateverTheFileSays)
{
    EXPECT_EQ(Refusal("\"a\\nb\" = 1\n", [](TomlTable& sut) { sut.RefuseUnknownKeys(); }),
              "file.toml:1:1: unknown key 'a?b'; expected an empty table");
}

TEST_F(TomlTableTest, LinesMayEndAsOnOtherSystemsAndTheFileMayBeginWithAByteOrderMark)
{
    TomlTable sut = Read(
        "\xEF\xBB\xBF"
        "a = 1\r\n[b]\r\nc = 2\r\n");
    EXPECT_EQ(sut.GetInteger("a", 0, 9), 1);
    EXPECT_EQ(sut.GetTable("b").value().GetInteger("c", 0, 9), 2);
}

TEST_F(TomlTableTest, AFileLongerThanOneReadIsReadWhole)
{
    TomlTable sut = Read(std::string(100'000, '#') + "\na = 1\n");
    EXPECT_EQ(sut.GetInteger("a", 0, 9), 1);
}

TEST_F(TomlTableTest, AFileThatCannotBeReadIsRefusedWithTheReason)
{
    const std::string missing = (m_folder / "missing").string();
    EXPECT_EQ(ThrownLine<InputError>([&] { TomlTable::Open(missing); }),
              "expected a TOML file but " + missing + " cannot be read: No such file or directory");
    const std::string folder = m_folder.GetPath().string();
    EXPECT_EQ(ThrownLine<InputError>([&] { TomlTable::Open(folder); }),
              "expected a TOML file but " + folder + " cannot be read: Is a directory");
}

}  // namespace
}  // namespace lumo::ravelctl
