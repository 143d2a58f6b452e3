#include "support/fitsBytes.hpp"
#include "support/logCapture.hpp"
#include "support/temporaryDirectory.hpp"

#include <brisk/exception.hpp>
#include <lumo/ravelcore/utils.hpp>

#include <CCfits/CCfits>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

namespace {

std::atomic<bool> g_remove_fails{false};

}  // namespace

/// Stands before the C library's remove in this program, so that a file can be one that root cannot remove either.
extern "C" __attribute__((visibility("default"))) int remove(const char* path) noexcept
{
    if (g_remove_fails) {
        errno = EBUSY;
        return -1;
    }
    return std::filesystem::is_directory(path) ? ::rmdir(path) : ::unlink(path);
}

/// A damaged header makes the FITS library ask for more memory than there is; it copes with getting none, which the
/// address sanitizer otherwise takes for the end.
// NOLINTNEXTLINE(bugprone-reserved-identifier): the sanitizer looks for this name
extern "C" __attribute__((visibility("default"))) const char* __asan_default_options()
{
    return "allocator_may_return_null=1";
}

/// Matrix files as files: their names, full disks, damage, descriptors, threads.
namespace lumo::ravelcore {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

const std::vector<float> SIX = {1.0F, 2.0F, 3.0F, 4.0F, 5.0F, 6.0F};

std::size_t CountDescriptors()
{
    std::size_t count = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        count += entry.path().empty() ? 0U : 1U;
    }
    return count;
}

/// While it lives no file of this process grows beyond `bytes`, as if the disk were full.
class FullDisk
{
public:
    explicit FullDisk(rlim_t bytes)
    {
        m_old_handler = std::signal(SIGXFSZ, SIG_IGN);
        ::getrlimit(RLIMIT_FSIZE, &m_old_limit);
        const rlimit limit = {bytes, m_old_limit.rlim_max};
        EXPECT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
    }
    ~FullDisk()
    {
        ::setrlimit(RLIMIT_FSIZE, &m_old_limit);
        std::signal(SIGXFSZ, m_old_handler);
    }

    FullDisk(const FullDisk&) = delete;
    FullDisk& operator=(const FullDisk&) = delete;

private:
    rlimit m_old_limit = {};
    void (*m_old_handler)(int) = nullptr;
};

class UtilsFileTest : public ::testing::Test
{
protected:
    /// "" when `filename` can be saved and loaded, otherwise the error.
    std::string SaveAndLoad(const std::string& filename)
    {
        try {
            SaveMatrix(filename, "M", 3, 2, SIX);
            int rows = 3;
            int cols = 2;
            std::vector<float> values;
            LoadMatrix(filename, "M", rows, cols, values);
            return values == SIX ? "" : "other values";
        } catch (const brisk::Exception& exception) {
            return exception.GetMessage();
        } catch (const CCfits::FitsException& exception) {
            return "while loading: " + exception.message();
        }
    }

    std::string SaveError(const std::string& filename, int rows, int cols)
    {
        const std::vector<float> values(static_cast<std::size_t>(rows * cols), 1.0F);
        try {
            SaveMatrix(filename, "M", rows, cols, values);
        } catch (const brisk::Exception& exception) {
            return exception.GetMessage();
        }
        return "";
    }

    /// Loads a damaged file; that it is refused is as good as that it is read.
    void LoadWhateverItIs(const std::string& bytes)
    {
        test::WriteBytes(m_file, bytes);
        int rows = -1;
        int cols = -1;
        std::vector<float> values;
        std::vector<double> timestamps;
        try {
            LoadMatrixFromFitsBinTable(m_file, rows, cols, values, timestamps);
            ++m_num_read;
        } catch (const CCfits::FitsException&) {
            ++m_num_refused;
        } catch (const brisk::Exception&) {
            ++m_num_refused;
        }
    }

