#include <brisk/helper.hpp>

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <stdexcept>

namespace brisk {

namespace fs = std::filesystem;

namespace {

/// Each test has an empty folder of its own with the current directory "here", and no data path.
class HelperTest : public testing::Test
{
protected:
    void SetUp() override
    {
        std::string pattern = fs::temp_directory_path() / "briskHelperTestXXXXXX";
        if (mkdtemp(pattern.data()) == nullptr) {
            throw std::runtime_error("no temporary folder " + pattern);
        }
        m_root = pattern;
        fs::create_directory(m_root / "here");
        fs::current_path(m_root / "here");
        if (const char* const value = std::getenv("BRISK_DATA_PATH"); value != nullptr) {
            m_old_data_path = value;
        }
        unsetenv("BRISK_DATA_PATH");
    }

    void TearDown() override
    {
        fs::current_path(m_old_directory);
        fs::remove_all(m_root);
        if (m_old_data_path) {
            setenv("BRISK_DATA_PATH", m_old_data_path->c_str(), 1);
        } else {
            unsetenv("BRISK_DATA_PATH");
        }
    }

    /// Creates the file and its folder below the test's own; returns its absolute path.
    std::string CreateFile(const std::string& name) const
    {
        const fs::path path = m_root / name;
        fs::create_directories(path.parent_path());
        std::ofstream(path) << "data";
        return path;
    }

    std::string CreateFolder(const std::string& name) const
    {
        fs::create_directories(m_root / name);
        return m_root / name;
    }

    fs::path m_root;

private:
    fs::path m_old_directory = fs::current_path();
    std::optional<std::string> m_old_data_path;
};

}  // namespace

TEST_F(HelperTest, RegularFileExists)
{
    EXPECT_TRUE(Helper::FileExists(CreateFile("a.fits")));
}

TEST_F(HelperTest, MissingFileDoesNotExist)
{
    EXPECT_FALSE(Helper::FileExists(m_root / "a.fits"));
}

TEST_F(HelperTest, EmptyNameDoesNotExist)
{
    EXPECT_FALSE(Helper::FileExists(""));
}

TEST_F(HelperTest, DirectoryDoesNotExistAsAFile)
{
    EXPECT_FALSE(Helper::FileExists(CreateFolder("a.fits")));
}

TEST_F(HelperTest, DeviceDoesNotExistAsAFile)
{
    EXPECT_FALSE(Helper::FileExists("/dev/null"));
}

TEST_F(HelperTest, LinkExistsAsWhatItLeadsTo)
{
    fs::create_symlink(CreateFile("a.fits"), m_root / "link_to_file");
    fs::create_symlink(CreateFolder("folder"), m_root / "link_to_folder");
    fs::create_symlink(m_root / "missing", m_root / "link_to_nothing");

    EXPECT_TRUE(Helper::FileExists(m_root / "link_to_file"));
    EXPECT_FALSE(Helper::FileExists(m_root / "link_to_folder"));
    EXPECT_FALSE(Helper::FileExists(m_root / "link_to_nothing"));
}

TEST_F(HelperTest, NameThatTheSystemRefusesDoesNotExist)
{
    EXPECT_FALSE(Helper::FileExists(std::string(10000, 'x')));
}

TEST_F(HelperTest, AbsolutePathIsFoundAsItIs)
{
    const std::string path = CreateFile("a.fits");
    EXPECT_EQ(Helper::FindFile(path), path);
}

TEST_F(HelperTest, AbsolutePathOfNoFileIsNotFound)
{
    EXPECT_EQ(Helper::FindFile(m_root / "a.fits"), "");
}

TEST_F(HelperTest, AbsolutePathOfADirectoryIsNotFound)
{
    EXPECT_EQ(Helper::FindFile(CreateFolder("a.fits")), "");
}

TEST_F(HelperTest, AbsolutePathIsNotLookedForInTheDataPath)
{
    CreateFile("data/briskHelperTest.fits");
    setenv("BRISK_DATA_PATH", CreateFolder("data").c_str(), 1);
    EXPECT_EQ(Helper::FindFile("/briskHelperTest.fits"), "");
}

TEST_F(HelperTest, RelativeNameIsFoundInTheCurrentDirectoryUnchanged)
{
    CreateFile("here/a.fits");
    CreateFile("here/sub/b.fits");
    EXPECT_EQ(Helper::FindFile("a.fits"), "a.fits");
    EXPECT_EQ(Helper::FindFile("sub/b.fits"), "sub/b.fits");
}

TEST_F(HelperTest, CurrentDirectoryComesBeforeTheDataPath)
{
    CreateFile("here/a.fits");
    CreateFile("data/a.fits");
    setenv("BRISK_DATA_PATH", CreateFolder("data").c_str(), 1);
    EXPECT_EQ(Helper::FindFile("a.fits"), "a.fits");
}

TEST_F(HelperTest, DirectoriesOfTheDataPathAreSearchedInTheirOrder)
{
    const std::string first = CreateFile("first/both.fits");
    const std::string second = CreateFile("second/both.fits");
    const std::string only_second = CreateFile("second/sub/one.fits");

    setenv("BRISK_DATA_PATH", (CreateFolder("first") + ":" + CreateFolder("second")).c_str(), 1);
    EXPECT_EQ(Helper::FindFile("both.fits"), first);
    EXPECT_EQ(Helper::FindFile("sub/one.fits"), only_second);

    setenv("BRISK_DATA_PATH", (CreateFolder("second") + ":" + CreateFolder("first")).c_str(), 1);
    EXPECT_EQ(Helper::FindFile("both.fits"), second);
}

TEST_F(HelperTest, EmptyAndMissingDirectoriesOfTheDataPathAreSkipped)
{
    const std::string path = CreateFile("data/a.fits");
    setenv("BRISK_DATA_PATH", ("::/nowhere/at/all:" + CreateFolder("data") + ":").c_str(), 1);
    EXPECT_EQ(Helper::FindFile("a.fits"), path);
}

TEST_F(HelperTest, DirectoryOfTheNameIsPassedOver)
{
    CreateFolder("here/a.fits");
    CreateFolder("first/a.fits");
    const std::string path = CreateFile("second/a.fits");
    setenv("BRISK_DATA_PATH", (CreateFolder("first") + ":" + CreateFolder("second")).c_str(), 1);
    EXPECT_EQ(Helper::FindFile("a.fits"), path);
}

TEST_F(HelperTest, NameThatIsNowhereIsNotFound)
{
    EXPECT_EQ(Helper::FindFile("a.fits"), "");
    setenv("BRISK_DATA_PATH", CreateFolder("data").c_str(), 1);
    EXPECT_EQ(Helper::FindFile("a.fits"), "");
    setenv("BRISK_DATA_PATH", "", 1);
    EXPECT_EQ(Helper::FindFile("a.fits"), "");
}

TEST_F(HelperTest, EmptyNameIsNotFound)
{
    setenv("BRISK_DATA_PATH", CreateFolder("data").c_str(), 1);
    EXPECT_EQ(Helper::FindFile(""), "");
}

}  // namespace brisk
