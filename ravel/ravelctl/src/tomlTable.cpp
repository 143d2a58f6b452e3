#include "tomlTable.hpp"

#include "error.hpp"
#include "nearestName.hpp"

#include <brisk/helper.hpp>

#include <fmt/core.h>
#include <fmt/ranges.h>
#include <toml++/toml.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <fstream>
#include <string_view>
#include <system_error>

namespace lumo::ravelctl {

namespace {

struct Document
{
    std::string file;
    toml::table root;
};

/// One line. What the file says may hold newlines, and so may its name.
std::string FormatAt(const std::string& file, const toml::source_position& position, const std::string& text)
{
    std::string line = fmt::format("{}:{}:{}: {}", file, position.line, position.column, text);
    std::replace_if(
        line.begin(), line.end(), [](unsigned char c) { return c < ' ' || c == 0x7F; }, '?');
    return line;
}

[[noreturn]] void RefuseAt(const std::string& file, const toml::source_position& position, const std::string& text)
{
    throw InputError(FormatAt(file, position, text));
}

/// What the parser says, "Error while parsing value: unexpected end-of-file", in a sentence.
std::string Explain(const std::string& description)
{
    const std::string begin = "Error while parsing ";
    const std::size_t colon = description.find(": ");
    if (!description.starts_with(begin) || colon == std::string::npos) {
        return fmt::format("expected TOML but {}", description);
    }
    return fmt::format("expected TOML but this {} cannot be read: {}",
                       description.substr(begin.size(), colon - begin.size()), description.substr(colon + 2));
}

/// All bytes of a file. Opening a folder succeeds; reading from it does not.
std::string ReadText(const std::filesystem::path& file)
{
    std::string text;
    std::array<char, 4096> block{};
    errno = 0;
    std::ifstream stream(file, std::ios::binary);
    while (stream) {
        stream.read(block.data(), block.size());
        text.append(block.data(), static_cast<std::size_t>(stream.gcount()));
    }
    if (!stream.eof()) {
        throw InputError(fmt::format("expected a TOML file but {} cannot be read: {}", file.string(),
                                     std::generic_category().message(errno)));
    }
    return text;
}

const char* KindOf(const toml::node& node)
{
    switch (node.type()) {
        case toml::node_type::table:
            return "a table";
        case toml::node_type::array:
            return "an array";
        case toml::node_type::string:
            return "a string";
        case toml::node_type::integer:
            return "an integer";
        case toml::node_type::floating_point:
            return "a floating-point number";
        case toml::node_type::boolean:
            return "a boolean";
        default:
            return "a date or time";
    }
}

std::string WithUnit(const std::string& text, const std::string& separator, const std::string& unit)
{
    return unit.empty() ? text : text + separator + unit;
}

std::string DescribeRange(const NumberRange& range)
{
    if (range.low && range.high) {
        return WithUnit(fmt::format("{} to {}", *range.low, *range.high), " ", range.unit);
    }
    return range.low ? WithUnit(fmt::format("{}", *range.low), " ", range.unit) + " or above"
                     : WithUnit(fmt::format("{}", *range.high), " ", range.unit) + " or below";
}

/// "'modes'", or "'modes' under [run]" for one of another table: what is spelt alike comes before what is near. ""
/// where nothing is.
std::string Suggest(const std::string& key, const std::vector<std::string>& known,
                    const TomlTable::KnownKeys& elsewhere)
{
    std::vector<std::string> others;
    others.reserve(elsewhere.size());
    for (const auto& [table, other] : elsewhere) {
        others.push_back(other);
    }
    const std::string near_here = FindNearest(key, known);
    const std::string near_there = FindNearest(key, others);
    if (near_there.empty() || (!near_here.empty() && near_there != key)) {
        return near_here.empty() ? "" : fmt::format("'{}'", near_here);
    }
    std::vector<std::string> tables;
    for (const auto& [table, other] : elsewhere) {
        if (other == near_there) {
            tables.push_back(fmt::format("[{}]", table));
        }
    }
    return fmt::format("'{}' under {}", near_there, fmt::join(tables, " or "));
}

}  // namespace

struct TomlTable::Impl
{
    std::shared_ptr<const Document> document;
    const toml::table* table = nullptr;
    std::vector<std::string> asked;  // each once

    const toml::node* Find(const std::string& key)
    {
        if (std::find(asked.begin(), asked.end(), key) == asked.end()) {
            asked.push_back(key);
        }
        return table->get(key);
    }

    [[noreturn]] void Refuse(const toml::node& value, const std::string& key, const std::string& text) const
    {
        RefuseAt(document->file, value.source().begin, fmt::format("{}: {}", key, text));
    }

