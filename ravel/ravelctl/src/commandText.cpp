#include "commandText.hpp"

#include "helpText.hpp"

#include <fmt/core.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <span>
#include <string_view>

namespace lumo::ravelctl {

namespace {

/// At blanks, but not at those in quotes.
std::vector<std::string> SplitWords(const std::string& command)
{
    std::vector<std::string> words;
    bool is_within = false;
    char quote = '\0';
    for (const char letter : command) {
        if (quote == '\0' && letter == ' ') {
            is_within = false;
            continue;
        }
        if (letter == quote) {
            quote = '\0';
        } else if (quote == '\0' && (letter == '\'' || letter == '"')) {
            quote = letter;
        }
        if (!is_within) {
            words.emplace_back();
            is_within = true;
        }
        words.back() += letter;
    }
    return words;
}

/// Whether the shell waits for more after this word.
bool IsJoint(const std::string& word)
{
    return word == "&&" || word == "|";
}

/// Words that end in a joint, or the last ones.
void AddLines(std::span<const std::string> words, std::size_t width, std::vector<std::string>& lines)
{
    constexpr std::size_t BACKSLASH = 2;  // and a blank
    std::string line;
    for (const std::string& word : words) {
        const std::size_t after = &word == &words.back() ? 0 : BACKSLASH;
        if (!line.empty() && line.size() + 1 + word.size() + after > width) {
            lines.push_back(line + " \\");
            line.clear();
        }
        line += (line.empty() ? "" : " ") + word;
    }
    lines.push_back(line);
}

}  // namespace

std::vector<std::string> WrapCommand(const std::string& command, std::size_t width)
{
    if (command.size() <= width) {
        return {command};
    }
    const std::vector<std::string> words = SplitWords(command);
    const auto mark = std::find(words.begin(), words.end(), "#");
    std::vector<std::string> lines;
    for (auto begin = words.begin(); begin != mark;) {
        const auto joint = std::find_if(begin, mark, IsJoint);
        const auto end = joint == mark ? mark : joint + 1;
        AddLines({begin, end}, width, lines);
        begin = end;
    }
    if (mark == words.end()) {
        return lines;
    }
    const std::string comment = fmt::format("{}", fmt::join(mark + 1, words.end(), " "));
    constexpr std::string_view MARK = "  # ";
    if (lines.back().size() + MARK.size() + comment.size() <= width) {
        lines.back() += fmt::format("{}{}", MARK, comment);
        return lines;
    }
    for (const std::string& line : WrapWords(comment, width - 2)) {
        lines.push_back("# " + line);
    }
    return lines;
}

}  // namespace lumo::ravelctl
