#pragma once

#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

namespace lumo::ravelctl {

/// One parameter of control channels.
struct GainSetting
{
    int param = 0;  // its place in the library's packed order (pidFilter.hpp)
    float value = 0.0F;
};

/// What `ravelctl replay` can be told.
struct ReplayOptions
{
    std::filesystem::path run;     // its output folder
    std::vector<GainSetting> set;  // what would have been other than it was, from the first cycle to the last
    std::string modes;             // for which; all of them where it is empty
    std::filesystem::path output;  // for the outputs; no file where it is empty
    bool overwrite = false;        // replace that file
    bool quiet = false;            // the status alone tells
};

/// Computes the control channels of a run once more from what they were given, and compares their outputs with the
/// recorded ones bit for bit; with other gains, too, where some are set. What is measured stays as it was recorded: the
/// mirror would have followed other outputs. Writes one line per fact to `out`, and to `err` why the status it returns
/// is not EXIT_OK.
/// Thread: a slow one. Failure: InputError, RunError.
int ReplayRun(const ReplayOptions& options, std::ostream& out, std::ostream& err);

}  // namespace lumo::ravelctl
