// Wakes up a polling thread.
#ifndef PLATFORM_USB_DEVICE_WAKE_UP_H
#define PLATFORM_USB_DEVICE_WAKE_UP_H

#include <sys/eventfd.h>
#include <unistd.h>

#include <cstdint>

#include "Process/UniqueFd.h"

namespace platform {

// Wake may be called from any thread; the polling thread clears it.
class WakeUp {
public:
    WakeUp() : m_event(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}
    explicit operator bool() const { return bool(m_event); }
    int Get() const { return m_event.Get(); }
    void Wake() const {
        const uint64_t one = 1;
        [[maybe_unused]] const ssize_t written = write(m_event.Get(), &one, sizeof one);
    }
    void Clear() const {
        uint64_t count = 0;
        [[maybe_unused]] const ssize_t got = read(m_event.Get(), &count, sizeof count);
    }

private:
    UniqueFd m_event;
};

}  // namespace platform

#endif
