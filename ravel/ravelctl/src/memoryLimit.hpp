#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>

namespace lumo::ravelctl {

/// Bytes that the control groups of this process leave it, as a container or a service of systemd has them: the least
/// of limit less use, over its group and all above. File pages that the kernel can drop do not count as used. None
/// where there is no limit. Of control groups both versions; `root` stands for "/". Real time: no.
std::optional<std::uint64_t> MemoryLeftByGroups(const std::filesystem::path& root = "/");

}  // namespace lumo::ravelctl
