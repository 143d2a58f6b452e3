#pragma once

#include <log4cplus/appender.h>
#include <log4cplus/logger.h>
#include <log4cplus/spi/loggingevent.h>

#include <mutex>
#include <string>
#include <vector>

namespace brisk::test {

/// Keeps what is logged to log4cplus logger "brisk" while it lives, and keeps it off the screen.
class LogCapture
{
public:
    struct Line
    {
        log4cplus::LogLevel level;
        std::string message;
        std::string file;
        std::string function;
        int line;
    };

    LogCapture()
        : m_logger(log4cplus::Logger::getInstance("brisk")),
          m_lines(new Lines),
          m_appender(m_lines),
          m_old_level(m_logger.getLogLevel()),
          m_old_additivity(m_logger.getAdditivity())
    {
        m_logger.setLogLevel(log4cplus::ALL_LOG_LEVEL);
        m_logger.setAdditivity(false);
        m_logger.addAppender(m_appender);
    }

    ~LogCapture()
    {
        m_logger.removeAppender(m_appender);
        m_logger.setAdditivity(m_old_additivity);
        m_logger.setLogLevel(m_old_level);
    }

    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<Line> GetLines() const { return m_lines->Get(); }

private:
    class Lines : public log4cplus::Appender
    {
    public:
        ~Lines() override { destructorImpl(); }
        void close() override {}

        std::vector<Line> Get() const
        {
            const std::lock_guard lock(m_mutex);
            return m_lines;
        }

    protected:
        void append(const log4cplus::spi::InternalLoggingEvent& event) override
        {
            const std::lock_guard lock(m_mutex);
            m_lines.push_back(
                {event.getLogLevel(), event.getMessage(), event.getFile(), event.getFunction(), event.getLine()});
        }

    private:
        mutable std::mutex m_mutex;
        std::vector<Line> m_lines;
    };

    log4cplus::Logger m_logger;
    Lines* m_lines;  // owned by m_appender
    log4cplus::SharedAppenderPtr m_appender;
    log4cplus::LogLevel m_old_level;
    bool m_old_additivity;
};

}  // namespace brisk::test
