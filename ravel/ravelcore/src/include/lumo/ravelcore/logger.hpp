#pragma once

#include <lumo/ravelcore/export.hpp>

#include <log4cplus/logger.h>
#include <log4cplus/loggingmacros.h>

#include <string>

namespace lumo::ravelcore {

/// The library's logger, log4cplus logger "ravelcore".
/// Tasks log to a logger of their own below it, "ravelcore." + name; workers to the one in their configuration.
/// Thread:    any; the first call creates it, guarded by the language.
/// Real time: yes, after the first call.
RAVELCORE_API log4cplus::Logger& GetLogger();

/// The text of an entry line: source path, blank, short function name, blank, line number. Real time: no (allocates).
RAVELCORE_API std::string EntryLineText(const char* file, const char* function, int line);

}  // namespace lumo::ravelcore

/// The TRACE line with which every constructor, destructor and public operation of the library begins. Nothing is
/// formatted while TRACE is off. Its text is not streamed: log4cplus streams into one buffer per thread, and an
/// accessor that is called inside another message would clear what stands there already.
#define RAVELCORE_TRACE_ENTRY(logger) \
    LOG4CPLUS_TRACE_STR((logger),     \
                        ::lumo::ravelcore::EntryLineText(__FILE__, static_cast<const char*>(__func__), __LINE__))
