#include "wholeFile.hpp"

#include <fmt/core.h>
#include <unistd.h>

#include <fstream>

namespace lumo::ravelctl {

void WriteWhole(const std::filesystem::path& file, const std::function<void(const std::filesystem::path&)>& write)
{
    // The name's end stays: it may say how to write, as ".gz" does.
    const std::filesystem::path part = fmt::format("{}.{}.part{}", file.string(), getpid(), file.extension().string());
    try {
        write(part);
        std::filesystem::rename(part, file);
    } catch (...) {
        std::error_code ignored;
        std::filesystem::remove(part, ignored);
        throw;
    }
}

void WriteWholeText(const std::filesystem::path& file, const std::string& text)
{
    WriteWhole(file, [&text](const std::filesystem::path& part) {
        std::ofstream stream;
        stream.exceptions(std::ios::failbit | std::ios::badbit);
        stream.open(part, std::ios::binary);
        stream << text;
        stream.close();
    });
}

}  // namespace lumo::ravelctl
