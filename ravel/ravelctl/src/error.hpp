#pragma once

#include <stdexcept>
#include <string>

namespace lumo::ravelctl {

/// Exit statuses of every command; the guide lists them.
inline constexpr int EXIT_OK = 0;
inline constexpr int EXIT_FAILED = 1;         // the loop did not hold, or a file was not written
inline constexpr int EXIT_BAD_INPUT = 2;      // refused before the loop closed
inline constexpr int EXIT_INTERRUPTED = 130;  // Ctrl-C; what was recorded is saved

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
