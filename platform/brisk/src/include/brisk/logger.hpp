#pragma once

#include <brisk/export.hpp>

#include <sstream>
#include <string>
#include <string_view>

namespace brisk {

/// The stream logger: lines for the operator on standard output, next to and independent of log4cplus.
/// The settings hold for the whole process. They start as level 1 (errors and warnings), console on, remote off.
/// Thread:    any, several at once; each line comes out whole.
/// Real time: the settings and IsEnabled yes; Write no (formats and does I/O).
class BRISK_API Logger
{
public:
    static constexpr int LEVEL_ERROR = 0;
    static constexpr int LEVEL_WARNING = 1;
    static constexpr int LEVEL_INFO = 2;

    Logger() = delete;

    /// The highest level that is reported; below 0, none is.
    static void SetReportingLevel(int level) noexcept;
    static int GetReportingLevel() noexcept;

    static void SetConsoleOutput(bool enabled) noexcept;
    static bool GetConsoleOutput() noexcept;

    /// Whether lines should also go to a remote receiver. There is none here: the flag is kept for those who ask, and
    /// with the console off and this on, lines are composed and then go nowhere.
    static void SetRemoteOutput(bool enabled) noexcept;
    static bool GetRemoteOutput() noexcept;

    /// Whether a line of `level` is worth composing: the reporting level admits it and console or remote output is on.
    static bool IsEnabled(int level) noexcept;

    /// Writes the line "time level_word position message" to standard output, if console output is on.
    /// Time is local, as 2024-05-31T23:59:59.123456. The reporting level is the caller's affair (IsEnabled).
    /// Failure: std::bad_alloc; a line that standard output does not take is lost.
    static void Write(std::string_view level_word, std::string_view position, std::string_view message);
};

}  // namespace brisk

/// Writes a WARNING line with the source position of this line. `message` is what would follow `stream <<`; it is
/// evaluated only if the line is to be written.
#define BRISK_LOG_WARNING(message)                                                                    \
    do {                                                                                              \
        if (::brisk::Logger::IsEnabled(::brisk::Logger::LEVEL_WARNING)) {                             \
            std::ostringstream brisk_log_text;                                                        \
            brisk_log_text << message; /* NOLINT(bugprone-macro-parentheses): a chain */              \
            ::brisk::Logger::Write("WARNING", std::string(__FILE__) + ":" + std::to_string(__LINE__), \
                                   brisk_log_text.str());                                             \
        }                                                                                             \
    } while (false)
