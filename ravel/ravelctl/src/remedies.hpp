#pragma once

#include "cpuTopology.hpp"

#include <string>

/// Commands that a person can give to get more out of a machine. One place for all messages.
namespace lumo::ravelctl::remedies {

/// A limit of the user's, such as "rtprio".
std::string UserLimit(const std::string& item, const std::string& value);

std::string RealTimePriority(int needed);
std::string LockedMemory();
std::string Governor();
std::string TransparentHugePages();

/// Arguments for the kernel, such as "isolcpus=2,3 nohz_full=2,3", in place of those of the same names; given again,
/// the command changes nothing.
std::string KernelArguments(const std::string& arguments);

/// The CPUs to set aside: every CPU of the upper half of the cores, but never the first core. "" where there are too
/// few. A core whose second thread does other work is not set aside.
std::string CpusToSetAside(const CpuTopology& topology);

}  // namespace lumo::ravelctl::remedies
