#pragma once

#include <cstdint>
#include <string>

/// Files under exactly the names that users gave them. The FITS library reads more into a name: brackets choose parts
/// of a file, a leading '!' overwrites, "-" is the terminal, "mem://" and "http://" are something else altogether. It
/// is therefore only ever given names that are made here, below /proc/self/fd, and has nothing to interpret.
namespace lumo::ravelcore {

/// Owns a file descriptor.
class FileDescriptor
{
public:
    explicit FileDescriptor(int descriptor) noexcept : m_descriptor(descriptor) {}
    ~FileDescriptor();

    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;

    bool IsOpen() const noexcept { return m_descriptor >= 0; }
    int Get() const noexcept { return m_descriptor; }
    /// A path to what is open here; valid as long as this object.
    std::string GetPath() const;

private:
    int m_descriptor;
};

/// An existing regular file that is to be read.
class ExistingFile
{
public:
    /// Failure: CCfits::FITS::CantOpen when there is no readable regular file of that name.
    explicit ExistingFile(const std::string& path);

    /// A name of the file that is safe to hand to the FITS library, as long as this object lives.
    std::string GetSafePath() const;

private:
    FileDescriptor m_file;
};

/// A file that is to be written. It grows under a passing name in its directory and gets its own name when it is
/// complete, so that nobody ever sees half of it.
class NewFile
{
public:
    /// Failure: CCfits::FITS::CantOpen when there is no such directory or no such name is possible,
    ///          CCfits::FITS::CantCreate, with the reason, when something of that name exists, which is left alone, or
    ///          when the directory takes no new file.
    explicit NewFile(const std::string& filename);
    /// Removes what was written, unless it was published.
    ~NewFile();

    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;

    /// Where to write: a name that is safe to hand to the FITS library, as long as this object lives.
    std::string GetSafePath() const;

    /// Gives the closed file its name. Never replaces anything.
    /// `size` is what was written, in bytes before compression; the FITS library keeps to itself that the last of them
    /// did not find room, so the file is measured.
    /// Failure: CCfits::FitsError when the file is not complete, CCfits::FITS::CantCreate when it cannot be named.
    void Publish(std::uint64_t size);

private:
    bool IsComplete(std::uint64_t size) const;

    std::string m_filename;
    std::string m_final_name;  // last component of m_filename
    std::string m_passing_name;
    FileDescriptor m_directory;
    bool m_published = false;
};

}  // namespace lumo::ravelcore
