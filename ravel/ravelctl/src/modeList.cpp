#include "modeList.hpp"

#include "error.hpp"

#include <fmt/core.h>

#include <charconv>
#include <string_view>
#include <system_error>

namespace lumo::ravelctl {

namespace {

/// Reads the digits at the front of `rest` and removes them.
int TakeMode(std::string_view& rest, const std::string& text, int num_modes, const char* what)
{
    int mode = -1;
    const char* const begin = rest.data();
    const auto [end, error] = std::from_chars(begin, begin + rest.size(), mode);
    // It would also read a minus sign.
    if (rest.empty() || rest.front() == '-' || error == std::errc::invalid_argument) {
        throw InputError(fmt::format("expected a list of {}s, such as 5 or 0,3,10-19, but got {}", what, text));
    }
    const auto length = static_cast<std::size_t>(end - begin);
    if (error != std::errc() || mode >= num_modes) {
        throw InputError(fmt::format("expected {}s 0 to {} but got {}", what, num_modes - 1, rest.substr(0, length)));
    }
    rest.remove_prefix(length);
    return mode;
}

/// Removes `character` from the front of `rest`; false when something else is there.
bool Take(std::string_view& rest, char character)
{
    if (rest.empty() || rest.front() != character) {
        return false;
    }
    rest.remove_prefix(1);
    return true;
}

}  // namespace

std::vector<int> ParseModeList(const std::string& text, int num_modes, const char* what)
{
    std::vector<bool> named(static_cast<std::size_t>(num_modes));
    std::string_view rest = text;
    do {
        const int first = TakeMode(rest, text, num_modes, what);
        const int last = Take(rest, '-') ? TakeMode(rest, text, num_modes, what) : first;
        if (last < first) {
            throw InputError(fmt::format("expected the smaller {} first but got {}-{}", what, first, last));
        }
        for (int mode = first; mode <= last; ++mode) {
            named[static_cast<std::size_t>(mode)] = true;
        }
    } while (Take(rest, ','));
    if (!rest.empty()) {
        throw InputError(fmt::format("expected a list of {}s, such as 5 or 0,3,10-19, but got {}", what, text));
    }
    std::vector<int> modes;
    for (int mode = 0; mode < num_modes; ++mode) {
        if (named[static_cast<std::size_t>(mode)]) {
            modes.push_back(mode);
        }
    }
    return modes;
}

std::string FormatModeList(const std::vector<int>& modes)
{
    std::string text;
    for (std::size_t i = 0; i < modes.size(); ++i) {
        const std::size_t first = i;
        while (i + 1 < modes.size() && modes[i + 1] == modes[i] + 1) {
            ++i;
        }
        text += fmt::format("{}{}", text.empty() ? "" : ",", modes[first]);
        if (i > first) {
            text += fmt::format("{}{}", i > first + 1 ? '-' : ',', modes[i]);
        }
    }
    return text;
}

}  // namespace lumo::ravelctl