    [[noreturn]] void RefuseKind(const toml::node& value, const std::string& key, const std::string& expected) const
    {
        Refuse(value, key, fmt::format("expected {} but got {}", expected, KindOf(value)));
    }

    TomlTable Open(const toml::table& inner) const
    {
        return TomlTable(std::make_shared<Impl>(Impl{.document = document, .table = &inner, .asked = {}}));
    }

    int TakeInteger(const toml::node& value, const std::string& key, int low, int high, const std::string& what) const
    {
        if (!value.is_integer()) {
            RefuseKind(value, key, what);
        }
        const std::int64_t number = value.as_integer()->get();
        if (number < low || number > high) {
            Refuse(value, key, fmt::format("expected {} to {} but got {}", low, high, number));
        }
        return static_cast<int>(number);
    }
};

TomlTable TomlTable::Open(const std::filesystem::path& file)
{
    auto document = std::make_shared<Document>();
    document->file = file.string();
    const std::string text = ReadText(file);
    try {
        document->root = toml::parse(text);
    } catch (const toml::parse_error& error) {
        RefuseAt(document->file, error.source().begin, Explain(std::string(error.description())));
    }
    const toml::table& root = document->root;
    return TomlTable(std::make_shared<Impl>(Impl{.document = std::move(document), .table = &root, .asked = {}}));
}

bool TomlTable::Has(const std::string& key)
{
    return m_impl->Find(key) != nullptr;
}

bool TomlTable::IsString(const std::string& key)
{
    const toml::node* const value = m_impl->Find(key);
    return value != nullptr && value->is_string();
}

std::optional<double> TomlTable::GetNumber(const std::string& key, const NumberRange& range)
{
    const toml::node* const value = m_impl->Find(key);
    if (value == nullptr) {
        return std::nullopt;
    }
    if (!value->is_number()) {
        m_impl->RefuseKind(*value, key, WithUnit("a number", " of ", range.unit));
    }
    const double number = value->value<double>().value();
    if (!std::isfinite(number)) {
        m_impl->Refuse(*value, key,
                       fmt::format("expected {} but got {}", WithUnit("a finite number", " of ", range.unit), number));
    }
    if ((range.low && number < *range.low) || (range.high && number > *range.high)) {
        m_impl->Refuse(*value, key, fmt::format("expected {} but got {}", DescribeRange(range), number));
    }
    return number;
}

std::optional<int> TomlTable::GetInteger(const std::string& key, int low, int high)
{
    const toml::node* const value = m_impl->Find(key);
    if (value == nullptr) {
        return std::nullopt;
    }
    return m_impl->TakeInteger(*value, key, low, high, "an integer");
}

std::optional<std::vector<int>> TomlTable::GetIntegers(const std::string& key, int low, int high,
                                                       const std::string& what)
{
    const toml::node* const value = m_impl->Find(key);
    if (value == nullptr) {
        return std::nullopt;
    }
    const toml::array* const array = value->as_array();
    if (array == nullptr) {
        return std::vector<int>{m_impl->TakeInteger(*value, key, low, high, what)};
    }
    if (array->empty()) {
        m_impl->Refuse(*value, key, "expected at least one integer but got an empty array");
    }
    std::vector<int> numbers;
    for (const toml::node& element : *array) {
        numbers.push_back(m_impl->TakeInteger(element, key, low, high, "integers in the array"));
    }
    return numbers;
}

std::optional<std::uint64_t> TomlTable::GetUnsigned(const std::string& key)
{
    const toml::node* const value = m_impl->Find(key);
    if (value == nullptr) {
        return std::nullopt;
    }
    if (value->is_integer()) {
        const std::int64_t number = value->as_integer()->get();
        if (number < 0) {
            m_impl->Refuse(*value, key, fmt::format("expected 0 or above but got {}", number));
        }
        return static_cast<std::uint64_t>(number);
    }
    if (!value->is_string()) {
        m_impl->RefuseKind(*value, key, "an integer");
    }
    const std::string& text = value->as_string()->get();
    std::uint64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size()) {
        m_impl->Refuse(*value, key, fmt::format("expected an integer of at most 64 bits but got '{}'", text));
    }
    return number;
}

std::optional<bool> TomlTable::GetBool(const std::string& key)
{
    const toml::node* const value = m_impl->Find(key);
    if (value == nullptr) {
        return std::nullopt;
    }
    if (!value->is_boolean()) {
        m_impl->RefuseKind(*value, key, "true or false");
    }
    return value->as_boolean()->get();
}

