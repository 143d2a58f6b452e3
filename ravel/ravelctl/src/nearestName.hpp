#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace lumo::ravelctl {

/// The known name that `name` was probably meant to be; "" where none is near.
std::string FindNearest(std::string_view name, const std::vector<std::string>& known);

}  // namespace lumo::ravelctl
