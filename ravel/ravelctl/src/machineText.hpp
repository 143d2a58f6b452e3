#pragma once

#include "machineFacts.hpp"

#include <string>

/// What is said of a machine in more than one place, in the same words: by the doctor, and by the page of a run.
namespace lumo::ravelctl {

inline constexpr const char* NOT_TOLD = "the system does not tell";

std::string DescribeGovernors(const MachineFacts& facts);

/// How many there are.
std::string DescribeNumaNodes(const MachineFacts& facts);

std::string DescribeHugePages(const MachineFacts& facts);

}  // namespace lumo::ravelctl
