#pragma once

#include <string>
#include <vector>

/// Commands that a person can give to get more out of a machine. One place for all messages.
namespace lumo::ravelctl::remedies {

/// A limit of the user's, such as "rtprio".
std::string UserLimit(const std::string& item, const std::string& value);

std::string RealTimePriority(int needed);
std::string LockedMemory();
std::string Governor();
std::string TransparentHugePages();

/// Arguments for the kernel, such as "isolcpus=2,3".
std::string KernelArguments(const std::string& arguments);

/// The CPUs of `online` to set aside: the upper half, but never the first one. "" where there are too few.
std::string CpusToSetAside(const std::vector<int>& online);

}  // namespace lumo::ravelctl::remedies
