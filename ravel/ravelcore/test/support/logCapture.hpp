#pragma once

#include <log4cplus/appender.h>
#include <log4cplus/logger.h>
#include <log4cplus/loglevel.h>

#include <mutex>
#include <string>
#include <vector>

namespace lumo::ravelcore::test {

/// One event that a LogCapture has seen.
struct LogEvent
{
    log4cplus::LogLevel level = log4cplus::NOT_SET_LOG_LEVEL;
    std::string logger;  ///< name of the logger that was written to, which may be a child of the captured one
    std::string message;
    std::string file;
    int line = 0;
    std::string function;  ///< as given to log4cplus: the full signature
};

/// Captures what is logged to one logger and its children while it lives, sets that logger's level and keeps the events
/// from other appenders; the destructor restores level and additivity.
/// Thread: construct, destroy and read it in one thread; any thread may log meanwhile.
class LogCapture
{
public:
    /// `logger` is a logger's name; "" is the root logger.
    explicit LogCapture(const std::string& logger, log4cplus::LogLevel level = log4cplus::TRACE_LOG_LEVEL);
    ~LogCapture();

    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    /// All events so far, oldest first.
    std::vector<LogEvent> Events() const;
    /// Events of one level so far, oldest first.
    std::vector<LogEvent> Events(log4cplus::LogLevel level) const;
    /// The messages of one level so far, oldest first.
    std::vector<std::string> Messages(log4cplus::LogLevel level) const;
    /// Forgets the events so far.
    void Clear();
    /// Changes the level of the captured logger.
    void SetLevel(log4cplus::LogLevel level);

private:
    class Appender;

    log4cplus::Logger m_logger;
    log4cplus::LogLevel m_old_level;
    bool m_old_additivity;
    Appender* m_appender;  // owned by m_appender_ptr
    log4cplus::SharedAppenderPtr m_appender_ptr;
};

}  // namespace lumo::ravelcore::test
