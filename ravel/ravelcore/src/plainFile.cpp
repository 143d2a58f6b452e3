#include "plainFile.hpp"

#include <CCfits/CCfits>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <random>
#include <string_view>
#include <system_error>

namespace lumo::ravelcore {

namespace {

constexpr std::string_view COMPRESSED_SUFFIX = ".gz";

std::string ErrorText(int error)
{
    return std::generic_category().message(error);
}

std::string DirectoryOf(const std::string& filename)
{
    const std::size_t slash = filename.find_last_of('/');
    return slash == std::string::npos ? "." : filename.substr(0, slash + 1);
}

std::string LastComponentOf(const std::string& filename)
{
    return filename.substr(filename.find_last_of('/') + 1);  // npos + 1 is 0
}

/// A name that no other thread, process or machine uses in the same directory.
std::string MakePassingName(const std::string& final_name)
{
    std::random_device random;
    const std::uint64_t number = (std::uint64_t{random()} << 32U) | random();
    std::array<char, 48> text{};
    std::snprintf(text.data(), text.size(), ".ravelcore-%016llx.fits", static_cast<unsigned long long>(number));
    std::string name = text.data();
    if (final_name.ends_with(COMPRESSED_SUFFIX)) {
        name += COMPRESSED_SUFFIX;
    }
    return name;
}

/// Renames inside one directory; 0, or the error number. EEXIST when `to` is taken.
int RenameWithoutReplacing(int directory, const std::string& from, const std::string& to)
{
    if (::renameat2(directory, from.c_str(), directory, to.c_str(), RENAME_NOREPLACE) == 0) {
        return 0;
    }
    if (errno != EINVAL && errno != ENOSYS) {
        return errno;
    }
    // A file system that cannot do both at once, such as NFS: a second name never replaces anything either.
    if (::linkat(directory, from.c_str(), directory, to.c_str(), 0) != 0) {
        return errno;
    }
    ::unlinkat(directory, from.c_str(), 0);
    return 0;
}

}  // namespace

FileDescriptor::~FileDescriptor()
{
    if (m_descriptor >= 0) {
        ::close(m_descriptor);
    }
}

std::string FileDescriptor::GetPath() const
{
    return "/proc/self/fd/" + std::to_string(m_descriptor);
}

// O_NONBLOCK: a pipe that nobody writes to must not hold us up before it is refused below.
ExistingFile::ExistingFile(const std::string& path) : m_file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK))
{
    struct stat status = {};
    const bool has_nul = path.find('\0') != std::string::npos;
    if (has_nul || !m_file.IsOpen() || ::fstat(m_file.Get(), &status) != 0 || !S_ISREG(status.st_mode)) {
        throw CCfits::FITS::CantOpen(path, true);
    }
}

std::string ExistingFile::GetSafePath() const
{
    return m_file.GetPath();
}

NewFile::NewFile(const std::string& filename)
    : m_filename(filename),
      m_final_name(LastComponentOf(filename)),
      m_passing_name(MakePassingName(m_final_name)),
      m_directory(::open(DirectoryOf(filename).c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC))
{
    const bool has_nul = filename.find('\0') != std::string::npos;
    if (has_nul || m_final_name.empty() || !m_directory.IsOpen()) {
        throw CCfits::FITS::CantOpen(filename, true);
    }
    struct stat status = {};
    if (::fstatat(m_directory.Get(), m_final_name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0) {
        throw CCfits::FITS::CantCreate(filename + ": " + ErrorText(EEXIST), true);
    }
    // Asked of the system, which says why not; the FITS library would only say that it cannot open the safe path.
    constexpr mode_t MODE = 0600;
    const FileDescriptor file(::openat(m_directory.Get(), m_passing_name.c_str(), O_CREAT | O_EXCL | O_CLOEXEC, MODE));
    if (!file.IsOpen()) {
        throw CCfits::FITS::CantCreate(filename + ": " + ErrorText(errno), true);
    }
    ::unlinkat(m_directory.Get(), m_passing_name.c_str(), 0);  // the FITS library makes it itself
}

NewFile::~NewFile()
{
    if (!m_published) {
        ::unlinkat(m_directory.Get(), m_passing_name.c_str(), 0);  // may not exist yet
    }
}

std::string NewFile::GetSafePath() const
{
    return m_directory.GetPath() + "/" + m_passing_name;
}

bool NewFile::IsComplete(std::uint64_t size) const
{
    const FileDescriptor file(::openat(m_directory.Get(), m_passing_name.c_str(), O_RDONLY | O_CLOEXEC));
    struct stat status = {};
    if (!file.IsOpen() || ::fstat(file.Get(), &status) != 0) {
        return false;
    }
    if (!m_passing_name.ends_with(COMPRESSED_SUFFIX)) {
        return static_cast<std::uint64_t>(status.st_size) == size;
    }
    // The last four bytes of a gzip file are the size of its contents, the least significant first.
    std::array<unsigned char, 4> tail{};
    const off_t tail_size = tail.size();
    if (status.st_size < tail_size ||
        ::pread(file.Get(), tail.data(), tail.size(), status.st_size - tail_size) != tail_size) {
        return false;
    }
    const std::uint32_t stored =
        tail[0] | (std::uint32_t{tail[1]} << 8U) | (std::uint32_t{tail[2]} << 16U) | (std::uint32_t{tail[3]} << 24U);
    return stored == static_cast<std::uint32_t>(size);
}

void NewFile::Publish(std::uint64_t size)
{
    if (!IsComplete(size)) {
        throw CCfits::FitsError(WRITE_ERROR);
    }
    const int error = RenameWithoutReplacing(m_directory.Get(), m_passing_name, m_final_name);
    if (error != 0) {
        throw CCfits::FITS::CantCreate(m_filename + ": " + ErrorText(error), true);
    }
    m_published = true;
}

}  // namespace lumo::ravelcore
