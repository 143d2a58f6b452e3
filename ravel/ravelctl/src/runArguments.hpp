#pragma once

#include "runOptions.hpp"

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace lumo::ravelctl {

// Half of 600 modes fits a core's cache where all of them do not, and two cores are what every machine has. A number
// that does not depend on the machine keeps the results of one seed the same to the last bit.
inline constexpr int DEFAULT_WORKERS = 2;

/// What the parser reads for `ravelctl run`.
struct RunArguments
{
    RunOptions options;  // what stands here is what is meant where nothing is said
    std::filesystem::path config;
    std::optional<int> workers;
    std::optional<int> slice_size;  // of a file; where there are workers besides, they were said on the command line
    std::vector<std::string> tones;
    std::vector<std::string> record;
    std::optional<std::string> record_last;
};

/// Tells the parser what the command takes. `arguments` must live as long as it parses.
void AddRunOptions(CLI::App& command, RunArguments& arguments);

/// The workers that were asked for, directly or by the size of their slices, or the default. Failure: InputError for a
/// size of which no number of workers makes slices.
int CountWorkers(const RunArguments& arguments);

/// What was read. Failure: InputError for what the parser alone does not understand.
RunOptions ReadRunOptions(const RunArguments& arguments);

/// "MODE:HZ:NM", as in "5:2.5:100". Failure: InputError, without the option's name.
mirrorsim::Tone ParseTone(const std::string& text);

/// Which of "modes", "es", "pact" are named. Failure: InputError, without the option's name.
void ParseRecorded(const std::vector<std::string>& names, RecordOptions& record);

}  // namespace lumo::ravelctl
