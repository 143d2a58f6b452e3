#include <brisk/logger.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <iomanip>
#include <map>
#include <thread>
#include <vector>

namespace brisk {

namespace {

/// Leaves the settings, which hold for the whole process, as it found them.
class LoggerTest : public testing::Test
{
protected:
    void TearDown() override
    {
        Logger::SetReportingLevel(m_level);
        Logger::SetConsoleOutput(m_console);
        Logger::SetRemoteOutput(m_remote);
    }

private:
    int m_level = Logger::GetReportingLevel();
    bool m_console = Logger::GetConsoleOutput();
    bool m_remote = Logger::GetRemoteOutput();
};

/// A zone that no test machine lives in, so that local time cannot pass for universal time.
class ForeignTimeZone
{
public:
    ForeignTimeZone()
    {
        setenv("TZ", "XYZ-05:30", 1);
        tzset();
    }
    ~ForeignTimeZone()
    {
        unsetenv("TZ");
        tzset();
    }
    ForeignTimeZone(const ForeignTimeZone&) = delete;
    ForeignTimeZone& operator=(const ForeignTimeZone&) = delete;
};

/// From the very clock of the logger: std::time() may lag behind it by a tick.
std::time_t GetSeconds()
{
    return std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
}

std::string CaptureWrite(const std::string& level_word, const std::string& position, const std::string& message)
{
    testing::internal::CaptureStdout();
    Logger::Write(level_word, position, message);
    return testing::internal::GetCapturedStdout();
}

}  // namespace

TEST_F(LoggerTest, SettingsStartAsWarningsOnTheConsole)
{
    EXPECT_EQ(Logger::GetReportingLevel(), Logger::LEVEL_WARNING);
    EXPECT_TRUE(Logger::GetConsoleOutput());
    EXPECT_FALSE(Logger::GetRemoteOutput());
    EXPECT_EQ(Logger::LEVEL_WARNING, 1);
}

TEST_F(LoggerTest, GettersReturnWhatTheSettersWereGiven)
{
    for (const bool on : {true, false, true}) {
        Logger::SetConsoleOutput(on);
        Logger::SetRemoteOutput(!on);
        EXPECT_EQ(Logger::GetConsoleOutput(), on);
        EXPECT_EQ(Logger::GetRemoteOutput(), !on);
    }
    for (const int level : {0, 7, -1}) {
        Logger::SetReportingLevel(level);
        EXPECT_EQ(Logger::GetReportingLevel(), level);
    }
}

TEST_F(LoggerTest, LineIsTimeLevelPositionAndMessageSeparatedByBlanks)
{
    const std::string output = CaptureWrite("WARNING", "mirror.cpp:42", "no mirror, nothing to see.");
    EXPECT_THAT(output, testing::MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{6} "
                                              "WARNING mirror\\.cpp:42 no mirror, nothing to see\\.\n"));
}

TEST_F(LoggerTest, TimeIsLocalTime)
{
    const ForeignTimeZone zone;
    const std::time_t before = GetSeconds();
    std::istringstream output(CaptureWrite("WARNING", "mirror.cpp:42", "text"));
    const std::time_t after = GetSeconds();

    std::tm local{};
    output >> std::get_time(&local, "%Y-%m-%dT%H:%M:%S");
    ASSERT_FALSE(output.fail());
    local.tm_isdst = -1;
    const std::time_t written = std::mktime(&local);
    EXPECT_LE(before, written);
    EXPECT_LE(written, after);
}

TEST_F(LoggerTest, NothingIsWrittenWhileTheConsoleIsOff)
{
    Logger::SetConsoleOutput(false);
    Logger::SetRemoteOutput(true);
    EXPECT_EQ(CaptureWrite("WARNING", "mirror.cpp:42", "text"), "");
}

TEST_F(LoggerTest, LineIsWorthComposingWhenTheLevelAdmitsItAndAnOutputIsOn)
{
    for (const int reporting_level : {0, 1, 2}) {
        for (const bool console : {false, true}) {
            for (const bool remote : {false, true}) {
                Logger::SetReportingLevel(reporting_level);
                Logger::SetConsoleOutput(console);
                Logger::SetRemoteOutput(remote);
                EXPECT_EQ(Logger::IsEnabled(Logger::LEVEL_WARNING), reporting_level >= 1 && (console || remote))
                    << reporting_level << console << remote;
            }
        }
    }
}

TEST_F(LoggerTest, WarningMacroWritesItsOwnPosition)
{
    testing::internal::CaptureStdout();
    BRISK_LOG_WARNING("Mirror " << 7 << " is empty.");
    const int line = __LINE__ - 1;
    const std::string output = testing::internal::GetCapturedStdout();
    const std::string expected =
        " WARNING " + std::string(__FILE__) + ":" + std::to_string(line) + " Mirror 7 is empty.\n";
    ASSERT_GT(output.size(), expected.size());
    EXPECT_EQ(output.substr(output.size() - expected.size()), expected);
}

TEST_F(LoggerTest, WarningMacroComposesNothingWhileTheLevelIsOff)
{
    int composed = 0;
    testing::internal::CaptureStdout();
    BRISK_LOG_WARNING("composed " << ++composed);
    Logger::SetReportingLevel(Logger::LEVEL_ERROR);
    BRISK_LOG_WARNING("composed " << ++composed);
    const std::string output = testing::internal::GetCapturedStdout();
    EXPECT_EQ(composed, 1);
    EXPECT_EQ(std::count(output.begin(), output.end(), '\n'), 1) << output;
}

TEST_F(LoggerTest, LinesOfSeveralThreadsComeOutWhole)
{
    constexpr int NUM_LINES = 250;
    const std::string letters = "abcd";

    testing::internal::CaptureStdout();
    {
        std::vector<std::jthread> writers;
        for (const char letter : letters) {
            writers.emplace_back([letter] {
                for (int line = 0; line < NUM_LINES; ++line) {
                    Logger::Write("WARNING", "x:1", std::string(300, letter));
                }
            });
        }
    }
    std::istringstream output(testing::internal::GetCapturedStdout());

    std::map<char, int> counts;
    for (std::string time, level, position, message; output >> time >> level >> position >> message;) {
        ASSERT_EQ(time.size(), 26U);
        ASSERT_EQ(level + position, "WARNINGx:1");
        ASSERT_EQ(message, std::string(300, message.at(0))) << "lines mixed";
        ++counts[message[0]];
    }
    EXPECT_TRUE(output.eof());
    EXPECT_EQ(counts, (std::map<char, int>{{'a', 250}, {'b', 250}, {'c', 250}, {'d', 250}}));
}

}  // namespace brisk
