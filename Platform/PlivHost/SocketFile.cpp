#include "PlivHost/SocketFile.h"

#include <errno.h>
#include <fcntl.h>
#include <gio/gunixsocketaddress.h>
#include <glib/gstdio.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <stdexcept>
#include <utility>

namespace platform {
namespace {

constexpr int kWaitingConnections = 32;

// A service that was just killed may leave behind a child that is about to become a helper and
// holds its lock and its socket for a moment longer.
constexpr int kLooks = 20;
constexpr gulong kBetweenLooksUs = 50'000;

template <typename Test>
bool StaysTrue(Test test) {
    for (int looks = 1; test(); ++looks) {
        if (looks == kLooks) return true;
        g_usleep(kBetweenLooksUs);
    }
    return false;
}

[[noreturn]] void Refuse(const std::string& what, const std::string& path, const std::string& why) {
    throw std::runtime_error(what + " " + path + ": " + why);
}

[[noreturn]] void RefuseLive(const std::string& path) {
    throw std::runtime_error("another process serves at " + path +
                             " already; stop it or give another --address");
}

std::string CheckedPath(std::string path) {
    constexpr size_t kLongest = sizeof(sockaddr_un::sun_path) - 2;  // room for the temporary name
    if (path.size() > kLongest)
        Refuse("cannot listen at", path,
               "a socket's path has at most " + std::to_string(kLongest) + " bytes");
    return path;
}

void MakeFolderOf(const std::string& path) {
    const TextPtr folder(g_path_get_dirname(path.c_str()));
    const TextPtr above(g_path_get_dirname(folder.get()));
    g_mkdir_with_parents(above.get(), 0755);
    if (mkdir(folder.get(), 0700) != 0 && errno != EEXIST)
        Refuse("cannot make the folder", folder.get(), strerror(errno));
}

ObjectPtr<GSocketAddress> AddressOf(const std::string& path) {
    return ObjectPtr<GSocketAddress>(g_unix_socket_address_new(path.c_str()));
}

ObjectPtr<GSocket> NewSocket(const std::string& path) {
    ErrorSlot error;
    ObjectPtr<GSocket> socket(g_socket_new(G_SOCKET_FAMILY_UNIX, G_SOCKET_TYPE_STREAM,
                                           G_SOCKET_PROTOCOL_DEFAULT, error.Out()));
    if (!socket) Refuse("cannot make the socket", path, error.Text());
    return socket;
}

bool SomebodyAnswers(const std::string& path) {
    return g_socket_connect(NewSocket(path).get(), AddressOf(path).get(), nullptr, nullptr);
}

void RemoveStale(const std::string& path) {
    struct stat found {};
    if (lstat(path.c_str(), &found) != 0) return;
    if (!S_ISSOCK(found.st_mode)) Refuse("cannot listen at", path, "a file that is no socket");
    if (StaysTrue([&] { return SomebodyAnswers(path); })) RefuseLive(path);
    unlink(path.c_str());
}

// Listens under a temporary name first: a client that sees the file can connect to it.
ObjectPtr<GSocket> Listen(const std::string& path) {
    const std::string before = path + '~';
    unlink(before.c_str());
    ObjectPtr<GSocket> socket = NewSocket(path);
    g_socket_set_listen_backlog(socket.get(), kWaitingConnections);
    ErrorSlot error;
    if (!g_socket_bind(socket.get(), AddressOf(before).get(), FALSE, error.Out()) ||
        !g_socket_listen(socket.get(), error.Out()))
        Refuse("cannot listen at", path, error.Text());
    chmod(before.c_str(), 0600);
    if (rename(before.c_str(), path.c_str()) != 0)
        Refuse("cannot listen at", path, strerror(errno));
    return socket;
}

ino_t InodeOf(const std::string& path) {
    struct stat found {};
    return lstat(path.c_str(), &found) == 0 ? found.st_ino : 0;
}

}  // namespace

SocketFile::LockFile::LockFile(const std::string& path)
    : m_file(open((path + ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600)) {
    if (!m_file) Refuse("cannot make the lock file of", path, strerror(errno));
    if (StaysTrue([this] { return flock(m_file.Get(), LOCK_EX | LOCK_NB) != 0; })) RefuseLive(path);
}

SocketFile::SocketFile(std::string path)
    : m_path(CheckedPath(std::move(path))), m_lock((MakeFolderOf(m_path), m_path)) {
    RemoveStale(m_path);
    m_socket = Listen(m_path);
    m_inode = InodeOf(m_path);
}

SocketFile::~SocketFile() {
    if (InodeOf(m_path) == m_inode) unlink(m_path.c_str());
}

}  // namespace platform
