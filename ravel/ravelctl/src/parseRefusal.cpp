#include "parseRefusal.hpp"

#include "commandOutline.hpp"
#include "nearestName.hpp"

#include <CLI/CLI.hpp>
#include <fmt/core.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

namespace lumo::ravelctl {

namespace {

/// "; did you mean --modes?", or nothing where no name is near.
std::string Suggest(const std::string& word, const std::vector<std::string>& known)
{
    const std::string nearest = FindNearest(word, known);
    return nearest.empty() ? "" : fmt::format("; did you mean {}?", nearest);
}

std::vector<std::string> OptionNames(const CommandOutline& command)
{
    std::vector<std::string> names;
    for (const OptionOutline& option : command.options) {
        names.insert(names.end(), option.names.begin(), option.names.end());
    }
    return names;
}

/// Of a word where a command should stand.
std::string ExplainNoCommand(const CLI::App& app, const std::string& word)
{
    const ProgramOutline program = OutlineProgram(app);
    std::vector<std::string> known = OptionNames(program.program);
    for (const CommandOutline& command : program.commands) {
        known.push_back(command.name);
    }
    return fmt::format("{} is no command or option of ravelctl{}", word, Suggest(word, known));
}

/// Of a word that the command does not take.
std::string ExplainExtra(const CLI::App& command, const std::string& word)
{
    if (!word.starts_with('-')) {
        return fmt::format("{}: expected nothing more but got {}", command.get_name(), word);
    }
    const std::string name = word.substr(0, word.find('='));
    return fmt::format("{} is no option of ravelctl {}{}", name, command.get_name(),
                       Suggest(name, OptionNames(OutlineCommand(command))));
}

/// Of a number that is none. The parser says "Could not convert: --modes = many".
std::string ExplainNumber(const CLI::App& command, const std::string& text)
{
    constexpr std::string_view BEGIN = "Could not convert: ";
    constexpr std::string_view EQUALS = " = ";
    const std::size_t equals = text.find(EQUALS);
    if (!text.starts_with(BEGIN) || equals == std::string::npos) {
        return text;
    }
    const std::string name = text.substr(BEGIN.size(), equals - BEGIN.size());
    const std::string value = text.substr(equals + EQUALS.size());
    bool is_whole = false;
    for (const OptionOutline& option : OutlineCommand(command).options) {
        is_whole = is_whole || (option.names.back() == name && option.value == "N");
    }
    const bool is_negative = value.starts_with('-');
    const std::string digits = value.substr(is_negative ? 1 : 0);
    const bool is_beyond = !digits.empty() && digits.find_first_not_of("0123456789") == std::string::npos;
    return fmt::format("{}: expected a {}number but got {}", name,
                       is_beyond  ? (is_negative ? "larger " : "smaller ")
                       : is_whole ? "whole "
                                  : "",
                       value);
}

}  // namespace

std::string ExplainRefusal(const CLI::App& app, const CLI::ParseError& error)
{
    const std::vector<CLI::App*> parsed = app.get_subcommands();
    const std::vector<std::string> unknown = app.remaining(true);
    if (parsed.empty()) {
        return fmt::format("{} (try: ravelctl --help)", unknown.empty() ? "expected a command but got none"
                                                                        : ExplainNoCommand(app, unknown.front()));
    }
    const CLI::App& command = *parsed.front();
    std::string text = error.what();
    if (dynamic_cast<const CLI::ExtrasError*>(&error) != nullptr && !unknown.empty()) {
        text = ExplainExtra(command, unknown.front());
    } else if (dynamic_cast<const CLI::ConversionError*>(&error) != nullptr) {
        text = ExplainNumber(command, text);
    }
    return fmt::format("{} (try: ravelctl {} --help)", text, command.get_name());
}

}  // namespace lumo::ravelctl
