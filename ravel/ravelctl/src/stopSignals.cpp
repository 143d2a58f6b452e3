#include "stopSignals.hpp"

#include <atomic>
#include <ctime>

namespace lumo::ravelctl {

namespace {

std::atomic<bool> stop_noted{false};
static_assert(std::atomic<bool>::is_always_lock_free, "a signal handler may touch nothing else");

void NoteStop(int /*signal*/)
{
    stop_noted.store(true, std::memory_order_relaxed);  // a single flag: orders nothing
}

bool IsIgnored(int signal)
{
    struct sigaction now = {};
    return sigaction(signal, nullptr, &now) == 0 && now.sa_handler == SIG_IGN;
}

void SetHandler(int signal, void (*handler)(int))
{
    struct sigaction action = {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    sigaction(signal, &action, nullptr);
}

}  // namespace

void SurviveFailedWrites()
{
    for (const int signal : {SIGPIPE, SIGXFSZ}) {
        SetHandler(signal, SIG_IGN);
    }
}

StopSignals::StopSignals()
{
    stop_noted.store(false, std::memory_order_relaxed);
    sigemptyset(&m_signals);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        if (!IsIgnored(signal)) {
            sigaddset(&m_signals, signal);
            SetHandler(signal, NoteStop);
        }
    }
    pthread_sigmask(SIG_BLOCK, &m_signals, nullptr);
    SurviveFailedWrites();
}

bool StopSignals::Await()
{
    constexpr timespec WAIT{0, 100'000'000};
    if (!stop_noted.load(std::memory_order_relaxed) && sigtimedwait(&m_signals, nullptr, &WAIT) > 0) {
        stop_noted.store(true, std::memory_order_relaxed);
    }
    return stop_noted.load(std::memory_order_relaxed);
}

}  // namespace lumo::ravelctl
