#pragma once

#include <cctype>
#include <filesystem>
#include <fstream>
#include <string>

namespace lumo::ravelctl::test {

/// Threads of this process that a group has started, by their names: "worker0" and so on.
inline int CountWorkerThreads()
{
    int count = 0;
    for (const auto& thread : std::filesystem::directory_iterator("/proc/self/task")) {
        std::string name;
        std::getline(std::ifstream(thread.path() / "comm"), name);
        count += name.size() == 7 && name.rfind("worker", 0) == 0 && std::isdigit(name[6]) != 0 ? 1 : 0;
    }
    return count;
}

}  // namespace lumo::ravelctl::test
