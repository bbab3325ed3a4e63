// GLib's mutexes and condition variables over pthread's, for builds under ThreadSanitizer only.
// GLib itself is not instrumented: its futex-based locks are invisible to the sanitizer, which
// then reports races on everything that they guard. Defining the same symbols in the executable
// makes every library of the process use these instead.
#include <errno.h>
#include <glib.h>
#include <pthread.h>
#include <time.h>

namespace {

// A statically initialised GMutex or GCond is all zeroes; the object behind it is made on first
// use, by whichever thread wins.
template <typename T, int (*Init)(T*)>
T* Resolve(gpointer* slot) {
    void* seen = __atomic_load_n(slot, __ATOMIC_ACQUIRE);
    if (seen) return static_cast<T*>(seen);
    T* made = new T;
    Init(made);
    void* expected = nullptr;
    if (__atomic_compare_exchange_n(slot, &expected, static_cast<void*>(made), false,
                                    __ATOMIC_ACQ_REL, __ATOMIC_ACQUIRE))
        return made;
    delete made;
    return static_cast<T*>(expected);
}

int InitMutex(pthread_mutex_t* mutex) {
    return pthread_mutex_init(mutex, nullptr);
}

int InitCond(pthread_cond_t* cond) {
    pthread_condattr_t attributes;
    pthread_condattr_init(&attributes);
    pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
    const int result = pthread_cond_init(cond, &attributes);
    pthread_condattr_destroy(&attributes);
    return result;
}

pthread_mutex_t* Of(GMutex* mutex) {
    return Resolve<pthread_mutex_t, InitMutex>(&mutex->p);
}

pthread_cond_t* Of(GCond* cond) {
    return Resolve<pthread_cond_t, InitCond>(&cond->p);
}

}  // namespace

extern "C" {

// An atomic store: the object may reach its next thread through GLib's own queues, whose locks
// are bound inside the library and stay invisible.
void g_mutex_init(GMutex* mutex) {
    __atomic_store_n(&mutex->p, nullptr, __ATOMIC_RELEASE);
}

// Whoever clears a mutex knows by a count of references that nobody uses it any more, and that
// count lies inside GLib too. Taking the lock once more puts this after the last unlock.
void g_mutex_clear(GMutex* mutex) {
    auto* own = static_cast<pthread_mutex_t*>(__atomic_load_n(&mutex->p, __ATOMIC_ACQUIRE));
    if (own) {
        pthread_mutex_lock(own);
        pthread_mutex_unlock(own);
        pthread_mutex_destroy(own);
        delete own;
    }
    mutex->p = nullptr;
}

void g_mutex_lock(GMutex* mutex) {
    pthread_mutex_lock(Of(mutex));
}

void g_mutex_unlock(GMutex* mutex) {
    pthread_mutex_unlock(Of(mutex));
}

gboolean g_mutex_trylock(GMutex* mutex) {
    return pthread_mutex_trylock(Of(mutex)) == 0;
}

void g_cond_init(GCond* cond) {
    __atomic_store_n(&cond->p, nullptr, __ATOMIC_RELEASE);
}

void g_cond_clear(GCond* cond) {
    auto* own = static_cast<pthread_cond_t*>(cond->p);
    if (own) {
        pthread_cond_destroy(own);
        delete own;
    }
    cond->p = nullptr;
}

void g_cond_wait(GCond* cond, GMutex* mutex) {
    pthread_cond_wait(Of(cond), Of(mutex));
}

void g_cond_signal(GCond* cond) {
    pthread_cond_signal(Of(cond));
}

void g_cond_broadcast(GCond* cond) {
    pthread_cond_broadcast(Of(cond));
}

gboolean g_cond_wait_until(GCond* cond, GMutex* mutex, gint64 endTime) {
    timespec until;
    until.tv_sec = static_cast<time_t>(endTime / G_USEC_PER_SEC);
    until.tv_nsec = static_cast<long>((endTime % G_USEC_PER_SEC) * 1000);
    return pthread_cond_timedwait(Of(cond), Of(mutex), &until) != ETIMEDOUT;
}

}  // extern "C"