    test::TemporaryDirectory m_dir;
    std::string m_file = m_dir / "matrix.fits";
    int m_num_read = 0;
    int m_num_refused = 0;
    test::LogCapture m_log{"ravelcore", log4cplus::ERROR_LOG_LEVEL};
};

// ---- names

TEST_F(UtilsFileTest, NamesAreTakenLiterally)
{
    const std::vector<std::string> names = {
        "a[1].fits", "a[1][2]",     "b(c).fits",     "!d.fits", "e+1",        "f?x=1", "-",      "stdin", "STDOUT",
        "g*.fits",   "h[compress]", "i.fits[col X]", "~",       "with blank", " lead", "trail ", "mem:",  "k{1}",
        "l#1",       "m%20n",       "\"quoted\"",    "@list",   "n;o",        "p,q",   "-.gz"};
    for (const std::string& name : names) {
        EXPECT_EQ(SaveAndLoad(m_dir / name), "") << name;
    }
    std::vector<std::string> sorted = names;
    std::sort(sorted.begin(), sorted.end());
    EXPECT_EQ(m_dir.List(), sorted);
}

TEST_F(UtilsFileTest, NamesOfDirectoriesAreTakenLiterally)
{
    for (const std::string& name : std::vector<std::string>{"!x", "a[1]", "b(c)", "mem:", "+1", "with blank"}) {
        ASSERT_TRUE(std::filesystem::create_directory(m_dir / name));
        EXPECT_EQ(SaveAndLoad(m_dir / (name + "/m.fits")), "") << name;
        EXPECT_TRUE(std::filesystem::exists(m_dir / (name + "/m.fits"))) << name;
    }
}

TEST_F(UtilsFileTest, NamesOfOtherPlacesThanFilesAreDirectoriesThatDoNotExist)
{
    for (const std::string& name :
         std::vector<std::string>{"mem://x", "http://localhost/x", "ftp://localhost/x", "shmem://h1", "stream://x"}) {
        EXPECT_EQ(SaveAndLoad(name), "FITS Error: Cannot open file " + name);
    }
}

TEST_F(UtilsFileTest, NamesThatCannotBeFilesAreRefused)
{
    for (const std::string& name : {m_dir.GetPath() + "/", m_dir / ".", m_dir / "..", std::string("nul\0byte", 8)}) {
        EXPECT_THAT(SaveAndLoad(name), HasSubstr("FITS Error: Cannot ")) << name;
    }
    EXPECT_THAT(SaveAndLoad(m_dir / std::string(300, 'n')), HasSubstr("FITS Error: Cannot create file"));
    EXPECT_THAT(m_dir.List(), IsEmpty());
}

TEST_F(UtilsFileTest, NameWithANulByteLeavesTheFileItBeginsWithAlone)
{
    const std::string victim = m_dir / "victim.fits";
    ASSERT_EQ(SaveAndLoad(victim), "");
    EXPECT_THAT(SaveAndLoad(victim + std::string("\0x", 2)), HasSubstr("FITS Error: Cannot "));
    EXPECT_TRUE(std::filesystem::exists(victim));
}

TEST_F(UtilsFileTest, TheLongestNameThatTheSystemAllowsCanBeUsed)
{
    EXPECT_EQ(SaveAndLoad(m_dir / std::string(255, 'n')), "");
}

TEST_F(UtilsFileTest, ANameThatEndsInGzIsCompressed)
{
    const std::string file = m_dir / "m.fits.gz";
    SaveMatrix(file, "M", 100, 100, std::vector<float>(10000, 1.0F));
    const std::string bytes = test::ReadBytes(file);
    EXPECT_EQ(bytes.substr(0, 2), "\x1f\x8b");
    EXPECT_LT(bytes.size(), 10000U);
    int rows = 100;
    int cols = 100;
    std::vector<float> values;
    LoadMatrix(file, "M", rows, cols, values);
    EXPECT_EQ(values, std::vector<float>(10000, 1.0F));
}

