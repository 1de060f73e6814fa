// Preloaded into ThreadSanitizer runs. QMutex locks and unlocks inside an uninstrumented
// libQt5Core, with futexes the checker never sees, so every hand-off under a QMutex would be
// reported as a race. These stand in for QtCore's exported QMutex and QWaitCondition entry
// points, tell the checker about each lock and unlock, and call Qt's own.
#include <dlfcn.h>
#include <sanitizer/tsan_interface.h>

namespace {

// QDeadlineTimer as passed by value: two integers' worth of registers.
struct Deadline {
    long long t1;
    unsigned t2;
    int type;
};

template <typename F> F qtCore(const char* name)
{
    return reinterpret_cast<F>(dlvsym(RTLD_NEXT, name, "Qt_5"));
}

} // namespace

extern "C" {

void _ZN6QMutex4lockEv(void* mutex)
{
    static const auto real = qtCore<void (*)(void*)>("_ZN6QMutex4lockEv");
    __tsan_mutex_pre_lock(mutex, 0);
    real(mutex);
    __tsan_mutex_post_lock(mutex, 0, 0);
}

bool _ZN6QMutex7tryLockEi(void* mutex, int timeout)
{
    static const auto real = qtCore<bool (*)(void*, int)>("_ZN6QMutex7tryLockEi");
    __tsan_mutex_pre_lock(mutex, __tsan_mutex_try_lock);
    const bool locked = real(mutex, timeout);
    __tsan_mutex_post_lock(mutex,
                           __tsan_mutex_try_lock | (locked ? 0 : __tsan_mutex_try_lock_failed), 0);
    return locked;
}

void _ZN6QMutex6unlockEv(void* mutex)
{
    static const auto real = qtCore<void (*)(void*)>("_ZN6QMutex6unlockEv");
    __tsan_mutex_pre_unlock(mutex, 0);
    real(mutex);
    __tsan_mutex_post_unlock(mutex, 0);
}

// Waiting releases the mutex and takes it again before it returns.
bool _ZN14QWaitCondition4waitEP6QMutexm(void* condition, void* mutex, unsigned long time)
{
    static const auto real =
        qtCore<bool (*)(void*, void*, unsigned long)>("_ZN14QWaitCondition4waitEP6QMutexm");
    __tsan_mutex_pre_unlock(mutex, 0);
    __tsan_mutex_post_unlock(mutex, 0);
    const bool woken = real(condition, mutex, time);
    __tsan_mutex_pre_lock(mutex, 0);
    __tsan_mutex_post_lock(mutex, 0, 0);
    return woken;
}

bool _ZN14QWaitCondition4waitEP6QMutex14QDeadlineTimer(void* condition, void* mutex,
                                                       Deadline deadline)
{
    static const auto real = qtCore<bool (*)(void*, void*, Deadline)>(
        "_ZN14QWaitCondition4waitEP6QMutex14QDeadlineTimer");
    __tsan_mutex_pre_unlock(mutex, 0);
    __tsan_mutex_post_unlock(mutex, 0);
    const bool woken = real(condition, mutex, deadline);
    __tsan_mutex_pre_lock(mutex, 0);
    __tsan_mutex_post_lock(mutex, 0, 0);
    return woken;
}
}
