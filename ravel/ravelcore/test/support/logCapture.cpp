#include "logCapture.hpp"

#include <log4cplus/spi/loggingevent.h>

namespace lumo::ravelcore::test {

class LogCapture::Appender : public log4cplus::Appender
{
public:
    ~Appender() override { destructorImpl(); }

    void close() override { closed = true; }

    std::vector<LogEvent> Events() const
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_events;
    }

    void Clear()
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_events.clear();
    }

protected:
    void append(const log4cplus::spi::InternalLoggingEvent& event) override
    {
        LogEvent seen{event.getLogLevel(), event.getLoggerName(), event.getMessage(),
                      event.getFile(),     event.getLine(),       event.getFunction()};
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_events.push_back(std::move(seen));
    }

private:
    mutable std::mutex m_mutex;
    std::vector<LogEvent> m_events;
};

namespace {

log4cplus::Logger LoggerNamed(const std::string& name)
{
    return name.empty() ? log4cplus::Logger::getRoot() : log4cplus::Logger::getInstance(name);
}

}  // namespace

LogCapture::LogCapture(const std::string& logger, log4cplus::LogLevel level)
    : m_logger(LoggerNamed(logger)),
      m_old_level(m_logger.getLogLevel()),
      m_old_additivity(m_logger.getAdditivity()),
      m_appender(new Appender),
      m_appender_ptr(m_appender)
{
    m_logger.addAppender(m_appender_ptr);
    m_logger.setAdditivity(false);
    m_logger.setLogLevel(level);
}

LogCapture::~LogCapture()
{
    m_logger.setLogLevel(m_old_level);
    m_logger.setAdditivity(m_old_additivity);
    m_logger.removeAppender(m_appender_ptr);
}

std::vector<LogEvent> LogCapture::Events() const
{
    return m_appender->Events();
}

std::vector<LogEvent> LogCapture::Events(log4cplus::LogLevel level) const
{
    std::vector<LogEvent> matching;
    for (LogEvent& event : m_appender->Events()) {
        if (event.level == level) {
            matching.push_back(std::move(event));
        }
    }
    return matching;
}

std::vector<std::string> LogCapture::Messages(log4cplus::LogLevel level) const
{
    std::vector<std::string> messages;
    for (LogEvent& event : Events(level)) {
        messages.push_back(std::move(event.message));
    }
    return messages;
}

void LogCapture::Clear()
{
    m_appender->Clear();
}

void LogCapture::SetLevel(log4cplus::LogLevel level)
{
    m_logger.setLogLevel(level);
}

}  // namespace lumo::ravelcore::test