TEST_F(UtilsFileTest, ARelativeNameIsLookedUpAndMessagesKeepItAsGiven)
{
    ASSERT_EQ(::setenv("BRISK_DATA_PATH", m_dir.GetPath().c_str(), 1), 0);
    const std::string name = "ravelcore-looked-up.fits";
    SaveMatrix(m_dir / name, "M", 3, 2, SIX);
    int rows = 3;
    int cols = 3;
    std::vector<float> values;
    std::string message;
    m_log.SetLevel(log4cplus::DEBUG_LOG_LEVEL);
    try {
        LoadMatrix(name, "M", rows, cols, values);
    } catch (const brisk::Exception& exception) {
        message = exception.GetMessage();
    }
    EXPECT_EQ(message, "Matrix M (" + name + ") has dimension [3,2], expecting [3,3]");
    cols = 2;
    LoadMatrix(name, "M", rows, cols, values);
    EXPECT_THAT(m_log.Messages(log4cplus::DEBUG_LOG_LEVEL), ElementsAre("Loaded M [3 x 2] from file: " + name));
    ::unsetenv("BRISK_DATA_PATH");
}

// ---- what is in the way

TEST_F(UtilsFileTest, AnOldFileThatCannotBeRemovedIsAnErrorAndStaysAsItIs)
{
    SaveMatrix(m_file, "old", 2, 2, std::vector<float>{9, 9, 9, 9});
    const std::string old = test::ReadBytes(m_file);
    g_remove_fails = true;
    const std::string error = SaveError(m_file, 3, 2);
    g_remove_fails = false;
    EXPECT_EQ(error, "FITS Error: Cannot create file " + m_file + ": File exists");
    EXPECT_EQ(test::ReadBytes(m_file), old);
    EXPECT_THAT(m_dir.List(), ElementsAre("matrix.fits"));
}

TEST_F(UtilsFileTest, TheFormatsOwnWriterNeverAddsToAnExistingFile)
{
    SaveMatrixToFitsBinTable(m_file, "M", 3, 2, {}, SIX);
    const std::string old = test::ReadBytes(m_file);
    EXPECT_THROW(SaveMatrixToFitsBinTable(m_file, "M", 3, 2, {}, SIX), CCfits::FITS::CantCreate);
    EXPECT_EQ(test::ReadBytes(m_file), old);
}

TEST_F(UtilsFileTest, ADirectoryInTheWayIsAnErrorAndStays)
{
    ASSERT_TRUE(std::filesystem::create_directory(m_file));
    EXPECT_EQ(SaveError(m_file, 3, 2), "FITS Error: Cannot create file " + m_file + ": File exists");
    EXPECT_TRUE(std::filesystem::is_directory(m_file));
    EXPECT_THAT(m_dir.List(), ElementsAre("matrix.fits"));
}

TEST_F(UtilsFileTest, ALinkToNowhereIsAnErrorAndStays)
{
    std::filesystem::create_symlink(m_dir / "nowhere", m_file);
    EXPECT_EQ(SaveError(m_file, 3, 2), "FITS Error: Cannot create file " + m_file + ": File exists");
    EXPECT_THAT(m_dir.List(), ElementsAre("matrix.fits"));
}

TEST_F(UtilsFileTest, ALinkToAFileIsReplacedAndTheFileStays)
{
    test::WriteBytes(m_dir / "other", "other");
    std::filesystem::create_symlink(m_dir / "other", m_file);
    EXPECT_EQ(SaveAndLoad(m_file), "");
    EXPECT_EQ(test::ReadBytes(m_dir / "other"), "other");
}

TEST_F(UtilsFileTest, DevicesAreNotWrittenTo)
{
    EXPECT_EQ(SaveError("/dev/null", 3, 2), "FITS Error: Cannot create file /dev/null: File exists");
    EXPECT_EQ(SaveError("/dev/full", 3, 2), "FITS Error: Cannot create file /dev/full: File exists");
}

