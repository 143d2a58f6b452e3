#include "commandOutline.hpp"

#include <CLI/CLI.hpp>
#include <fmt/core.h>
#include <fmt/ranges.h>

namespace lumo::ravelctl {

namespace {

/// The values of "{a,b}"; none where it is no such name.
std::vector<std::string> SplitValues(const std::string& type)
{
    if (type.size() < 2 || type.front() != '{' || type.back() != '}') {
        return {};
    }
    return CLI::detail::split(type.substr(1, type.size() - 2), ',');
}

std::string NameValue(const CLI::Option& option)
{
    const std::string type = option.get_type_name();
    if (option.get_type_size_max() == 0) {
        return "";
    }
    return type == "INT" || type == "UINT" ? "N" : type;
}

ValueKind FindKind(const CLI::Option& option, const std::string& type)
{
    if (!SplitValues(type).empty()) {
        return option.get_delimiter() == ',' ? ValueKind::SomeOf : ValueKind::OneOf;
    }
    return type == FILE_VALUE ? ValueKind::File : type == FOLDER_VALUE ? ValueKind::Folder : ValueKind::Other;
}

std::vector<std::string> FindNames(const CLI::Option& option)
{
    if (!option.nonpositional()) {
        return {option.get_name(true)};
    }
    std::vector<std::string> names;
    names.reserve(option.get_snames().size() + option.get_lnames().size());
    for (const std::string& name : option.get_snames()) {
        names.push_back("-" + name);
    }
    for (const std::string& name : option.get_lnames()) {
        names.push_back("--" + name);
    }
    return names;
}

OptionOutline OutlineOption(const CLI::Option& option)
{
    const std::string& fallback = option.get_default_str();
    OptionOutline outline;
    outline.names = FindNames(option);
    outline.value = NameValue(option);
    outline.kind = FindKind(option, outline.value);
    outline.values = SplitValues(outline.value);
    outline.description = option.get_description() + (fallback.empty() ? "" : fmt::format(" [{}]", fallback));
    outline.is_required = option.get_required();
    outline.value_may_be_missing = !outline.value.empty() && option.get_expected_min() == 0;
    outline.may_be_many = option.get_expected_max() > 1;
    return outline;
}

}  // namespace

std::string NameValues(const std::vector<std::string>& values)
{
    return fmt::format("{{{}}}", fmt::join(values, ","));
}

CommandOutline OutlineCommand(const CLI::App& command)
{
    CommandOutline outline{command.get_name(), command.get_description(), command.get_footer(), {}, {}};
    for (const CLI::Option* option : command.get_options()) {
        (option->nonpositional() ? outline.options : outline.arguments).push_back(OutlineOption(*option));
    }
    return outline;
}

ProgramOutline OutlineProgram(const CLI::App& program)
{
    const std::vector<const CLI::App*> commands = program.get_subcommands([](const CLI::App*) { return true; });
    ProgramOutline outline{OutlineCommand(program), {}};
    outline.commands.reserve(commands.size());
    for (const CLI::App* command : commands) {
        outline.commands.push_back(OutlineCommand(*command));
    }
    return outline;
}

}  // namespace lumo::ravelctl
