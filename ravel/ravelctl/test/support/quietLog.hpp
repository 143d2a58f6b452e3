#pragma once

#include <log4cplus/logger.h>

namespace lumo::ravelctl::test {

/// Switches off what the application's set-up of the log switches off. Left alone, log4cplus has DEBUG on.
inline void QuietLog()
{
    log4cplus::Logger::getRoot().setLogLevel(log4cplus::FATAL_LOG_LEVEL);
}

}  // namespace lumo::ravelctl::test
