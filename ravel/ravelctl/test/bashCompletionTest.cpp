#include "bashCompletion.hpp"
#include "commandLine.hpp"
#include "support/childProcess.hpp"
#include "support/testFolder.hpp"
#include "support/textFile.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <sstream>

namespace lumo::ravelctl {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

class BashCompletionTest : public testing::Test
{
protected:
    BashCompletionTest() : m_script((m_folder / "ravelctl.bash").string())
    {
        test::WriteBytes(m_script, FormatBashCompletion(OutlineCommandLine()));
    }

    /// What bash offers for the last of the words, in a folder with a file a.fits, a folder "the run" and the script.
    std::vector<std::string> Complete(const std::vector<std::string>& words)
    {
        test::WriteBytes(m_folder / "a.fits", "");
        std::filesystem::create_directories(m_folder / "the run");
        std::vector<std::string> arguments = {"/bin/bash",
                                              "-c",
                                              "set -u; . \"$1\"; cd \"${1%/*}\"; shift; COMP_WORDS=(\"$@\"); "
                                              "COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _ravelctl; "
                                              "for word in \"${COMPREPLY[@]}\"; do printf '%s\\n' \"$word\"; done",
                                              "bash",
                                              m_script,
                                              "ravelctl"};
        arguments.insert(arguments.end(), words.begin(), words.end());
        const test::ChildProcess::Result result = test::RunChild(arguments);
        EXPECT_EQ(result.status, 0) << result.err;
        EXPECT_EQ(result.err, "");
        std::vector<std::string> offered;
        std::istringstream lines(result.out);
        for (std::string line; std::getline(lines, line);) {
            offered.push_back(line);
        }
        return offered;
    }

private:
    test::TestFolder m_folder;
    std::string m_script;
};

std::vector<std::string> NamesOf(const CommandOutline& command)
{
    std::vector<std::string> names;
    for (const OptionOutline& option : command.options) {
        names.insert(names.end(), option.names.begin(), option.names.end());
    }
    return names;
}

TEST_F(BashCompletionTest, TheFirstWordIsACommandOrAnOptionOfTheProgram)
{
    const ProgramOutline program = OutlineCommandLine();
    std::vector<std::string> expected = NamesOf(program.program);
    std::transform(program.commands.begin(), program.commands.end(), std::back_inserter(expected),
                   [](const CommandOutline& command) { return command.name; });
    EXPECT_THAT(Complete({""}), testing::UnorderedElementsAreArray(expected));
    EXPECT_THAT(Complete({"doc"}), ElementsAre("doctor"));
}

TEST_F(BashCompletionTest, EveryOptionOfEveryCommandIsOffered)
{
    for (const CommandOutline& command : OutlineCommandLine().commands) {
        EXPECT_THAT(Complete({command.name, "-"}), testing::UnorderedElementsAreArray(NamesOf(command)))
            << command.name;
    }
}

TEST_F(BashCompletionTest, EveryValueIsOfferedAsItsKindWants)
{
    for (const CommandOutline& command : OutlineCommandLine().commands) {
        for (const OptionOutline& option : command.options) {
            if (option.value.empty()) {
                continue;
            }
            const std::vector<std::string> offered = Complete({command.name, option.names.back(), ""});
            switch (option.kind) {
                case ValueKind::File:
                    EXPECT_THAT(offered, UnorderedElementsAre("a.fits", "the run", "ravelctl.bash"));
                    break;
                case ValueKind::Folder:
                    EXPECT_THAT(offered, ElementsAre("the run"));
                    break;
                case ValueKind::OneOf:
                case ValueKind::SomeOf:
                    EXPECT_EQ(offered, option.values);
                    break;
                case ValueKind::Other:
                    EXPECT_THAT(offered, IsEmpty()) << command.name << " " << option.names.back();
                    break;
            }
        }
    }
}

TEST_F(BashCompletionTest, AnArgumentIsAFileAFolderOrAValue)
{
    EXPECT_THAT(Complete({"inspect", "a"}), ElementsAre("a.fits"));
    EXPECT_THAT(Complete({"inspect", "a.fits", "--statistics", "a"}), ElementsAre("a.fits"));
    EXPECT_THAT(Complete({"replay", ""}), ElementsAre("the run"));
    EXPECT_THAT(Complete({"make-modulation", "s"}), ElementsAre("sine", "step"));
    EXPECT_THAT(Complete({"run", "a"}), ElementsAre("a.fits"));
    EXPECT_THAT(Complete({"doctor", ""}), IsEmpty());
}

TEST_F(BashCompletionTest, OfValuesWithCommasTheLastIsCompleted)
{
    EXPECT_THAT(Complete({"run", "--record", "modes,p"}), ElementsAre("modes,pact"));
    EXPECT_THAT(Complete({"run", "--record", "es,modes,"}), Contains("es,modes,pact"));
}

TEST_F(BashCompletionTest, AValueAfterAnEqualsSignIsAsOneAfterABlank)
{
    EXPECT_THAT(Complete({"replay", "--output", "="}), Contains("a.fits"));  // as bash splits --output=
    EXPECT_THAT(Complete({"replay", "--output", "=", "a"}), ElementsAre("a.fits"));
}

TEST_F(BashCompletionTest, WhereAValueMayBeMissingAnOptionMayFollow)
{
    EXPECT_THAT(Complete({"run", "--record-last", "--qui"}), ElementsAre("--quiet"));
    EXPECT_THAT(Complete({"run", "--modes", "--qui"}), IsEmpty());
}

TEST_F(BashCompletionTest, AnUnknownCommandOffersNothing)
{
    EXPECT_THAT(Complete({"fly", "-"}), IsEmpty());
}

}  // namespace
}  // namespace lumo::ravelctl
