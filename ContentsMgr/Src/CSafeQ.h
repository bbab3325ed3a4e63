#ifndef CONTENTS_MGR_C_SAFE_Q_H
#define CONTENTS_MGR_C_SAFE_Q_H

#include <iterator>
#include <list>

#include "GMutexLock.h"

namespace dorn {

// A list of jobs, oldest first, with any number of producers and one consumer. The consumer walks
// it with a cursor; only the consumer removes jobs, so its cursor stays valid while others push.
// The mutex is held for one step, never while a job runs. The owner must wake the consumer.
template <typename Job>
class CSafeQ {
public:
    using Cursor = typename std::list<Job>::iterator;

    CSafeQ() = default;
    ~CSafeQ() {
        GMutexLock lock(m_mutex);
        m_jobs.clear();
    }
    CSafeQ(const CSafeQ&) = delete;
    CSafeQ& operator=(const CSafeQ&) = delete;

    // Appends a copy. When copying throws, the queue is unchanged.
    void Push(const Job& job) {
        GMutexLock lock(m_mutex);
        m_jobs.push_back(job);
    }

    // Consumer only: the position of the oldest job.
    Cursor First() {
        GMutexLock lock(m_mutex);
        return m_jobs.begin();
    }

    // Consumer only: the job at the cursor, valid until it is removed; null past the last one.
    const Job* Peek(Cursor cursor) {
        GMutexLock lock(m_mutex);
        return cursor == m_jobs.end() ? nullptr : &*cursor;
    }

    // Consumer only: the position after the cursor, keeping the job (Skip) or destroying it
    // (Remove).
    Cursor Skip(Cursor cursor) {
        GMutexLock lock(m_mutex);
        return std::next(cursor);
    }
    Cursor Remove(Cursor cursor) {
        GMutexLock lock(m_mutex);
        return m_jobs.erase(cursor);
    }

private:
    std::list<Job> m_jobs;
    OwnGMutex m_mutex;
};

}  // namespace dorn

#endif
