#pragma once

#include "runOptions.hpp"
#include "runReport.hpp"
#include "support/testFolder.hpp"

#include <string>
#include <vector>

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

/// What a run records of its modes.
inline const std::vector<std::string> MODE_FILES = {"modes_in.fits", "modes_out.fits", "modes_ref.fits",
                                                    "modes_arw.fits"};

/// What a run that records its modes leaves, in the report's order: `before`, the recordings, the gains, its
/// description.
std::vector<std::string> FilesOfRun(const std::vector<std::string>& before = {},
                                    const std::vector<std::string>& gains = {"gains.fits"});

}  // namespace lumo::ravelctl::test
