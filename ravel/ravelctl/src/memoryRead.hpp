#pragma once

#include <cstddef>
#include <cstdint>

namespace lumo::ravelctl {

/// Reads `size` bytes once as fast as this processor can, and returns all of them folded together with
/// exclusive or as words of 8 bytes (the last one filled up with zeros): what a product that reads the same bytes
/// cannot outrun by much. Thread: any. Real time: yes.
std::uint64_t ReadMemory(const void* memory, std::size_t size);

}  // namespace lumo::ravelctl
