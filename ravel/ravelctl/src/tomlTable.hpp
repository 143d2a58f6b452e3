#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace lumo::ravelctl {

/// What a number may be. The unit is for messages, such as "seconds".
struct NumberRange
{
    std::optional<double> low;
    std::optional<double> high;
    std::string unit;
};

/// Reads one table of a TOML file. It remembers which keys it was asked for, because those are the known ones: read all
/// that a table may hold, then call RefuseUnknownKeys, and only then ask for what is missing, so that a misspelt key is
/// named as such.
///
/// A key that is not there gives no value. A value that is not as asked for is refused: InputError with file, line,
/// column, what was expected and what came. Copies share the table and what it remembers. Thread: one at a time.
class TomlTable
{
public:
    /// The whole file. Failure: InputError for one that cannot be read or is no TOML.
    static TomlTable Open(const std::filesystem::path& file);

    bool Has(const std::string& key);
    bool IsString(const std::string& key);

    /// An integer is a number, too. Not-a-number and infinity are refused.
    std::optional<double> GetNumber(const std::string& key, const NumberRange& range = {});
    std::optional<int> GetInteger(const std::string& key, int low, int high);
    /// One integer alone, or an array of at least one. `what` names the alternatives for somebody who wrote something
    /// else.
    std::optional<std::vector<int>> GetIntegers(const std::string& key, int low, int high,
                                                const std::string& what = "an integer or an array of integers");
    /// From 0 on; one that is beyond what TOML's integers hold is a string of digits.
    std::optional<std::uint64_t> GetUnsigned(const std::string& key);
    std::optional<bool> GetBool(const std::string& key);
    std::optional<std::string> GetString(const std::string& key);
    /// An array of strings, perhaps empty. `what` says what they are.
    std::optional<std::vector<std::string>> GetStrings(const std::string& key, const std::string& what);
    /// As it is written in the file; empty where there is none.
    std::filesystem::path GetPath(const std::string& key);
    /// The same as seen from where the file is seen from: a relative one is of the file's folder.
    std::filesystem::path GetPathBeside(const std::string& key);
    std::optional<TomlTable> GetTable(const std::string& key);
    /// The elements of an array of tables; none where there is no such array.
    std::vector<TomlTable> GetTables(const std::string& key);

    /// Table and key, of all that a file may hold.
    using KnownKeys = std::vector<std::pair<std::string, std::string>>;

    /// Refuses the first key that nobody has asked for so far, and names the one that was probably meant: of this
    /// table, or of `elsewhere`.
    void RefuseUnknownKeys(const KnownKeys& elsewhere = {}) const;

    /// Where `key` stands, for messages about it: "file:line:column: key".
    std::string Locate(const std::string& key) const;

    /// Throws an InputError about `key`, which may be missing: "file:line:column: key: text".
    [[noreturn]] void Refuse(const std::string& key, const std::string& text) const;

    /// Throws an InputError about the table itself: "file:line:column: text".
    [[noreturn]] void Refuse(const std::string& text) const;

    /// Line on which the table begins.
    int GetLine() const;

private:
    struct Impl;
    explicit TomlTable(std::shared_ptr<Impl> impl) : m_impl(std::move(impl)) {}

    std::shared_ptr<Impl> m_impl;
};

}  // namespace lumo::ravelctl
