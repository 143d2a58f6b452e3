#include "lockWatch.hpp"

#include <dlfcn.h>
#include <pthread.h>

#include <atomic>
#include <mutex>
#include <stdexcept>
#include <utility>

namespace lumo::ravelcore::test {

namespace {

// Initial-exec: the pointer must never need a lock itself.
[[gnu::tls_model("initial-exec")]] constinit thread_local LockWatch* t_watch = nullptr;

bool SeesALock()
{
    std::mutex probe;
    const std::int64_t before = t_watch->GetCount();
    probe.lock();
    probe.unlock();
    return t_watch->GetCount() - before == 1;
}

}  // namespace

LockWatch::LockWatch(std::function<void(const void* lock)> before_lock) : m_before_lock(std::move(before_lock))
{
    t_watch = this;
    if (!SeesALock()) {
        t_watch = nullptr;
        throw std::logic_error("Expected to see this program's locks but did not: something else replaces them too.");
    }
    m_count = 0;  // without the probe
}

LockWatch::~LockWatch()
{
    t_watch = nullptr;
}

void LockWatch::OnLock(const void* lock)
{
    if (LockWatch* const watch = std::exchange(t_watch, nullptr)) {
        ++watch->m_count;
        if (watch->m_before_lock) {
            watch->m_before_lock(lock);
        }
        t_watch = watch;
    }
}

}  // namespace lumo::ravelcore::test

namespace {

using lumo::ravelcore::test::LockWatch;

/// The C library's function of this name, looked up once. Without a guarded static: that would be a lock again.
template <typename Lock>
int CallReal(std::atomic<int (*)(Lock*)>& real, const char* name, Lock* lock)
{
    int (*function)(Lock*) = real.load(std::memory_order_relaxed);
    if (function == nullptr) {
        function = reinterpret_cast<int (*)(Lock*)>(dlsym(RTLD_NEXT, name));
        real.store(function, std::memory_order_relaxed);
    }
    return function(lock);
}

constinit std::atomic<int (*)(pthread_mutex_t*)> g_mutex_lock = nullptr;
constinit std::atomic<int (*)(pthread_rwlock_t*)> g_read_lock = nullptr;
constinit std::atomic<int (*)(pthread_rwlock_t*)> g_write_lock = nullptr;

}  // namespace

// Visible, or the shared libraries would go on calling the C library's.
#define RAVELCORE_REPLACES __attribute__((visibility("default")))

extern "C" {
RAVELCORE_REPLACES int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept
{
    LockWatch::OnLock(mutex);
    return CallReal(g_mutex_lock, "pthread_mutex_lock", mutex);
}

RAVELCORE_REPLACES int pthread_rwlock_rdlock(pthread_rwlock_t* lock) noexcept
{
    LockWatch::OnLock(lock);
    return CallReal(g_read_lock, "pthread_rwlock_rdlock", lock);
}

RAVELCORE_REPLACES int pthread_rwlock_wrlock(pthread_rwlock_t* lock) noexcept
{
    LockWatch::OnLock(lock);
    return CallReal(g_write_lock, "pthread_rwlock_wrlock", lock);
}
}
