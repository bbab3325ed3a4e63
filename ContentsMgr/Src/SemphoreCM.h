#ifndef CONTENTS_MGR_SEMPHORE_CM_H
#define CONTENTS_MGR_SEMPHORE_CM_H

#include <glib.h>

// A counting semaphore; one Post wakes one Wait. Thread-safe. The destructor must not run while a
// thread is inside Post or Wait.
class SemphoreCM {
public:
    SemphoreCM() : m_count(0) {
        g_mutex_init(&m_mutex);
        g_cond_init(&m_condition);
    }
    ~SemphoreCM();
    SemphoreCM(const SemphoreCM&) = delete;
    SemphoreCM& operator=(const SemphoreCM&) = delete;

    void Post() {
        g_mutex_lock(&m_mutex);
        m_count += 1;
        g_cond_signal(&m_condition);
        g_mutex_unlock(&m_mutex);
    }

    // Blocks until there is a post to consume.
    void Wait() {
        g_mutex_lock(&m_mutex);
        while (m_count < 1) g_cond_wait(&m_condition, &m_mutex);
        m_count -= 1;
        g_mutex_unlock(&m_mutex);
    }

private:
    GMutex m_mutex;
    gint32 m_count;  // guarded by m_mutex
    GCond m_condition;
};

#endif
