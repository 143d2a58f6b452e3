#include "inputPlace.hpp"

#include <brisk/helper.hpp>

#include <string>

namespace lumo::ravelctl {

std::filesystem::path LocateInput(const std::filesystem::path& input)
{
    const std::string found = brisk::Helper::FindFile(input.string());
    return std::filesystem::absolute(found.empty() ? input : std::filesystem::path(found));
}

}  // namespace lumo::ravelctl