TEST_F(UtilsFileTest, NewFilesHaveTheUsualPermissions)
{
    const mode_t old_mask = ::umask(027);
    SaveMatrix(m_file, "M", 3, 2, SIX);
    ::umask(old_mask);
    struct stat status = {};
    ASSERT_EQ(::stat(m_file.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0640U);
}

// ---- a full disk

TEST_F(UtilsFileTest, AFullDiskIsAnErrorAndLeavesNoFile)
{
    const std::size_t before = CountDescriptors();
    // Headers are 5760 bytes, the data 40000: the disk ends in each of them, and just before the end of the file.
    for (const rlim_t limit : {0U, 100U, 2880U, 4000U, 5760U, 20000U, 45000U, 46079U}) {
        const FullDisk full(limit);
        EXPECT_THAT(SaveError(m_file, 100, 100), HasSubstr("FITS Error: ")) << limit;
        EXPECT_THAT(m_dir.List(), IsEmpty()) << limit;
    }
    EXPECT_EQ(CountDescriptors(), before);
    EXPECT_EQ(SaveAndLoad(m_file), "") << "once there is room again";
}

TEST_F(UtilsFileTest, AFullDiskIsAnErrorForCompressedFilesToo)
{
    const std::size_t before = CountDescriptors();
    std::vector<float> values(10000);
    for (std::size_t index = 0; index < values.size(); ++index) {
        values[index] = std::sqrt(static_cast<float>(index));
    }
    const std::string file = m_dir / "m.gz";
    SaveMatrix(file, "M", 100, 100, values);
    const auto size = static_cast<rlim_t>(test::ReadBytes(file).size());
    for (const rlim_t limit : {rlim_t{0}, rlim_t{10}, size / 2, size - 100, size - 8, size - 1}) {
        const FullDisk full(limit);
        EXPECT_THROW(SaveMatrix(file, "M", 100, 100, values), brisk::Exception) << limit << " of " << size;
        EXPECT_THAT(m_dir.List(), IsEmpty()) << limit;
    }
    EXPECT_EQ(CountDescriptors(), before);
}

TEST_F(UtilsFileTest, ManyFailedSavesLeaveRoomForMore)
{
    {
        // More than the FITS library has handles for.
        const FullDisk full(4000);
        for (int save = 0; save < 11000; ++save) {
            ASSERT_NE(SaveError(m_file, 100, 20), "");
        }
    }
    EXPECT_EQ(SaveAndLoad(m_file), "");
}

// ---- damage

TEST_F(UtilsFileTest, FilesCutOffAnywhereLeaveNoDescriptorOpen)
{
    SaveMatrixWithTimestamps(m_file, "M", 3, 2, SIX, {1, 2, 3});
    const std::string whole = test::ReadBytes(m_file);
    const std::size_t before = CountDescriptors();
    for (std::size_t length = 0; length < whole.size(); length += 40) {
        LoadWhateverItIs(whole.substr(0, length));
    }
    EXPECT_EQ(CountDescriptors(), before);
    EXPECT_EQ(m_num_read, 0) << "a file without its end is not whole";
}

TEST_F(UtilsFileTest, FilesWithAnyCharacterDamagedLeaveNoDescriptorOpen)
{
    SaveMatrixWithTimestamps(m_file, "M", 3, 2, SIX, {1, 2, 3});
    const std::string whole = test::ReadBytes(m_file);
    const std::size_t before = CountDescriptors();
    for (std::size_t position = 0; position < 2U * 2880U; ++position) {
        if (whole[position] != ' ') {
            std::string damaged = whole;
            damaged[position] = 'Z';
            LoadWhateverItIs(damaged);
        }
    }
    EXPECT_EQ(CountDescriptors(), before);
    EXPECT_GT(m_num_read, 0);
    EXPECT_GT(m_num_refused, 0);
}

TEST_F(UtilsFileTest, DamagedFilesCanBeRefusedMoreOftenThanThereAreHandles)
{
    SaveMatrix(m_file, "M", 3, 2, SIX);
    const std::string whole = test::ReadBytes(m_file);
    for (const std::size_t length : {std::size_t{2880}, std::size_t{5760}}) {
        for (int load = 0; load < 5500; ++load) {
            LoadWhateverItIs(whole.substr(0, length));
        }
    }
    EXPECT_EQ(m_num_refused, 11000);
    EXPECT_EQ(SaveAndLoad(m_file), "");
}

TEST_F(UtilsFileTest, WhatComesAfterTheFirstExtensionIsNotRead)
{
    // The second extension promises 4 GB, of which there is nothing: whoever reads it fails.
    SaveMatrix(m_file, "M", 3, 2, SIX);
    using test::FitsCard;
    const std::string promise =
        test::FitsHeader({FitsCard("XTENSION", "'IMAGE'"), FitsCard("BITPIX", "-32"), FitsCard("NAXIS", "1"),
                          FitsCard("NAXIS1", "1000000000"), FitsCard("PCOUNT", "0"), FitsCard("GCOUNT", "1")});
    const std::string table = test::ReadBytes(m_file);
    for (const std::string& rest : {promise, promise.substr(0, 1000), std::string("rubbish")}) {
        test::WriteBytes(m_file, table + rest);
        int rows = -1;
        int cols = -1;
        std::vector<float> values;
        LoadMatrix(m_file, "M", rows, cols, values);
        EXPECT_EQ(values, SIX);
    }
}

TEST_F(UtilsFileTest, TheDataOfThePrimaryHduIsNotRead)
{
    // 4 GB, for which a hole in the file stands.
    using test::FitsCard;
    const std::string primary =
        test::FitsHeader({FitsCard("SIMPLE", "T"), FitsCard("BITPIX", "-32"), FitsCard("NAXIS", "1"),
                          FitsCard("NAXIS1", "1000000080"), FitsCard("EXTEND", "T")});
    SaveMatrix(m_file, "M", 3, 2, SIX);
    const std::string table = test::ReadBytes(m_file).substr(2880);
    test::WriteBytes(m_file, primary);
    constexpr std::uintmax_t DATA_END = 2880 + (4'000'000'320ULL + 2879) / 2880 * 2880;
    std::filesystem::resize_file(m_file, DATA_END);
    std::FILE* const file = std::fopen(m_file.c_str(), "ab");
    ASSERT_NE(file, nullptr);
    ASSERT_EQ(std::fwrite(table.data(), 1, table.size(), file), table.size());
    ASSERT_EQ(std::fclose(file), 0);
    rusage before = {};
    ::getrusage(RUSAGE_SELF, &before);
    int rows = -1;
    int cols = -1;
    std::vector<float> values;
    LoadMatrix(m_file, "M", rows, cols, values);
    rusage after = {};
    ::getrusage(RUSAGE_SELF, &after);
    EXPECT_EQ(values, SIX);
    EXPECT_LT(after.ru_maxrss - before.ru_maxrss, 1'000'000) << "KiB; the data alone would be four times as much";
}

// ---- threads

TEST_F(UtilsFileTest, ThreadsMaySaveAndLoadDifferentFilesAtTheSameTime)
{
    std::atomic<int> wrong{0};
    const auto work = [&](int number) {
        const std::string file = m_dir / std::to_string(number);
        for (int round = 0; round < 30; ++round) {
            const std::vector<float> values(600, static_cast<float>(number * 1000 + round));
            SaveMatrixWithTimestamps(file, "M", 20, 30, values, std::vector<double>(20, round));
            int rows = 20;
            int cols = 30;
            std::vector<float> loaded;
            LoadMatrix(file, "M", rows, cols, loaded);
            wrong += loaded == values ? 0 : 1;
        }
    };
    std::vector<std::thread> threads;
    for (int number = 0; number < 4; ++number) {
        threads.emplace_back(work, number);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(m_dir.List().size(), 4U);
}

}  // namespace
}  // namespace lumo::ravelcore
