#pragma once

#include <brisk/export.hpp>

namespace brisk {

/// What Assert calls when a condition does not hold. May return: the code after Assert copes with that.
/// It is called in the thread of the mistake, possibly in several at once.
using AssertHandler = void (*)(const char* file, const char* function, int line);

/// Reports a caller's mistake: on a false condition calls the handler, then returns.
/// Thread:    any.
/// Real time: yes while `condition` is true; otherwise as the handler. The default one formats and logs one FATAL line
/// on
///            log4cplus logger "brisk" and returns.
/// Failure:   what the handler throws passes through; the default one throws nothing.
BRISK_API void Assert(bool condition, const char* file, const char* function, int line);

/// Installs `handler` for the whole process and returns the previous one; nullptr stands for the default one.
/// Thread: any. Real time: yes. Failure: none.
BRISK_API AssertHandler SetAssertHandler(AssertHandler handler) noexcept;

}  // namespace brisk
