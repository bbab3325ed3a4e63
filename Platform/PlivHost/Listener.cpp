#include "PlivHost/Listener.h"

#include <sys/eventfd.h>

#include <utility>

#include "Log/Log.h"
#include "PlivHost/Names.h"
#include "Process/Descriptors.h"

namespace platform {
namespace {

// Descriptors that stay free after a connection is accepted, for the connected clients' needs: the
// database's files, a folder and the watch of a stick. A scan uses more if available and manages
// with fewer.
constexpr int kReserve = 16;
constexpr guint kAgainMs = 250;
constexpr gint64 kLineEveryUs = 60 * G_USEC_PER_SEC;

UniqueFd NewSpare() {
    return UniqueFd(eventfd(0, EFD_CLOEXEC));
}

bool NobodyIsThere(const ErrorSlot& error) {
    return error.Is(G_IO_ERROR, G_IO_ERROR_WOULD_BLOCK);
}

}  // namespace

Listener::Listener(HostLoop& loop, GSocket* socket, Taker take)
    : m_loop(loop), m_socket(socket), m_take(std::move(take)), m_spare(NewSpare()) {
    g_socket_set_blocking(m_socket, FALSE);
    Listen();
}

void Listener::Listen() {
    m_again.reset();
    m_ready.reset(g_socket_create_source(m_socket, G_IO_IN, nullptr));
    g_source_set_callback(m_ready.get(), G_SOURCE_FUNC(s_Ready), this, nullptr);
    g_source_attach(m_ready.get(), m_loop.Context());
}

// Waiting clients keep the socket readable, so it must not be polled.
void Listener::Pause() {
    m_ready.reset();
    m_again.reset(g_timeout_source_new(kAgainMs));
    g_source_set_callback(m_again.get(), s_TryAgain, this, nullptr);
    g_source_attach(m_again.get(), m_loop.Context());
}

gboolean Listener::s_Ready(GSocket*, GIOCondition, gpointer data) {
    auto* self = static_cast<Listener*>(data);
    if (self->TakeOne() == Outcome::Stuck) self->Pause();
    return G_SOURCE_CONTINUE;
}

gboolean Listener::s_TryAgain(gpointer data) {
    auto* self = static_cast<Listener*>(data);
    if (self->TakeOne() == Outcome::Done) self->Listen();
    return G_SOURCE_CONTINUE;
}

ObjectPtr<GSocket> Listener::Accept(ErrorSlot& error) const {
    return ObjectPtr<GSocket>(g_socket_accept(m_socket, nullptr, error.Out()));
}

Listener::Outcome Listener::TakeOne() {
    ErrorSlot error;
    ObjectPtr<GSocket> socket = Accept(error);
    if (!socket && NobodyIsThere(error)) return Outcome::Done;
    if (!socket) {
        m_spare.Close();
        socket = Accept(error);
    }
    const bool accepted = socket != nullptr;
    if (accepted && HasSpareDescriptors(kReserve))
        Take(socket.get());
    else
        Note(accepted ? "clients are turned away" : "clients wait in line");
    socket.reset();  // a refused connection frees a descriptor for the spare one
    if (!m_spare) m_spare = NewSpare();
    return accepted || NobodyIsThere(error) ? Outcome::Done : Outcome::Stuck;
}

void Listener::Take(GSocket* socket) const {
    const ObjectPtr<GSocketConnection> stream(
        g_socket_connection_factory_create_connection(socket));
    m_take(stream.get());
}

void Listener::Note(const char* what) {
    const gint64 now = g_get_monotonic_time();
    if (m_lastLine != 0 && now - m_lastLine < kLineEveryUs) return;
    PLATFORM_LOG(kLogTag, LOG_WARNING, "descriptors are short: %s", what);
    m_lastLine = now;
}

}  // namespace platform
