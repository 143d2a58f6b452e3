#include "support/fitsBytes.hpp"
#include "support/logCapture.hpp"
#include "support/temporaryDirectory.hpp"
#include "support/thrown.hpp"

#include <lumo/ravelcore/utils.hpp>

#include <CCfits/CCfits>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/fsuid.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace {

/// What happens just before a file gets its name, and the error with which the file system then refuses to give it
/// without replacing; 0: it can.
std::function<void()> g_before_rename;
int g_rename_error = 0;
int g_num_renames = 0;

}  // namespace

/// Stands before the C library's renameat2 in this program.
extern "C" __attribute__((visibility("default"))) int renameat2(int old_directory, const char* old_name,
                                                                int new_directory, const char* new_name,
                                                                unsigned int flags) noexcept
{
    ++g_num_renames;
    if (const auto act = std::exchange(g_before_rename, nullptr)) {
        act();
    }
    if (g_rename_error != 0) {
        errno = g_rename_error;
        return -1;
    }
    return static_cast<int>(::syscall(SYS_renameat2, old_directory, old_name, new_directory, new_name, flags));
}

/// Where a new matrix file comes from: the directory that takes it, and how it gets its name.
namespace lumo::ravelcore {
namespace {

using test::Thrown;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

const std::vector<float> SIX = {1.0F, 2.0F, 3.0F, 4.0F, 5.0F, 6.0F};

/// While it lives this thread makes and opens files as a user who owns none, if it has the right to do so.
class AsNobody
{
public:
    AsNobody() : m_user(static_cast<uid_t>(::setfsuid(65534))) {}
    ~AsNobody() { ::setfsuid(m_user); }

    /// Whether rights count: a user of such a number need not exist for this process.
    bool IsOne() const { return ::setfsuid(static_cast<uid_t>(-1)) != 0; }

    AsNobody(const AsNobody&) = delete;
    AsNobody& operator=(const AsNobody&) = delete;

private:
    uid_t m_user;
};

bool MayLookInto(const std::string& folder)
{
    const int descriptor = ::open(folder.c_str(), O_PATH | O_DIRECTORY);
    ::close(descriptor);
    return descriptor >= 0;
}

class UtilsNewFileTest : public ::testing::Test
{
protected:
    UtilsNewFileTest()
    {
        g_before_rename = nullptr;
        g_rename_error = 0;
        g_num_renames = 0;
    }

    static std::string SaveError(const std::string& filename)
    {
        return Thrown([&] { SaveMatrix(filename, "M", 3, 2, SIX); }).GetMessage();
    }

    /// Somebody else writes a file of the same name while ours is being written.
    void LetAnotherBeFaster()
    {
        g_before_rename = [this] {
            test::WriteBytes(m_file, "another's");
        };
    }

    void ExpectSaved() const
    {
        int rows = 3;
        int cols = 2;
        std::vector<float> values;
        LoadMatrix(m_file, "M", rows, cols, values);
        EXPECT_EQ(values, SIX);
    }

    test::TemporaryDirectory m_dir;
    std::string m_file = m_dir / "matrix.fits";
    test::LogCapture m_log{"ravelcore", log4cplus::ERROR_LOG_LEVEL};
};

// ---- directories that take no file

TEST_F(UtilsNewFileTest, ADirectoryOfTheSystemsOwnIsAnErrorWithTheNameAsGivenAndTheReason)
{
    EXPECT_EQ(SaveError("/proc/m.fits"), "FITS Error: Cannot create file /proc/m.fits: No such file or directory");
    EXPECT_EQ(SaveError("/proc//m.fits.gz"),
              "FITS Error: Cannot create file /proc//m.fits.gz: No such file or directory");
}

TEST_F(UtilsNewFileTest, ADirectoryThatMayNotBeWrittenToIsAnErrorWithTheNameAsGivenAndTheReason)
{
    using std::filesystem::perms;
    std::filesystem::permissions(m_dir.GetPath(),
                                 perms::owner_read | perms::owner_exec | perms::others_read | perms::others_exec);
    std::string error;
    {
        const AsNobody nobody;
        if (!nobody.IsOne() || !MayLookInto(m_dir.GetPath())) {
            std::filesystem::permissions(m_dir.GetPath(), perms::owner_all);
            GTEST_SKIP() << "this user cannot become one who may look into the folder but not write there";
        }
        ASSERT_EQ(::open((m_dir / "probe").c_str(), O_WRONLY | O_CREAT, 0600), -1) << "nobody may write there";
        error = SaveError(m_file);
    }
    std::filesystem::permissions(m_dir.GetPath(), perms::owner_all);
    EXPECT_EQ(error, "FITS Error: Cannot create file " + m_file + ": Permission denied");
    EXPECT_THAT(m_dir.List(), IsEmpty());
}

// ---- two guards against replacing what is there

TEST_F(UtilsNewFileTest, AFileThatIsThereIsRefusedBeforeAnotherIsWritten)
{
    test::WriteBytes(m_file, "another's");
    EXPECT_THROW(SaveMatrixToFitsBinTable(m_file, "M", 3, 2, {}, SIX), CCfits::FITS::CantCreate);
    EXPECT_EQ(g_num_renames, 0);
    EXPECT_EQ(test::ReadBytes(m_file), "another's");
}

TEST_F(UtilsNewFileTest, AFileThatComesWhileOursIsWrittenIsNotReplaced)
{
    LetAnotherBeFaster();
    EXPECT_EQ(SaveError(m_file), "FITS Error: Cannot create file " + m_file + ": File exists");
    EXPECT_EQ(g_num_renames, 1);
    EXPECT_EQ(test::ReadBytes(m_file), "another's");
    EXPECT_THAT(m_dir.List(), ElementsAre("matrix.fits"));
}

// ---- file systems that cannot rename without replacing

TEST_F(UtilsNewFileTest, WhereRenamingMayReplaceTheFileHasOneNameInTheEnd)
{
    for (const int error : {EINVAL, ENOSYS}) {
        g_rename_error = error;
        SaveMatrix(m_file, "M", 3, 2, SIX);
        EXPECT_THAT(m_dir.List(), ElementsAre("matrix.fits")) << error;
        EXPECT_EQ(std::filesystem::hard_link_count(m_file), 1U) << error;
        ExpectSaved();
    }
    EXPECT_EQ(g_num_renames, 2);
}

TEST_F(UtilsNewFileTest, WhereRenamingMayReplaceAFileThatComesMeanwhileIsNotReplaced)
{
    g_rename_error = EINVAL;
    LetAnotherBeFaster();
    EXPECT_EQ(SaveError(m_file), "FITS Error: Cannot create file " + m_file + ": File exists");
    EXPECT_EQ(test::ReadBytes(m_file), "another's");
    EXPECT_THAT(m_dir.List(), ElementsAre("matrix.fits"));
}

TEST_F(UtilsNewFileTest, AnyOtherErrorOfRenamingIsReported)
{
    g_rename_error = EIO;
    EXPECT_EQ(SaveError(m_file), "FITS Error: Cannot create file " + m_file + ": Input/output error");
    EXPECT_THAT(m_dir.List(), IsEmpty());
}

}  // namespace
}  // namespace lumo::ravelcore
