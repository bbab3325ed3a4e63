#ifndef CONTENTS_MGR_G_MUTEX_LOCK_H
#define CONTENTS_MGR_G_MUTEX_LOCK_H

#include <glib.h>

// Holds a GLib mutex for a scope.
class GMutexLock {
public:
    explicit GMutexLock(GMutex& mutex) : m_mutex(mutex) { g_mutex_lock(&m_mutex); }
    ~GMutexLock() { g_mutex_unlock(&m_mutex); }
    GMutexLock(const GMutexLock&) = delete;
    GMutexLock& operator=(const GMutexLock&) = delete;

private:
    GMutex& m_mutex;
};

// A GLib mutex that is initialised and cleared with its owner.
class OwnGMutex {
public:
    OwnGMutex() { g_mutex_init(&m_mutex); }
    ~OwnGMutex() { g_mutex_clear(&m_mutex); }
    OwnGMutex(const OwnGMutex&) = delete;
    OwnGMutex& operator=(const OwnGMutex&) = delete;
    operator GMutex&() { return m_mutex; }

private:
    GMutex m_mutex;
};

#endif
