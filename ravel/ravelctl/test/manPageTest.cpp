#include "commandLine.hpp"
#include "error.hpp"
#include "helpText.hpp"
#include "manPage.hpp"
#include "programNotes.hpp"
#include "support/childProcess.hpp"
#include "support/testFolder.hpp"
#include "support/textFile.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace lumo::ravelctl {
namespace {

using testing::HasSubstr;

/// As it is read, without what is written for the formatter.
std::string Unescape(std::string text)
{
    for (const auto& [code, letter] : {std::pair("\\-", "-"), std::pair("\\(aq", "'"), std::pair("\\(ti", "~"),
                                       std::pair("\\fB", ""), std::pair("\\fR", ""), std::pair("\\&", "")}) {
        for (std::size_t at = 0; (at = text.find(code, at)) != std::string::npos;) {
            text.replace(at, std::string(code).size(), letter);
        }
    }
    return text;
}

std::string Page()
{
    return FormatManPage(OutlineCommandLine(), "1.2.3");
}

TEST(ManPageTest, ItHasEveryOptionOfEveryCommandWithItsDescription)
{
    const std::string page = Unescape(Page());
    const ProgramOutline program = OutlineCommandLine();
    ASSERT_GE(program.commands.size(), 7U);
    for (const CommandOutline& command : program.commands) {
        const std::size_t begin = page.find("\n.SS ravelctl " + command.name + " ");
        ASSERT_NE(begin, std::string::npos) << command.name;
        const std::string section = page.substr(begin, page.find("\n.S", begin + 1) - begin);
        EXPECT_THAT(section, HasSubstr(command.description));
        for (const auto* list : {&command.arguments, &command.options}) {
            for (const OptionOutline& option : *list) {
                EXPECT_THAT(section, HasSubstr("\n.TP\n" + FormatName(option) + "\n" + option.description + "\n"));
            }
        }
    }
}

TEST(ManPageTest, ItHasTheCustomarySectionsAndTheirFacts)
{
    const std::string page = Unescape(Page());
    for (const char* section : {"NAME", "SYNOPSIS", "DESCRIPTION", "OPTIONS", "COMMANDS", "CONFIGURATION", "FILES",
                                "EXIT STATUS", "ENVIRONMENT", "EXAMPLES", "SEE ALSO"}) {
        EXPECT_THAT(page, HasSubstr(std::string("\n.SH ") + section + "\n"));
    }
    for (const ExitStatus& status : EXIT_STATUSES) {
        EXPECT_THAT(page, HasSubstr("\n.TP\n" + std::to_string(status.status) + "\n" + status.meaning + "\n"));
    }
    for (const ProgramNote& variable : ENVIRONMENT_VARIABLES) {
        EXPECT_THAT(page, HasSubstr(std::string("\n.TP\n") + variable.name + "\n" + variable.meaning + "\n"));
    }
    for (const char* example : NIGHT_EXAMPLES) {
        EXPECT_THAT(page, HasSubstr(example));
    }
    EXPECT_THAT(page, HasSubstr("ravelctl 1.2.3"));
}

TEST(ManPageTest, NoLineOfTextIsTakenForACommandOfTheFormatter)
{
    const ProgramOutline program{{"", "Do things", "", {}, {}},
                                 {{"do", "Do one", ".not a request\n  'nor this\n  .or this", {}, {}}}};
    const std::string page = FormatManPage(program, "1");
    EXPECT_THAT(page, HasSubstr("\n\\&.not a request\n"));
    EXPECT_THAT(page, HasSubstr("\n\\&  \\(aqnor this\n"));
    EXPECT_THAT(page, HasSubstr("\n\\&  .or this\n"));
}

TEST(ManPageTest, TheFormatterHasNothingToComplainOf)
{
    const std::string groff = "/usr/bin/groff";
    if (!std::filesystem::exists(groff)) {
        GTEST_SKIP() << "needs groff";
    }
    const test::TestFolder folder;
    const std::string file = (folder / "ravelctl.1").string();
    test::WriteBytes(file, Page());
    const test::ChildProcess::Result result = test::RunChild({groff, "-man", "-ww", "-z", "-Tutf8", file});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
}

TEST(ManPageTest, TheProgramPrintsItAndTheCompletion)
{
    const test::ChildProcess::Result page = test::RunChild({RAVELCTL_PROGRAM, "--man-page"});
    EXPECT_EQ(page.status, EXIT_OK);
    EXPECT_EQ(page.err, "");
    EXPECT_THAT(page.out, HasSubstr("\n.TH RAVELCTL 1 "));
    const test::ChildProcess::Result completion = test::RunChild({RAVELCTL_PROGRAM, "--bash-completion"});
    EXPECT_EQ(completion.status, EXIT_OK);
    EXPECT_EQ(completion.err, "");
    EXPECT_THAT(completion.out, HasSubstr("\ncomplete -F _ravelctl ravelctl\n"));
}

}  // namespace
}  // namespace lumo::ravelctl
