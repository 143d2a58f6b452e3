#pragma once

#include "machineFacts.hpp"
#include "qualifyReport.hpp"
#include "reportData.hpp"

namespace lumo::ravelctl {

/// Everything that the page of a finished qualification shows. `facts`: what files tell is enough.
/// Thread: a slow one. Real time: no.
ReportData DescribeQualification(const QualifyReport& report, const MachineFacts& facts);

}  // namespace lumo::ravelctl
