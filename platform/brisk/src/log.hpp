#pragma once

#include <log4cplus/logger.h>
#include <log4cplus/loggingmacros.h>

namespace brisk {

/// The framework's logger, "brisk". Looked up at each use: what is logged here is rare.
inline log4cplus::Logger GetLogger()
{
    return log4cplus::Logger::getInstance(LOG4CPLUS_TEXT("brisk"));
}

}  // namespace brisk
