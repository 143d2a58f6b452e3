#include "log.hpp"

#include <brisk/assert.hpp>

#include <atomic>
#include <exception>
#include <sstream>

namespace brisk {

namespace {

void LogFailedAssertion(const char* file, const char* function, int line)
{
    file = file != nullptr ? file : "(unknown file)";
    function = function != nullptr ? function : "(unknown function)";
    try {
        auto logger = GetLogger();
        if (logger.isEnabledFor(log4cplus::FATAL_LOG_LEVEL)) {
            std::ostringstream text;
            text << "Assertion failed in " << function << " at " << file << ':' << line
                 << ". The function was called with what it does not accept in its present state; see its description.";
            // The event's place is that of the assertion, not this one.
            logger.forcedLog(log4cplus::FATAL_LOG_LEVEL, text.str(), file, line, function);
        }
    } catch (const std::exception&) {
        // Out of memory, or the process is ending: a report that cannot be written must not end what it reports on.
        return;
    }
}

constinit std::atomic<AssertHandler> g_handler{&LogFailedAssertion};
static_assert(decltype(g_handler)::is_always_lock_free);

}  // namespace

void Assert(bool condition, const char* file, const char* function, int line)
{
    if (!condition) {
        g_handler.load(std::memory_order_acquire)(file, function, line);
    }
}

AssertHandler SetAssertHandler(AssertHandler handler) noexcept
{
    // The release half hands over what the caller has prepared for its handler: pairs with the load in Assert().
    return g_handler.exchange(handler != nullptr ? handler : &LogFailedAssertion, std::memory_order_acq_rel);
}

}  // namespace brisk
