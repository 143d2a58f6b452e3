#include "wholeFile.hpp"

#include "passingFolder.hpp"

#include <fstream>
#include <system_error>

namespace lumo::ravelctl {

namespace fs = std::filesystem;

void WriteWhole(const fs::path& file, const std::function<void(const fs::path&)>& write)
{
    const PassingFolder folder(file.parent_path());  // a folder, because who writes may use passing names as well
    const fs::path part = folder.GetPath() / file.filename();  // the name may say how to write, as ".gz" does
    write(part);
    std::error_code error;
    fs::rename(part, file, error);
    if (error) {
        throw std::system_error(error, "what was written cannot be given this name");
    }
}

void WriteWholeText(const fs::path& file, const std::string& text)
{
    WriteWhole(file, [&text](const fs::path& part) {
        std::ofstream stream;
        stream.exceptions(std::ios::failbit | std::ios::badbit);
        stream.open(part, std::ios::binary);
        stream << text;
        stream.close();
    });
}

}  // namespace lumo::ravelctl
