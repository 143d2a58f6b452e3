#pragma once

#include <cstdlib>
#include <string>

namespace lumo::ravelctl {

/// A variable of the environment, empty where it is not set. Nobody changes the environment while threads run.
inline std::string Environment(const char* name)
{
    const char* const value = std::getenv(name);  // NOLINT(concurrency-mt-unsafe)
    return value == nullptr ? "" : value;
}

}  // namespace lumo::ravelctl
