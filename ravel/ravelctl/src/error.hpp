#pragma once

#include <array>
#include <stdexcept>
#include <string>

namespace lumo::ravelctl {

/// Exit statuses of every command.
inline constexpr int EXIT_OK = 0;
inline constexpr int EXIT_FAILED = 1;
inline constexpr int EXIT_BAD_INPUT = 2;
inline constexpr int EXIT_INTERRUPTED = 130;

struct ExitStatus
{
    int status;
    const char* meaning;
};

/// What the statuses mean: the help, the manual page and the guide say it in these words.
inline constexpr std::array<ExitStatus, 4> EXIT_STATUSES = {{
    {EXIT_OK, "the loop held, everything that was asked for was done, every file was written"},
    {EXIT_FAILED, "it did not, or something was not; each reason is a line on standard error"},
    {EXIT_BAD_INPUT, "bad input, refused before the loop closed"},
    {EXIT_INTERRUPTED,
     "Ctrl-C, SIGTERM or SIGHUP, whatever else went wrong; what a run recorded and a qualification measured is saved, "
     "no half-written file is left"},
}};

/// Input that cannot work. what() is one line: what was expected, what came, what to do.
class InputError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// Something that went wrong with good input. what() is one line.
class RunError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

}  // namespace lumo::ravelctl
