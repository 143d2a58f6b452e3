#pragma once

#include <log4cplus/appender.h>
#include <log4cplus/logger.h>
#include <log4cplus/loglevel.h>
#include <log4cplus/spi/loggingevent.h>

#include <functional>
#include <string>
#include <utility>

namespace lumo::ravelcore::test {

/// Calls a function with each message that is logged to one logger while the hook lives, in the thread that logs: lets
/// a test act between two steps of an operation. The function must not log to that logger at an enabled level.
/// Thread: construct and destroy it where nobody logs.
class LogHook
{
public:
    LogHook(const std::string& logger, log4cplus::LogLevel level, std::function<void(const std::string&)> on_message)
        : m_logger(log4cplus::Logger::getInstance(logger)),
          m_old_level(m_logger.getLogLevel()),
          m_old_additivity(m_logger.getAdditivity()),
          m_appender(new Appender(std::move(on_message)))
    {
        m_logger.addAppender(m_appender);
        m_logger.setAdditivity(false);
        m_logger.setLogLevel(level);
    }

    ~LogHook()
    {
        m_logger.setLogLevel(m_old_level);
        m_logger.setAdditivity(m_old_additivity);
        m_logger.removeAppender(m_appender);
    }

    LogHook(const LogHook&) = delete;
    LogHook& operator=(const LogHook&) = delete;

private:
    class Appender : public log4cplus::Appender
    {
    public:
        explicit Appender(std::function<void(const std::string&)> on_message) : m_on_message(std::move(on_message)) {}
        ~Appender() override { destructorImpl(); }
        void close() override { closed = true; }

    protected:
        void append(const log4cplus::spi::InternalLoggingEvent& event) override { m_on_message(event.getMessage()); }

    private:
        const std::function<void(const std::string&)> m_on_message;
    };

    log4cplus::Logger m_logger;
    log4cplus::LogLevel m_old_level;
    bool m_old_additivity;
    log4cplus::SharedAppenderPtr m_appender;
};

}  // namespace lumo::ravelcore::test
