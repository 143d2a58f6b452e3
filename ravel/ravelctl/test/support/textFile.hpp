#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

namespace lumo::ravelctl::test {

/// All bytes of a file.
inline std::string ReadBytes(const std::filesystem::path& file)
{
    std::ifstream stream(file, std::ios::binary);
    if (!stream) {
        throw std::runtime_error("cannot read " + file.string());
    }
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

inline void WriteBytes(const std::filesystem::path& file, const std::string& bytes)
{
    std::ofstream stream(file, std::ios::binary);
    stream << bytes;
    if (!stream.flush()) {
        throw std::runtime_error("cannot write " + file.string());
    }
}

}  // namespace lumo::ravelctl::test