std::optional<std::string> TomlTable::GetString(const std::string& key)
{
    const toml::node* const value = m_impl->Find(key);
    if (value == nullptr) {
        return std::nullopt;
    }
    if (!value->is_string()) {
        m_impl->RefuseKind(*value, key, "a string");
    }
    return value->as_string()->get();
}

std::optional<std::vector<std::string>> TomlTable::GetStrings(const std::string& key, const std::string& what)
{
    const toml::node* const value = m_impl->Find(key);
    if (value == nullptr) {
        return std::nullopt;
    }
    const toml::array* const array = value->as_array();
    if (array == nullptr) {
        m_impl->RefuseKind(*value, key, "an array of " + what);
    }
    std::vector<std::string> strings;
    for (const toml::node& element : *array) {
        if (!element.is_string()) {
            m_impl->RefuseKind(element, key, "strings in the array of " + what);
        }
        strings.push_back(element.as_string()->get());
    }
    return strings;
}

std::filesystem::path TomlTable::GetPath(const std::string& key)
{
    const toml::node* const value = m_impl->Find(key);
    if (value == nullptr) {
        return {};
    }
    if (!value->is_string()) {
        m_impl->RefuseKind(*value, key, "the name of a file");
    }
    const std::string& name = value->as_string()->get();
    if (name.empty() || name.find('\0') != std::string::npos) {
        m_impl->Refuse(*value, key, fmt::format("expected the name of a file but got '{}'", name));
    }
    return name;
}

std::filesystem::path TomlTable::GetPathBeside(const std::string& key)
{
    std::filesystem::path path = GetPath(key);
    if (path.empty()) {
        return path;
    }
    std::filesystem::path beside = std::filesystem::path(m_impl->document->file).parent_path() / path;
    std::error_code ignored;
    const bool is_near = std::filesystem::exists(beside, ignored) || std::filesystem::exists(path, ignored);
    // The data path is the last to be asked; its files have no place as seen from this one.
    return is_near || brisk::Helper::FindFile(path.string()).empty() ? beside : path;
}

std::optional<TomlTable> TomlTable::GetTable(const std::string& key)
{
    const toml::node* const value = m_impl->Find(key);
    if (value == nullptr) {
        return std::nullopt;
    }
    if (!value->is_table()) {
        m_impl->RefuseKind(*value, key, "a table");
    }
    return m_impl->Open(*value->as_table());
}

std::vector<TomlTable> TomlTable::GetTables(const std::string& key)
{
    const toml::node* const value = m_impl->Find(key);
    if (value == nullptr) {
        return {};
    }
    const std::string expected = fmt::format("tables, each under [[{}]],", key);
    if (!value->is_array()) {
        m_impl->RefuseKind(*value, key, expected);
    }
    std::vector<TomlTable> tables;
    for (const toml::node& element : *value->as_array()) {
        if (!element.is_table()) {
            m_impl->RefuseKind(element, key, expected);
        }
        tables.push_back(m_impl->Open(*element.as_table()));
    }
    return tables;
}

void TomlTable::RefuseUnknownKeys(const KnownKeys& elsewhere) const
{
    const std::vector<std::string>& known = m_impl->asked;
    const toml::key* first = nullptr;
    for (const auto& [key, value] : *m_impl->table) {
        const bool asked = std::find(known.begin(), known.end(), key.str()) != known.end();
        if (!asked && (first == nullptr || key.source().begin < first->source().begin)) {
            first = &key;
        }
    }
    if (first == nullptr) {
        return;
    }
    const std::string expected = known.empty() ? "an empty table" : fmt::format("{}", fmt::join(known, ", "));
    std::string text =
        fmt::format("unknown key '{}'; expected {}{}", first->str(), known.size() > 1 ? "one of " : "", expected);
    if (const std::string meant = Suggest(std::string(first->str()), known, elsewhere); !meant.empty()) {
        text += fmt::format("; did you mean {}?", meant);
    }
    RefuseAt(m_impl->document->file, first->source().begin, text);
}

std::string TomlTable::Locate(const std::string& key) const
{
    const toml::node* const value = m_impl->table->get(key);
    const toml::node& node = value == nullptr ? *m_impl->table : *value;
    return FormatAt(m_impl->document->file, node.source().begin, key);
}

void TomlTable::Refuse(const std::string& key, const std::string& text) const
{
    const toml::node* const value = m_impl->table->get(key);
    m_impl->Refuse(value == nullptr ? *m_impl->table : *value, key, text);
}

void TomlTable::Refuse(const std::string& text) const
{
    RefuseAt(m_impl->document->file, m_impl->table->source().begin, text);
}

int TomlTable::GetLine() const
{
    return static_cast<int>(m_impl->table->source().begin.line);
}

}  // namespace lumo::ravelctl
