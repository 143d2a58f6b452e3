#include "logSetup.hpp"

#include "error.hpp"

#include <fmt/core.h>
#include <log4cplus/asyncappender.h>
#include <log4cplus/configurator.h>
#include <log4cplus/consoleappender.h>
#include <log4cplus/layout.h>
#include <log4cplus/logger.h>

#include <fstream>
#include <memory>

namespace lumo::ravelctl {

namespace {

void SetUpDefault()
{
    constexpr unsigned QUEUE_LENGTH = 1000;  // lines; beyond that a worker would wait for the writer
    log4cplus::SharedAppenderPtr console(new log4cplus::ConsoleAppender(true, true));
    console->setLayout(std::make_unique<log4cplus::PatternLayout>("%D{%H:%M:%S.%q} %p %c: %m%n"));
    log4cplus::SharedAppenderPtr queue(new log4cplus::AsyncAppender(console, QUEUE_LENGTH));
    log4cplus::Logger root = log4cplus::Logger::getRoot();
    root.setLogLevel(log4cplus::WARN_LOG_LEVEL);
    root.addAppender(queue);
}

}  // namespace

void SetUpLogging(const std::filesystem::path& properties_file)
{
    if (properties_file.empty()) {
        SetUpDefault();
        return;
    }
    std::error_code ignored;
    const bool readable =
        std::filesystem::is_regular_file(properties_file, ignored) && std::ifstream(properties_file).good();
    if (!readable) {
        throw InputError(fmt::format("--log-config: expected a readable file of log4cplus properties but {} is none",
                                     properties_file.string()));
    }
    log4cplus::PropertyConfigurator::doConfigure(properties_file.string());
    if (log4cplus::Logger::getRoot().getAllAppenders().empty()) {
        throw InputError(fmt::format(
            "--log-config: expected an appender for log4cplus.rootLogger but {} gives none; see the guide's example",
            properties_file.string()));
    }
}

void ShutDownLogging()
{
    log4cplus::Logger::shutdown();
}

}  // namespace lumo::ravelctl
