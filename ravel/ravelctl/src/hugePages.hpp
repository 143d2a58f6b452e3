#pragma once

#include <cstddef>

namespace lumo::ravelctl {

/// How much of what was to be put into huge pages is there.
struct HugePages
{
    std::size_t wanted_bytes = 0;
    std::size_t granted_bytes = 0;
    int error = 0;  // errno value of the last refusal

    void Add(const HugePages& other);
};

/// Has the kernel put the pages that hold `data` together to huge ones: every block of 2 MB that holds some of it and
/// lies in one mapping. The contents stay as they are. Less than such a block is not worth it: nothing is wanted then.
/// Thread:    any, as long as nobody needs the data in time.
/// Real time: no.
HugePages PutIntoHugePages(const void* data, std::size_t bytes);

/// The same, with something in the place of the kernel: puts `bytes` from `address` together and answers 0 or an errno
/// value.
HugePages PutIntoHugePages(const void* data, std::size_t bytes, int (*collapse)(void* address, std::size_t bytes));

}  // namespace lumo::ravelctl
