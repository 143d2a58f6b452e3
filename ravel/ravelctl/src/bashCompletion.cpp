#include "bashCompletion.hpp"

#include <fmt/core.h>
#include <fmt/ranges.h>

namespace lumo::ravelctl {

namespace {

constexpr const char* FUNCTIONS = R"(# Completion for ravelctl in bash, as ravelctl --bash-completion prints it.

_ravelctl_words()
{
    mapfile -t COMPREPLY < <(compgen -W "$1" -- "$cur")
}

# Values with commas between them: the last one is completed.
_ravelctl_list()
{
    local head=
    [[ $cur == *,* ]] && head=${cur%,*},
    compopt -o nospace 2>/dev/null
    mapfile -t COMPREPLY < <(compgen -P "$head" -W "$1" -- "${cur##*,}")
}

_ravelctl_files()
{
    compopt -o filenames 2>/dev/null
    mapfile -t COMPREPLY < <(compgen -f -- "$cur")
}

_ravelctl_folders()
{
    compopt -o filenames 2>/dev/null
    mapfile -t COMPREPLY < <(compgen -d -- "$cur")
}

_ravelctl()
{
    local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD - 1]} command= i
    COMPREPLY=()
    # bash takes the parts of --option=value for words of their own.
    if [[ $cur == = ]]; then
        cur=
    elif [[ $prev == = ]]; then
        prev=${COMP_WORDS[COMP_CWORD - 2]}
    fi
    for ((i = 1; i < COMP_CWORD; ++i)); do
        if [[ ${COMP_WORDS[i]} != -* ]]; then
            command=${COMP_WORDS[i]}
            break
        fi
    done
    case $command in
)";

constexpr const char* END = R"(    esac
}

complete -F _ravelctl ravelctl
)";

/// The statement that completes a value; "" where nothing is known of it.
std::string Complete(const OptionOutline& option)
{
    switch (option.kind) {
        case ValueKind::File:
            return "_ravelctl_files";
        case ValueKind::Folder:
            return "_ravelctl_folders";
        case ValueKind::OneOf:
            return fmt::format("_ravelctl_words '{}'", fmt::join(option.values, " "));
        case ValueKind::SomeOf:
            return fmt::format("_ravelctl_list '{}'", fmt::join(option.values, " "));
        case ValueKind::Other:
            break;
    }
    return "";
}

/// What follows an option that takes a value is this value; where it may be missing another option may follow.
std::string FormatValues(const CommandOutline& command)
{
    std::string text;
    for (const OptionOutline& option : command.options) {
        if (option.value.empty()) {
            continue;
        }
        const std::string complete = Complete(option);
        const std::string value = complete.empty() ? "return" : complete + "; return";
        text += fmt::format("                {}) {} ;;\n", fmt::join(option.names, " | "),
                            option.value_may_be_missing ? "[[ $cur == -* ]] || { " + value + "; }" : value);
    }
    return text.empty() ? "" : "            case $prev in\n" + text + "            esac\n";
}

std::string FormatOptions(const CommandOutline& command)
{
    std::vector<std::string> names;
    for (const OptionOutline& option : command.options) {
        names.insert(names.end(), option.names.begin(), option.names.end());
    }
    return fmt::format("{}", fmt::join(names, " "));
}

std::string FormatCommand(const CommandOutline& command)
{
    const std::string argument = command.arguments.empty() ? "" : Complete(command.arguments.front());
    return fmt::format("        {})\n{}", command.name, FormatValues(command)) +
           "            if [[ $cur == -* ]]; then\n" +
           fmt::format("                _ravelctl_words '{}'\n", FormatOptions(command)) +
           (argument.empty() ? "" : fmt::format("            else\n                {}\n", argument)) +
           "            fi\n            ;;\n";
}

}  // namespace

std::string FormatBashCompletion(const ProgramOutline& program)
{
    std::vector<std::string> names;
    names.reserve(program.commands.size());
    std::string commands;
    for (const CommandOutline& command : program.commands) {
        names.push_back(command.name);
        commands += FormatCommand(command);
    }
    return FUNCTIONS +
           fmt::format("        '') _ravelctl_words '{} {}' ;;\n", fmt::join(names, " "),
                       FormatOptions(program.program)) +
           commands + END;
}

}  // namespace lumo::ravelctl
