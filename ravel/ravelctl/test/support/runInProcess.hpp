#pragma once

#include "runOptions.hpp"
#include "runReport.hpp"
#include "support/testFolder.hpp"

#include <string>

namespace lumo::ravelctl::test {

/// The result of a run in this process.
struct FinishedRun
{
    RunReport report;
    int status = -1;
    std::string text;  // what the user would have read
};

/// Options of a short run as fast as possible, with the matrices that the tests share, into a subfolder of `folder`.
RunOptions ShortRun(const TestFolder& folder, const std::string& name);

/// Runs the application as its main function does, but without signals. Failure: what the run throws.
FinishedRun RunInProcess(const RunOptions& options);

}  // namespace lumo::ravelctl::test
