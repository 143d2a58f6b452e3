#pragma once

#include <filesystem>

namespace lumo::ravelctl {

/// Sets up log4cplus: from a properties file where one is given, else warnings and worse to standard error.
/// The default is asynchronous, so that a worker's line does no I/O in the worker's thread. A file decides this itself:
/// without a log4cplus::AsyncAppender each line is written in the thread that says it, the workers' and the cycle's
/// too.
/// Failure: InputError for a file that cannot be read or that sets up no appender.
void SetUpLogging(const std::filesystem::path& properties_file);

/// Writes what is still queued. Nothing may log afterwards.
void ShutDownLogging();

}  // namespace lumo::ravelctl
