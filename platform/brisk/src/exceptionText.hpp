#pragma once

#include <string>

namespace brisk {

/// What a person needs to know of the exception that is being handled: its type, message and, where it has one, place.
/// To be called in a catch block.
std::string DescribeCurrentException();

}  // namespace brisk
