// A door that a test opens, for whatever is to stop half way.
#ifndef TESTS_SUPPORT_GATE_H
#define TESTS_SUPPORT_GATE_H

#include <condition_variable>
#include <mutex>

#include "Support/Basics.h"

namespace test {

// Any thread. A test that fails before it opens the gate gives up at the deadline.
class Gate {
public:
    void Open() {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_open = true;
        m_changed.notify_all();
    }
    // Waits until it is open.
    void Wait() {
        std::unique_lock<std::mutex> lock(m_mutex);
        ++m_guests;
        m_changed.notify_all();
        m_changed.wait_for(lock, kDeadline, [this] { return m_open; });
    }
    // Waits until somebody has come to it; false past the deadline.
    bool WaitForGuest() {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_changed.wait_for(lock, kDeadline, [this] { return m_guests > 0; });
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_open = false;
    int m_guests = 0;
};

}  // namespace test

#endif
