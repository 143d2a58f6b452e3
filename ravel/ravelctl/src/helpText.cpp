#include "helpText.hpp"

#include "error.hpp"

#include <fmt/core.h>
#include <fmt/ranges.h>

#include <sstream>

namespace lumo::ravelctl {

namespace {

constexpr std::size_t WIDTH = 80;
constexpr std::size_t NAME_WIDTH = 28;

std::string FormatEntries(const char* heading, const std::vector<OptionOutline>& entries)
{
    std::string text = entries.empty() ? "" : fmt::format("\n{}:\n", heading);
    for (const OptionOutline& entry : entries) {
        text += FormatNote(FormatName(entry), entry.description, NAME_WIDTH);
    }
    return text;
}

/// Running text is wrapped; what begins with blanks stands as it is.
std::string WrapFooter(const std::string& footer)
{
    std::string text;
    std::string running;
    const auto end_running = [&] {
        for (const std::string& line : WrapWords(running, WIDTH)) {
            text += line + "\n";
        }
        running.clear();
    };
    std::istringstream lines(footer);
    for (std::string line; std::getline(lines, line);) {
        if (!line.empty() && line.front() != ' ') {
            running += line + " ";
            continue;
        }
        end_running();
        text += line + "\n";
    }
    end_running();
    return text;
}

std::string FormatTop(const std::string& usage, const std::string& description)
{
    std::string text;
    for (const std::string& line : WrapWords(description, WIDTH)) {
        text += line + "\n";
    }
    return text + fmt::format("\nUsage: {}\n", usage);
}

std::string FormatEnd(const CommandOutline& command)
{
    return command.footer.empty() ? "" : "\n" + WrapFooter(command.footer);
}

}  // namespace

std::string FormatNote(const std::string& name, const std::string& meaning, std::size_t name_width)
{
    std::string text = "  " + name;
    std::size_t column = text.size();
    for (const std::string& line : WrapWords(meaning, WIDTH - name_width)) {
        if (column + 2 > name_width) {
            text += "\n";
            column = 0;
        }
        text += std::string(name_width - column, ' ') + line + "\n";
        column = 0;
    }
    return column == 0 ? text : text + "\n";
}

std::vector<std::string> WrapWords(const std::string& text, std::size_t width)
{
    std::vector<std::string> lines;
    std::istringstream words(text);
    for (std::string word; words >> word;) {
        if (!lines.empty() && lines.back().size() + 1 + word.size() <= width) {
            lines.back() += " " + word;
        } else {
            lines.push_back(word);
        }
    }
    return lines;
}

std::string FormatName(const OptionOutline& option)
{
    if (!option.names.front().starts_with('-')) {
        return option.names.front() + (option.may_be_many ? "..." : "");
    }
    const char* const form = option.value.empty() ? "{}" : option.value_may_be_missing ? "{} [{}]" : "{} {}";
    return fmt::format(fmt::runtime(form), fmt::join(option.names, ", "), option.value);
}

std::string FormatSynopsis(const CommandOutline& command)
{
    std::string text;
    for (const OptionOutline& argument : command.arguments) {
        text += fmt::format(fmt::runtime(argument.is_required ? "{} " : "[{}] "), FormatName(argument));
    }
    for (const OptionOutline& option : command.options) {
        text += option.is_required ? FormatName(option) + " " : "";
    }
    return text + "[OPTIONS]";
}

std::string FormatHelp(const CommandOutline& command)
{
    return FormatTop(fmt::format("ravelctl {} {}", command.name, FormatSynopsis(command)), command.description + ".") +
           FormatEntries("Arguments", command.arguments) + FormatEntries("Options", command.options) +
           FormatEnd(command);
}

std::string FormatHelp(const ProgramOutline& program)
{
    constexpr std::size_t COMMAND_WIDTH = 20;
    std::string text = FormatTop("ravelctl COMMAND ...", program.program.description + ".") + "\nCommands:\n";
    for (const CommandOutline& command : program.commands) {
        text += FormatNote(command.name, command.description, COMMAND_WIDTH);
    }
    return text + "\nEach of them has --help, with its options and examples.\n" +
           FormatEntries("Options", program.program.options) + FormatEnd(program.program);
}

std::string FormatFooter(const std::string& notes, const std::vector<std::string>& examples, const std::string& good,
                         const std::string& bad)
{
    return fmt::format("{}{}Examples:\n  {}\n\nExit status: {} {}; {} {}; {} bad input; {} after Ctrl-C.", notes,
                       notes.empty() ? "" : "\n\n", fmt::join(examples, "\n  "), EXIT_OK, good, EXIT_FAILED, bad,
                       EXIT_BAD_INPUT, EXIT_INTERRUPTED);
}

}  // namespace lumo::ravelctl
