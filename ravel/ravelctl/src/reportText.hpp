#pragma once

#include "machineFacts.hpp"
#include "reportData.hpp"

#include <vector>

namespace lumo::ravelctl {

/// The options and what follows from them, for people. Thread: a slow one, after the run.
std::vector<ParameterGroup> DescribeRun(const ReportSources& sources);

/// The machine: processor, system, memory, library of linear algebra. `facts`: what files tell is enough; what is
/// missing there is left out.
ParameterGroup DescribeMachine(const MachineFacts& facts, const std::string& blas);

}  // namespace lumo::ravelctl
