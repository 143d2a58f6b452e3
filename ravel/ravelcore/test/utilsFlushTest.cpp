#include "support/logCapture.hpp"
#include "support/temporaryDirectory.hpp"
#include "support/thrown.hpp"

#include <lumo/ravelcore/utils.hpp>

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

namespace {

int g_num_writes = 0;
int g_failing_write = 0;  // 0: none

}  // namespace

/// Stands before the C library's fwrite in this program: a disk that takes all bytes and once says that it could not.
extern "C" __attribute__((visibility("default"))) std::size_t fwrite(const void* bytes, std::size_t size,
                                                                     std::size_t count, std::FILE* stream)
{
    using Write = std::size_t (*)(const void*, std::size_t, std::size_t, std::FILE*);
    static const auto real = reinterpret_cast<Write>(::dlsym(RTLD_NEXT, "fwrite"));
    const std::size_t done = real(bytes, size, count, stream);
    if (stream == stdout || stream == stderr || ++g_num_writes != g_failing_write) {
        return done;
    }
    errno = EIO;
    return 0;
}

namespace lumo::ravelcore {
namespace {

using ::testing::IsEmpty;

TEST(UtilsFlushTest, AWriteThatFailedIsAnErrorAlsoWhenTheFileIsWhole)
{
    const test::LogCapture log("ravelcore", log4cplus::ERROR_LOG_LEVEL);
    const test::TemporaryDirectory dir;
    const std::string file = dir / "matrix.fits";
    const std::vector<float> values = {1, 2, 3, 4};
    SaveMatrix(file, "M", 2, 2, values);
    const int num_writes = g_num_writes;
    ASSERT_GT(num_writes, 0);
    std::filesystem::remove(file);
    // The last writes are those of the blocks that the FITS library keeps until it flushes or closes the file.
    for (int failing = 1; failing <= num_writes; ++failing) {
        g_num_writes = 0;
        g_failing_write = failing;
        EXPECT_EQ(test::Thrown([&] { SaveMatrix(file, "M", 2, 2, values); }).GetMessage(),
                  "FITS Error: error writing to FITS file")
            << failing << " of " << num_writes;
        EXPECT_THAT(dir.List(), IsEmpty());
    }
}

}  // namespace
}  // namespace lumo::ravelcore
