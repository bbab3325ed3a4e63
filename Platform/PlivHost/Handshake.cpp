#include "PlivHost/Handshake.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

namespace platform {
namespace {

constexpr guint kSeconds = 10;
constexpr size_t kLongestLine = 1024;
constexpr char kRejected[] = "REJECTED EXTERNAL";

// Returns the text up to the first blank; the remainder stays in `text`.
std::string TakeWord(std::string& text) {
    const size_t blank = std::min(text.find(' '), text.size());
    const std::string word = text.substr(0, blank);
    text.erase(0, std::min(blank + 1, text.size()));
    return word;
}

std::string ToHex(const std::string& text) {
    std::string hex;
    for (const char c : text) {
        constexpr char kDigits[] = "0123456789abcdef";
        hex += kDigits[static_cast<unsigned char>(c) >> 4];
        hex += kDigits[static_cast<unsigned char>(c) & 15];
    }
    return hex;
}

bool IsOurUser(GSocket* socket) {
    ucred peer{};
    socklen_t size = sizeof peer;
    return getsockopt(g_socket_get_fd(socket), SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 &&
           peer.uid == geteuid();
}

}  // namespace

Handshake::Handshake(const HostLoop& loop, GSocket* socket, std::string guid, EndHandler onEnd)
    : m_socket(Share(socket)),
      m_guid(std::move(guid)),
      m_onEnd(std::move(onEnd)),
      m_ready(g_socket_create_source(socket, G_IO_IN, nullptr)),
      m_deadline(g_timeout_source_new_seconds(kSeconds)) {
    g_source_set_callback(m_ready.get(), G_SOURCE_FUNC(s_Ready), this, nullptr);
    g_source_attach(m_ready.get(), loop.Context());
    g_source_set_callback(m_deadline.get(), s_TooLate, this, nullptr);
    g_source_attach(m_deadline.get(), loop.Context());
}

gboolean Handshake::s_TooLate(gpointer self) {
    static_cast<Handshake*>(self)->End(false);
    return G_SOURCE_CONTINUE;
}

gboolean Handshake::s_Ready(GSocket*, GIOCondition, gpointer data) {
    auto* self = static_cast<Handshake*>(data);
    Next next = Next::Line;
    while (next == Next::Line) {
        next = self->ReadLine();
        if (next == Next::Line) next = self->Take(std::exchange(self->m_line, {}));
    }
    if (next != Next::Wait) self->End(next == Next::Admit);
    return G_SOURCE_CONTINUE;
}

void Handshake::End(bool admitted) {
    m_ready.reset();
    m_deadline.reset();
    const EndHandler onEnd = std::move(m_onEnd);
    onEnd(admitted);  // may destroy this object
}

// Peeks first, as the bytes after the line must not be read here.
Handshake::Next Handshake::ReadLine() {
    const int file = g_socket_get_fd(m_socket.get());
    std::array<char, 256> bytes;
    const ssize_t there = recv(file, bytes.data(), bytes.size(), MSG_PEEK | MSG_DONTWAIT);
    if (there < 0) return errno == EAGAIN || errno == EINTR ? Next::Wait : Next::Refuse;
    const char* const end = bytes.data() + there;
    const char* const newline = std::find(static_cast<const char*>(bytes.data()), end, '\n');
    const auto take = static_cast<size_t>(std::min(newline + 1, end) - bytes.data());
    if (take == 0 || m_line.size() + take > kLongestLine) return Next::Refuse;
    if (recv(file, bytes.data(), take, MSG_DONTWAIT) != static_cast<ssize_t>(take))
        return Next::Refuse;
    m_line.append(bytes.data(), take);
    return newline == end ? Next::Wait : Next::Line;
}

Handshake::Next Handshake::Take(std::string line) {
    if (std::exchange(m_first, false)) {
        if (line[0] != '\0') return Next::Refuse;
        line.erase(0, 1);
    }
    if (line.size() < 2 || line[line.size() - 2] != '\r') return Next::Refuse;
    line.resize(line.size() - 2);
    const std::string word = TakeWord(line);
    return TakeCommand(word, line);
}

Handshake::Next Handshake::TakeCommand(const std::string& word, const std::string& rest) {
    const bool authenticated = m_state == State::Authenticated;
    const bool wantsData = m_state == State::WantsData;
    if (word == "BEGIN") return authenticated ? Next::Admit : Next::Refuse;
    if (word == "DATA" && wantsData) return Judge(rest);
    if (word == "AUTH" && !authenticated) {
        std::string identity = rest;
        m_state = State::Begin;
        if (TakeWord(identity) != "EXTERNAL") return Say(kRejected);
        if (!identity.empty()) return Judge(identity);
        m_state = State::WantsData;
        return Say("DATA");
    }
    if (word == "CANCEL" || word == "ERROR") {
        m_state = State::Begin;
        return Say(kRejected);
    }
    return Say("ERROR");  // includes NEGOTIATE_UNIX_FD: descriptors are not accepted
}

// A client that names no identity means its own.
Handshake::Next Handshake::Judge(const std::string& hexIdentity) {
    const bool claimsOurs = hexIdentity.empty() || hexIdentity == ToHex(std::to_string(geteuid()));
    if (!claimsOurs || !IsOurUser(m_socket.get())) {
        m_state = State::Begin;
        return Say(kRejected);
    }
    m_state = State::Authenticated;
    return Say("OK " + m_guid);
}

Handshake::Next Handshake::Say(const std::string& text) {
    const std::string line = text + "\r\n";
    const ssize_t sent = send(g_socket_get_fd(m_socket.get()), line.data(), line.size(),
                              MSG_DONTWAIT | MSG_NOSIGNAL);
    return sent == static_cast<ssize_t>(line.size()) ? Next::Line : Next::Refuse;
}

}  // namespace platform
