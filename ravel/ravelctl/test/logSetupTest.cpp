#include "error.hpp"
#include "logSetup.hpp"
#include "support/testFolder.hpp"
#include "support/textFile.hpp"
#include "support/thrown.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <log4cplus/asyncappender.h>
#include <log4cplus/logger.h>
#include <log4cplus/loggingmacros.h>

namespace lumo::ravelctl {
namespace {

using testing::HasSubstr;
using testing::Not;

class LogSetupTest : public testing::Test
{
protected:
    ~LogSetupTest() override { log4cplus::Logger::getRoot().removeAllAppenders(); }
};

TEST_F(LogSetupTest, APropertiesFileDecidesWhereLinesGo)
{
    const test::TestFolder folder;
    const std::string log = (folder / "run.log").string();
    test::WriteBytes(folder / "log.properties",
                     "log4cplus.rootLogger=INFO, F\n"
                     "log4cplus.appender.F=log4cplus::FileAppender\n"
                     "log4cplus.appender.F.File=" +
                         log + "\n");
    SetUpLogging(folder / "log.properties");
    LOG4CPLUS_INFO(log4cplus::Logger::getRoot(), "a line of information");
    LOG4CPLUS_DEBUG(log4cplus::Logger::getRoot(), "a line of detail");
    log4cplus::Logger::getRoot().removeAllAppenders();
    EXPECT_THAT(test::ReadBytes(log), HasSubstr("a line of information"));
    EXPECT_THAT(test::ReadBytes(log), Not(HasSubstr("a line of detail")));
}

TEST_F(LogSetupTest, AFileThatCannotBeReadIsRefused)
{
    const test::TestFolder folder;
    for (const std::filesystem::path& file : {folder / "missing", folder.GetPath()}) {
        const std::string line = test::ThrownLine<InputError>([&] { SetUpLogging(file); });
        EXPECT_THAT(line, HasSubstr("--log-config"));
        EXPECT_THAT(line, HasSubstr(file.string()));
    }
}

TEST_F(LogSetupTest, AFileThatSetsUpNoAppenderIsRefused)
{
    const test::TestFolder folder;
    test::WriteBytes(folder / "log.properties", "nothing=useful\n");
    const std::string line = test::ThrownLine<InputError>([&] { SetUpLogging(folder / "log.properties"); });
    EXPECT_THAT(line, HasSubstr("expected an appender"));
}

TEST_F(LogSetupTest, WithoutAFileWarningsAreOnAndInformationIsOff)
{
    SetUpLogging({});
    EXPECT_TRUE(log4cplus::Logger::getRoot().isEnabledFor(log4cplus::WARN_LOG_LEVEL));
    EXPECT_FALSE(log4cplus::Logger::getRoot().isEnabledFor(log4cplus::INFO_LOG_LEVEL));
    const log4cplus::SharedAppenderPtrList appenders = log4cplus::Logger::getRoot().getAllAppenders();
    ASSERT_EQ(appenders.size(), 1U);
    EXPECT_NE(dynamic_cast<log4cplus::AsyncAppender*>(appenders[0].get()), nullptr)
        << "a worker would write to the terminal itself";
}

}  // namespace
}  // namespace lumo::ravelctl
