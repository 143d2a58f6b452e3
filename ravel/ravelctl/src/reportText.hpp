#pragma once

#include "reportData.hpp"

#include <vector>

namespace lumo::ravelctl {

/// The options and what follows from them, for people. Thread: a slow one, after the run.
std::vector<ParameterGroup> DescribeRun(const ReportSources& sources);

}  // namespace lumo::ravelctl
