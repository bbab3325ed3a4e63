// A file descriptor with one owner.
#ifndef PLATFORM_PROCESS_UNIQUE_FD_H
#define PLATFORM_PROCESS_UNIQUE_FD_H

#include <unistd.h>

#include <utility>

namespace platform {

class UniqueFd {
public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : m_fd(fd) {}
    UniqueFd(UniqueFd&& other) noexcept : m_fd(std::exchange(other.m_fd, -1)) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept {
        std::swap(m_fd, other.m_fd);
        return *this;
    }
    ~UniqueFd() { Close(); }

    int Get() const { return m_fd; }
    explicit operator bool() const { return m_fd >= 0; }
    int Release() { return std::exchange(m_fd, -1); }  // the caller must close it
    void Close() {
        if (m_fd >= 0) close(std::exchange(m_fd, -1));
    }

private:
    int m_fd = -1;
};

}  // namespace platform

#endif
