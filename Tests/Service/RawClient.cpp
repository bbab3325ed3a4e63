#include "Service/RawClient.h"

#include <poll.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <stdexcept>
#include <vector>

#include "PlivHost/GlibPtr.h"

namespace test {
namespace {

using MessagePtr = platform::ObjectPtr<GDBusMessage>;

constexpr int kDeadline = 60 * 1000;  // milliseconds

}  // namespace

RawClient::RawClient(const std::string& socketPath) : m_socket(socket(AF_UNIX, SOCK_STREAM, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    strncpy(address.sun_path, socketPath.c_str(), sizeof address.sun_path - 1);
    if (connect(m_socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) return;
    close(m_socket);
    throw std::runtime_error("cannot connect to " + socketPath);
}

RawClient::~RawClient() {
    close(m_socket);
}

void RawClient::Write(const std::string& bytes) {
    size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t wrote =
            send(m_socket, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
        if (wrote <= 0) return;
        done += static_cast<size_t>(wrote);
    }
}

bool RawClient::ReadExactly(void* to, size_t size) {
    auto* bytes = static_cast<char*>(to);
    while (size > 0) {
        pollfd readable{m_socket, POLLIN, 0};
        if (poll(&readable, 1, kDeadline) <= 0) return false;
        const ssize_t got = recv(m_socket, bytes, size, 0);
        if (got <= 0) return false;
        bytes += got;
        size -= static_cast<size_t>(got);
    }
    return true;
}

std::string RawClient::ReadLine() {
    std::string line;
    char byte = 0;
    while (ReadExactly(&byte, 1) && byte != '\n') line += byte;
    return line;
}

bool RawClient::Authenticate() {
    Write(std::string("\0", 1) + "AUTH EXTERNAL\r\n");
    if (ReadLine().compare(0, 4, "DATA") != 0) return false;
    Write("DATA\r\n");
    if (ReadLine().compare(0, 2, "OK") != 0) return false;
    Write("BEGIN\r\n");
    return true;
}

std::string RawClient::Message(const char* method, GVariant* parameters) {
    const MessagePtr call(
        g_dbus_message_new_method_call(nullptr, "/dorn/PlivHost", "dorn.PlivHost1", method));
    g_dbus_message_set_body(call.get(), parameters);
    g_dbus_message_set_serial(call.get(), ++m_serial);
    gsize size = 0;
    const platform::TextPtr bytes(reinterpret_cast<char*>(
        g_dbus_message_to_blob(call.get(), &size, G_DBUS_CAPABILITY_FLAGS_NONE, nullptr)));
    return {bytes.get(), size};
}

int RawClient::Open() {
    Call("Open", g_variant_new("(s)", "raw"));
    return ReadHandle();
}

void RawClient::Execute(int handle, const char* command, const char* arg1, const char* arg2,
                        const char* arg3, const char* arg4) {
    Call("Execute", g_variant_new("(isssss)", handle, command, arg1, arg2, arg3, arg4));
}

// Of one message, its first integer.
int RawClient::ReadHandle() {
    std::vector<guchar> bytes(16);
    if (!ReadExactly(bytes.data(), bytes.size())) return -1;
    const gssize needed = g_dbus_message_bytes_needed(bytes.data(), bytes.size(), nullptr);
    if (needed < 16) return -1;
    bytes.resize(static_cast<size_t>(needed));
    if (!ReadExactly(bytes.data() + 16, bytes.size() - 16)) return -1;
    const MessagePtr message(g_dbus_message_new_from_blob(bytes.data(), bytes.size(),
                                                          G_DBUS_CAPABILITY_FLAGS_NONE, nullptr));
    GVariant* body = message ? g_dbus_message_get_body(message.get()) : nullptr;
    gint32 handle = -1;
    if (body && g_variant_is_of_type(body, G_VARIANT_TYPE("(i)")))
        g_variant_get(body, "(i)", &handle);
    return handle;
}

bool RawClient::ReadToEnd() {
    char bytes[65536];
    for (;;) {
        pollfd readable{m_socket, POLLIN, 0};
        if (poll(&readable, 1, kDeadline) <= 0) return false;
        if (recv(m_socket, bytes, sizeof bytes, 0) <= 0) return true;
    }
}

}  // namespace test
