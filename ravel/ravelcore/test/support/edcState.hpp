#pragma once

#include <lumo/ravelcore/taskEdc.hpp>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace lumo::ravelcore::test {

/// Everything that can be seen of a TaskEdc and its recorders, as bit patterns under the members' names, so that two
/// moments can be compared exactly, NaN and the sign of zero included.
using EdcState = std::map<std::string, std::vector<std::uint64_t>>;
EdcState StateOf(const TaskEdc& task);

/// What stands in one of the two states only, by name; empty for equal states.
std::vector<std::string> Differences(const EdcState& one, const EdcState& other);

}  // namespace lumo::ravelcore::test
