// Owner of one file descriptor.
#ifndef PLATFORM_USB_DEVICE_DESCRIPTOR_H
#define PLATFORM_USB_DEVICE_DESCRIPTOR_H

#include <sys/eventfd.h>
#include <unistd.h>

#include <cstdint>
#include <utility>

namespace platform {

class Descriptor {
public:
    Descriptor() = default;
    explicit Descriptor(int fd) : m_fd(fd) {}
    Descriptor(Descriptor&& other) noexcept : m_fd(std::exchange(other.m_fd, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(m_fd, other.m_fd);
        return *this;
    }
    ~Descriptor() {
        if (m_fd >= 0) close(m_fd);
    }

    int Get() const { return m_fd; }
    explicit operator bool() const { return m_fd >= 0; }

private:
    int m_fd = -1;
};

// Wakes a thread that polls. Wake may be called from any thread; the polling thread clears it.
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
    Descriptor m_event;
};

}  // namespace platform

#endif
