#pragma once

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>

namespace lumo::ravelctl::test {

/// A folder of its own for one test, removed with everything in it at the end.
class TestFolder
{
public:
    TestFolder()
    {
        std::string name = (std::filesystem::temp_directory_path() / "ravelctl-test-XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr) {
            throw std::runtime_error("cannot make a folder " + name);
        }
        m_path = name;
    }

    ~TestFolder()
    {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }

    TestFolder(const TestFolder&) = delete;
    TestFolder& operator=(const TestFolder&) = delete;

    const std::filesystem::path& GetPath() const { return m_path; }

    std::filesystem::path operator/(const std::string& name) const { return m_path / name; }

    /// Names of what is in the folder, not in its subfolders.
    std::size_t CountEntries() const
    {
        std::size_t count = 0;
        for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(m_path)) {
            ++count;
        }
        return count;
    }

private:
    std::filesystem::path m_path;
};

}  // namespace lumo::ravelctl::test
