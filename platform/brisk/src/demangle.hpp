#pragma once

#include <string>

namespace brisk {

/// The name of a type as people write it, from std::type_info::name(); what is no such name is returned as it is.
std::string Demangle(const char* mangled);

}  // namespace brisk
