// A listening unix socket with a path in the file system.
#ifndef PLATFORM_PLIV_HOST_SOCKET_FILE_H
#define PLATFORM_PLIV_HOST_SOCKET_FILE_H

#include <sys/types.h>

#include <string>

#include "PlivHost/GlibPtr.h"
#include "Process/UniqueFd.h"

namespace platform {

// Creates the socket, and its folder with mode 0700 if missing. Replaces the socket of a process
// that has died; a lock file beside it shows whether its owner is alive. The constructor throws
// std::runtime_error with a user-readable text after a second if another process is serving there;
// the destructor removes the socket.
class SocketFile {
public:
    explicit SocketFile(std::string path);
    ~SocketFile();
    SocketFile(const SocketFile&) = delete;
    SocketFile& operator=(const SocketFile&) = delete;

    GSocket* Socket() const { return m_socket.get(); }

private:
    // The lock file stays: removing it would let two processes each hold a lock of that name.
    class LockFile {
    public:
        explicit LockFile(const std::string& path);

    private:
        UniqueFd m_file;
    };

    const std::string m_path;
    LockFile m_lock;
    ObjectPtr<GSocket> m_socket;
    ino_t m_inode = 0;  // of our socket, so that another's is not removed
};

}  // namespace platform

#endif
