#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace lumo::ravelctl::test {

/// A program that runs as a child process, with its standard output read here. All stop signals have their default
/// effect in it, whatever this process does with them.
class ChildProcess
{
public:
    enum class Output
    {
        Pipe,
        Terminal,  // a terminal of its own, an xterm and also its controlling one; it takes standard error as well
    };

    struct Result
    {
        int status = -1;  // exit status; -1 when a signal ended it
        int signal = 0;   // that ended it
        std::string out;
        std::string err;
    };

    /// `arguments`: the program's path first.
    /// `columns`: of a terminal; 0: it does not say.
    explicit ChildProcess(const std::vector<std::string>& arguments, Output output = Output::Pipe,
                          unsigned short columns = 0);

    /// Kills the process if nobody has waited for it.
    ~ChildProcess();

    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    /// Reads the output until it holds `text`; false when it ends before.
    bool AwaitOutput(const std::string& text);

    /// What a person types into the terminal.
    void Type(const std::string& text) const;

    /// Nobody reads the output from now on; a terminal hangs up.
    void CloseOutput();

    void Send(int signal) const;

    /// Reads the output to its end and waits for the process.
    Result Wait();

private:
    bool ReadSome();

    pid_t m_pid = -1;
    int m_out = -1;
    int m_err = -1;  // a file without a name
    std::string m_text;
};

/// Runs a program to its end.
ChildProcess::Result RunChild(const std::vector<std::string>& arguments);

}  // namespace lumo::ravelctl::test
