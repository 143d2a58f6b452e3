#include "support/childProcess.hpp"

#include <fcntl.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <system_error>

extern char** environ;

namespace lumo::ravelctl::test {

namespace {

/// Throws unless `result` is 0 or above; gives it back.
int Check(int result, const char* what)
{
    if (result < 0) {
        throw std::system_error(errno, std::generic_category(), what);
    }
    return result;
}

void CheckError(int error, const char* what)
{
    if (error != 0) {
        throw std::system_error(error, std::generic_category(), what);
    }
}

int MakeNamelessFile()
{
    std::string name = "/tmp/ravelctl-test-err-XXXXXX";
    const int file = Check(mkstemp(name.data()), "mkstemp");
    unlink(name.c_str());
    fcntl(file, F_SETFD, FD_CLOEXEC);
    return file;
}

/// The side of a new terminal at which the person sits.
int OpenTerminal(unsigned short columns)
{
    const int terminal = Check(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC), "posix_openpt");
    Check(grantpt(terminal), "grantpt");
    Check(unlockpt(terminal), "unlockpt");
    winsize size{};
    size.ws_col = columns;
    Check(ioctl(terminal, TIOCSWINSZ, &size), "ioctl");
    return terminal;
}

class SpawnAttributes
{
public:
    explicit SpawnAttributes(bool own_session)
    {
        CheckError(posix_spawnattr_init(&m_attributes), "posix_spawnattr_init");
        sigset_t signals;
        sigemptyset(&signals);
        posix_spawnattr_setsigmask(&m_attributes, &signals);
        for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGPIPE, SIGXFSZ}) {
            sigaddset(&signals, signal);
        }
        posix_spawnattr_setsigdefault(&m_attributes, &signals);
        const int session = own_session ? POSIX_SPAWN_SETSID : 0;
        posix_spawnattr_setflags(&m_attributes,
                                 static_cast<short>(POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | session));
    }

    ~SpawnAttributes() { posix_spawnattr_destroy(&m_attributes); }

    SpawnAttributes(const SpawnAttributes&) = delete;
    SpawnAttributes& operator=(const SpawnAttributes&) = delete;

    const posix_spawnattr_t* Get() const { return &m_attributes; }

private:
    posix_spawnattr_t m_attributes;
};

/// The environment of this process, on a terminal of a kind that everybody knows and without a wish for no colour.
std::vector<char*> EnvironmentOnTerminal()
{
    static std::string term = "TERM=xterm";
    std::vector<char*> variables;
    for (char** variable = environ; *variable != nullptr; ++variable) {
        const std::string text = *variable;
        if (!text.starts_with("TERM=") && !text.starts_with("NO_COLOR=")) {
            variables.push_back(*variable);
        }
    }
    variables.insert(variables.end(), {term.data(), nullptr});
    return variables;
}

pid_t Spawn(const std::vector<std::string>& arguments, posix_spawn_file_actions_t& actions, bool own_terminal)
{
    std::vector<char*> argv;
    for (const std::string& argument : arguments) {
        argv.push_back(const_cast<char*>(argument.c_str()));
    }
    argv.push_back(nullptr);
    const SpawnAttributes attributes(own_terminal);
    std::vector<char*> on_terminal = EnvironmentOnTerminal();
    pid_t pid = -1;
    const int error = posix_spawn(&pid, argv[0], &actions, attributes.Get(), argv.data(),
                                  own_terminal ? on_terminal.data() : environ);
    posix_spawn_file_actions_destroy(&actions);
    CheckError(error, argv[0]);
    return pid;
}

}  // namespace

ChildProcess::ChildProcess(const std::vector<std::string>& arguments, Output output, unsigned short columns)
    : m_err(MakeNamelessFile())
{
    posix_spawn_file_actions_t actions;
    CheckError(posix_spawn_file_actions_init(&actions), "posix_spawn_file_actions_init");
    if (output == Output::Terminal) {
        m_out = OpenTerminal(columns);
        std::array<char, 100> name{};
        CheckError(ptsname_r(m_out, name.data(), name.size()), "ptsname_r");
        // The first terminal that the leader of a new session opens becomes its controlling one.
        posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, name.data(), O_RDWR, 0);
        posix_spawn_file_actions_adddup2(&actions, STDIN_FILENO, STDOUT_FILENO);
        posix_spawn_file_actions_adddup2(&actions, STDIN_FILENO, STDERR_FILENO);
        m_pid = Spawn(arguments, actions, true);
        return;
    }
    std::array<int, 2> ends{};
    Check(pipe2(ends.data(), O_CLOEXEC), "pipe2");
    m_out = ends[0];
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, m_err, STDERR_FILENO);
    m_pid = Spawn(arguments, actions, false);
    close(ends[1]);
}

ChildProcess::~ChildProcess()
{
    if (m_pid > 0) {
        kill(m_pid, SIGKILL);
        waitpid(m_pid, nullptr, 0);
    }
    CloseOutput();
    close(m_err);
}

bool ChildProcess::ReadSome()
{
    std::array<char, 4096> buffer{};
    const ssize_t count = m_out < 0 ? 0 : read(m_out, buffer.data(), buffer.size());
    if (count <= 0) {  // also EIO: a terminal whose last user is gone
        return false;
    }
    m_text.append(buffer.data(), static_cast<std::size_t>(count));
    return true;
}

bool ChildProcess::AwaitOutput(const std::string& text)
{
    while (m_text.find(text) == std::string::npos) {
        if (!ReadSome()) {
            return false;
        }
    }
    return true;
}

void ChildProcess::Type(const std::string& text) const
{
    Check(static_cast<int>(write(m_out, text.data(), text.size())), "write");
}

void ChildProcess::CloseOutput()
{
    if (m_out >= 0) {
        close(m_out);
        m_out = -1;
    }
}

void ChildProcess::Send(int signal) const
{
    Check(kill(m_pid, signal), "kill");
}

ChildProcess::Result ChildProcess::Wait()
{
    while (ReadSome()) {
    }
    int status = 0;
    Check(waitpid(m_pid, &status, 0), "waitpid");
    m_pid = -1;
    Result result;
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    result.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    result.out = m_text;
    lseek(m_err, 0, SEEK_SET);
    std::array<char, 4096> buffer{};
    for (ssize_t count = 0; (count = read(m_err, buffer.data(), buffer.size())) > 0;) {
        result.err.append(buffer.data(), static_cast<std::size_t>(count));
    }
    return result;
}

ChildProcess::Result RunChild(const std::vector<std::string>& arguments)
{
    return ChildProcess(arguments).Wait();
}

}  // namespace lumo::ravelctl::test
