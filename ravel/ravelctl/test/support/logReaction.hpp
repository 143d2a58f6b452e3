#pragma once

#include <log4cplus/appender.h>
#include <log4cplus/logger.h>
#include <log4cplus/spi/loggingevent.h>

#include <functional>
#include <string>
#include <utility>

namespace lumo::ravelctl::test {

/// While it lives, the first thread in which the library logs a line with a certain text calls a function there: this
/// is how a test gets into the middle of what the library does. What the tasks say in every cycle stays off.
class LogReaction
{
public:
    LogReaction(std::string text, std::function<void()> react)
        : m_appender(new Appender(std::move(text), std::move(react)))
    {
        m_library.setLogLevel(log4cplus::DEBUG_LOG_LEVEL);
        m_library.setAdditivity(false);
        m_tasks.setLogLevel(log4cplus::WARN_LOG_LEVEL);
        m_library.addAppender(log4cplus::SharedAppenderPtr(m_appender.get()));
    }

    ~LogReaction()
    {
        m_library.removeAllAppenders();
        m_library.setAdditivity(true);
        m_library.setLogLevel(log4cplus::NOT_SET_LOG_LEVEL);
        m_tasks.setLogLevel(log4cplus::NOT_SET_LOG_LEVEL);
    }

    LogReaction(const LogReaction&) = delete;
    LogReaction& operator=(const LogReaction&) = delete;

    /// Once nobody logs any more.
    bool HasReacted() const { return m_appender->has_reacted; }

private:
    struct Appender : log4cplus::Appender
    {
        Appender(std::string wanted, std::function<void()> reaction)
            : text(std::move(wanted)), react(std::move(reaction))
        {
        }
        ~Appender() override { destructorImpl(); }
        void close() override {}
        void append(const log4cplus::spi::InternalLoggingEvent& event) override
        {
            if (!has_reacted && event.getMessage().find(text) != std::string::npos) {
                has_reacted = true;
                react();
            }
        }

        const std::string text;
        const std::function<void()> react;
        bool has_reacted = false;  // appenders are called one at a time
    };

    log4cplus::helpers::SharedObjectPtr<Appender> m_appender;
    log4cplus::Logger m_library = log4cplus::Logger::getInstance("ravelcore");
    log4cplus::Logger m_tasks = log4cplus::Logger::getInstance("ravelcore.TaskEdc");
};

}  // namespace lumo::ravelctl::test
