#include "PlivHost/CommandLane.h"

#include <atomic>
#include <mutex>
#include <utility>

#include "PlivHost/ByNumber.h"

namespace platform {

// The part used by GDBus's thread; it may outlive the lane a little.
class CommandLane::Taker {
public:
    Taker(Interface& object, std::shared_ptr<Peer> peer)
        : m_object(object), m_peer(std::move(peer)) {}

    // GDBus's thread. True: the message was a command and has been queued with its handle.
    bool Take(GDBusMessage* message) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_shut || !m_object.IsCall(message)) return false;
        if (m_underway == 0 && m_object.TryExecute(message, *m_peer)) return true;
        ++m_underway;
        return false;
    }
    void NoteServed() { --m_underway; }
    void Shut() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_shut = true;
    }

private:
    Interface& m_object;
    const std::shared_ptr<Peer> m_peer;
    std::atomic<int> m_underway{0};  // calls on the ordinary path
    std::mutex m_mutex;              // held during a hand-over, so that Shut waits for it
    bool m_shut = false;             // guarded by m_mutex
};

namespace {

// Never destroyed: GDBus's thread lives until the process ends.
template <typename Taker>
ByNumber<Taker>& TheTakers() {
    static auto* takers = new ByNumber<Taker>;
    return *takers;
}

}  // namespace

CommandLane::CommandLane(GDBusConnection* connection, Interface& object, std::shared_ptr<Peer> peer)
    : m_connection(Share(connection)),
      m_taker(std::make_shared<Taker>(object, std::move(peer))),
      m_number(TheTakers<Taker>().Add(m_taker)),
      m_filter(g_dbus_connection_add_filter(connection, s_Filter,
                                            reinterpret_cast<gpointer>(m_number), nullptr)) {}

CommandLane::~CommandLane() {
    TheTakers<Taker>().Remove(m_number);
    m_taker->Shut();
    g_dbus_connection_remove_filter(m_connection.get(), m_filter);
}

void CommandLane::NoteServed() {
    m_taker->NoteServed();
}

GDBusMessage* CommandLane::s_Filter(GDBusConnection*, GDBusMessage* message, gboolean incoming,
                                    gpointer number) {
    if (!incoming) return message;
    const auto taker = TheTakers<Taker>().Find(number);
    if (!taker || !taker->Take(message)) return message;
    g_object_unref(message);
    return nullptr;
}

}  // namespace platform
