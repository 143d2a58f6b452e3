#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
}

/// What the parser knows of the command line, for those who tell people: help, manual page, completion. Whatever a
/// command takes is in all of them.
namespace lumo::ravelctl {

/// What a value is, as far as it can be completed.
enum class ValueKind
{
    Other,
    File,
    Folder,
    OneOf,   // some values
    SomeOf,  // the same, with commas between them
};

/// An option or, without dashes, an argument that is known by its place.
struct OptionOutline
{
    std::vector<std::string> names;  // as typed, "-h" and "--help"; of an argument the one name, such as "FILE"
    std::string value;               // what stands for the value, such as "HZ"; empty for a flag
    ValueKind kind = ValueKind::Other;
    std::vector<std::string> values;  // of OneOf and SomeOf
    std::string description;          // the default in brackets at its end
    bool is_required = false;
    bool value_may_be_missing = false;
    bool may_be_many = false;  // of an argument
};

struct CommandOutline
{
    std::string name;
    std::string description;
    std::string footer;  // lines; those that begin with blanks stand as they are, all others are running text
    std::vector<OptionOutline> arguments;
    std::vector<OptionOutline> options;
};

struct ProgramOutline
{
    CommandOutline program;  // what stands before any command
    std::vector<CommandOutline> commands;
};

/// The names that make a value's kind known to OutlineCommand: the type names of the parser's options. Values are
/// written as NameValues does.
inline constexpr const char* FILE_VALUE = "FILE";
inline constexpr const char* FOLDER_VALUE = "DIR";

/// "{a,b}", the type name of an option that takes one of the values; of several where the parser splits at commas.
std::string NameValues(const std::vector<std::string>& values);

CommandOutline OutlineCommand(const CLI::App& command);
ProgramOutline OutlineProgram(const CLI::App& program);

}  // namespace lumo::ravelctl
