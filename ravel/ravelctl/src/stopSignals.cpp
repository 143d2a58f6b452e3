#include "stopSignals.hpp"

#include "error.hpp"
#include "passingFolder.hpp"

#include <pthread.h>
#include <semaphore.h>

#include <chrono>

namespace lumo::ravelctl {

namespace {

/// One for each signal that came. Of the process, as the handlers are; a handler may do no more than this.
class Arrivals
{
public:
    Arrivals() { sem_init(&m_semaphore, 0, 0); }

    void Add() { sem_post(&m_semaphore); }

    void Take()
    {
        while (sem_wait(&m_semaphore) != 0) {  // a handler in this very thread woke it
        }
    }

private:
    sem_t m_semaphore{};
};

Arrivals arrivals;

void TellWatcher(int /*signal*/)
{
    arrivals.Add();
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

void EndWhenNobodyReads()
{
    SetHandler(SIGPIPE, SIG_DFL);
}

StopSignals::StopSignals(Effect effect) : m_effect(effect)
{
    sigemptyset(&m_signals);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        if (!IsIgnored(signal)) {
            sigaddset(&m_signals, signal);
        }
    }
    pthread_sigmask(SIG_BLOCK, &m_signals, nullptr);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        if (sigismember(&m_signals, signal) == 1) {
            SetHandler(signal, TellWatcher);
        }
    }
    SurviveFailedWrites();
    m_watcher = std::thread([this] { Watch(); });
}

StopSignals::~StopSignals()
{
    {
        const std::lock_guard lock(m_mutex);
        m_over = true;
    }
    arrivals.Add();
    m_watcher.join();
}

void StopSignals::Watch()
{
    pthread_setname_np(pthread_self(), "signals");
    pthread_sigmask(SIG_UNBLOCK, &m_signals, nullptr);
    for (;;) {
        arrivals.Take();
        const std::lock_guard lock(m_mutex);
        if (m_over) {
            return;
        }
        if (m_effect == Effect::EndProcess) {
            EndWithoutPassingFolders(EXIT_INTERRUPTED, "ravelctl: interrupted; no half-written file is left");
        }
        m_noted = true;
        m_changed.notify_all();
    }
}

void StopSignals::SetEffect(Effect effect)
{
    const std::lock_guard lock(m_mutex);
    m_effect = effect;
}

bool StopSignals::Await()
{
    constexpr std::chrono::milliseconds WAIT{100};
    std::unique_lock lock(m_mutex);
    m_changed.wait_for(lock, WAIT, [this] { return m_noted; });
    return m_noted;
}

}  // namespace lumo::ravelctl
