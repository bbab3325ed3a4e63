#ifndef CONTENTS_MGR_PAUSE_H
#define CONTENTS_MGR_PAUSE_H

#include <glib.h>

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace dorn {

// The length of a "second" in this system's waits. Set only by tests, before any engine exists.
void SetPauseUnit(std::chrono::milliseconds unit);
std::chrono::milliseconds PauseUnit();

// The limit of a scan wait: 60 of these seconds.
guint ScanTimeoutMilliseconds();

// A request to stop that ends pauses at once. Thread-safe.
class StopSignal {
public:
    void Raise();
    void Clear();

    // Waits one second; false when the signal was raised meanwhile.
    bool Pause();

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_raised = false;  // guarded by m_mutex
};

}  // namespace dorn

#endif
