#include "inspectedFile.hpp"

#include "error.hpp"
#include "libraryLoad.hpp"
#include "resources.hpp"
#include "tableValues.hpp"

#include <lumo/ravelcore/utils.hpp>

#include <fcntl.h>
#include <fmt/core.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

namespace lumo::ravelctl {

namespace {

namespace fs = std::filesystem;

/// A regular file that is open. The FITS library reads more into a name than its file: below /proc there is nothing to
/// read into it.
class OpenFile
{
public:
    // O_NONBLOCK: a pipe that nobody writes to must not hold us up before it is refused.
    explicit OpenFile(const fs::path& file) : m_descriptor(::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK))
    {
        if (m_descriptor < 0) {
            throw InputError(fmt::format("{}: expected a FITS file but it cannot be opened: {}", file.string(),
                                         std::generic_category().message(errno)));
        }
        struct stat status = {};
        if (::fstat(m_descriptor, &status) != 0 || !S_ISREG(status.st_mode)) {
            ::close(m_descriptor);
            throw InputError(fmt::format("{}: expected a FITS file but it is {}", file.string(),
                                         S_ISDIR(status.st_mode) ? "a folder; name the files in it" : "no file"));
        }
        m_bytes = static_cast<std::uintmax_t>(status.st_size);
    }

    ~OpenFile() { ::close(m_descriptor); }

    OpenFile(const OpenFile&) = delete;
    OpenFile& operator=(const OpenFile&) = delete;

    std::string GetPath() const { return fmt::format("/proc/self/fd/{}", m_descriptor); }
    std::uintmax_t GetBytes() const { return m_bytes; }

private:
    int m_descriptor;
    std::uintmax_t m_bytes = 0;
};

/// While the library reads: what it returns, and what the file layer has of it.
void CheckMemoryFor(const InspectedFile& inspected)
{
    constexpr std::uint64_t COPIES = 4;
    constexpr std::uint64_t MOST = std::uint64_t{1} << 60U;  // far more than any machine has, and no overflow
    const auto values = static_cast<std::uint64_t>(inspected.header.values);
    const auto stamps = static_cast<std::uint64_t>(inspected.header.HasTime() ? inspected.header.rows : 0);
    // A compressed file is smaller than what it holds.
    const std::uint64_t table = std::min(values, MOST / 8) * sizeof(float) + stamps * sizeof(double);
    const std::uint64_t bytes = std::min<std::uint64_t>(std::max<std::uint64_t>(inspected.bytes, table), MOST);
    CheckMemory(COPIES * bytes, inspected.file.string() + ": the values", "free some, or use a larger machine");
}

void LoadMatrix(InspectedFile& inspected)
{
    inspected.values.reserve(static_cast<std::size_t>(inspected.header.values));
    LoadThroughLibrary(inspected.file, [&inspected](const std::string& path) {
        ravelcore::LoadMatrixFromFitsBinTable(path, inspected.rows, inspected.cols, inspected.values,
                                              inspected.timestamps);
    });
}

/// What the library does not take for a matrix. `path`: of the file.
void LoadOther(const std::string& path, InspectedFile& inspected)
{
    try {
        TableValues read = ReadTableValues(path, inspected.header);
        inspected.rows = static_cast<int>(inspected.header.rows);
        inspected.cols = read.cols;
        inspected.values = std::move(read.values);
        inspected.timestamps = std::move(read.timestamps);
    } catch (const InputError& e) {
        throw InputError(fmt::format("{}: {}", inspected.file.string(), e.what()));
    }
}

}  // namespace

InspectedFile LoadInspectedFile(const fs::path& file)
{
    const OpenFile open_file(file);
    InspectedFile inspected;
    inspected.file = file;
    inspected.bytes = open_file.GetBytes();
    try {
        inspected.header = ReadTableHeader(open_file.GetPath());
    } catch (const InputError& e) {
        throw InputError(fmt::format("{}: {}", file.string(), e.what()));
    }
    CheckMemoryFor(inspected);
    if (inspected.header.IsMatrixFile()) {
        LoadMatrix(inspected);
    } else {
        LoadOther(open_file.GetPath(), inspected);
    }
    if (const double per_s = inspected.header.time_units_per_s.value_or(1.0); per_s != 1.0) {
        for (double& stamp : inspected.timestamps) {
            stamp /= per_s;
        }
    }
    return inspected;
}

}  // namespace lumo::ravelctl
