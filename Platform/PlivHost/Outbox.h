// What waits to be read by the other end of one D-Bus connection.
#ifndef PLATFORM_PLIV_HOST_OUTBOX_H
#define PLATFORM_PLIV_HOST_OUTBOX_H

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <variant>

#include "PlivHost/Allowance.h"
#include "PlivHost/GlibPtr.h"

namespace platform {

struct OutboxLimits {
    // Of what waits, handed to GDBus already. It needs ten times an event's size for each, and
    // takes no message back, so it gets few at a time.
    size_t windowMessages = 64;
    size_t windowBytes = size_t{1} << 20;
    // Past the allowance: give the other end up, or else drop single messages until there is room.
    bool endsAtLimit = true;
};

// The answer to one method call, as it waits: a whole message takes ten times as much.
struct Reply {
    guint32 serial = 0;           // of the call
    std::string caller;           // empty on a private connection
    const char* error = nullptr;  // a constant with the error's name; null: no error
    VariantPtr body;              // a tuple, or null for the empty one
};

// Events and replies in the order in which they were posted, counted to an allowance with the
// overhead of each. Posting never waits for the reader: past the allowance the outbox drops
// everything, now and later, or what does not fit, and reports it once, or once each time that
// there had been room.
//
// GDBus says through a filter, on its own thread, when it takes a message off its queue to write
// it; that moves the window on. Waiting for a flush instead would hold a pool thread for every
// reader that has stopped.
class Outbox {
public:
    using OverflowHandler = std::function<void()>;  // runs on the posting thread, without a lock

    // `sender` is the name that messages bear as their sender; empty when a bus puts it in.
    static std::shared_ptr<Outbox> Create(GDBusConnection* connection, const OutboxLimits& limits,
                                          std::shared_ptr<Allowance> allowance, std::string sender,
                                          OverflowHandler onOverflow);
    ~Outbox();
    Outbox(const Outbox&) = delete;
    Outbox& operator=(const Outbox&) = delete;

    // Any thread.
    void PostReply(Reply reply);
    void PostEvent(const std::string& destination, int handle, int kind, std::string name,
                   std::string payload);

    // Drops what waits and all that comes later, and lets the connection go. Host thread.
    void Shut();

private:
    struct Event {
        std::string destination;
        int handle;
        int kind;
        std::string name;
        std::string payload;
    };
    struct Item {
        std::variant<Reply, Event> content;
        size_t size;
    };
    struct InFlight {
        guint32 serial;
        size_t size;
    };

    Outbox(GDBusConnection* connection, const OutboxLimits& limits,
           std::shared_ptr<Allowance> allowance, std::string sender, OverflowHandler onOverflow);
    static GDBusMessage* s_Filter(GDBusConnection* connection, GDBusMessage* message,
                                  gboolean incoming, gpointer number);
    void Post(Item item);
    bool Takes(size_t size, bool& isFirstRefusal);  // under m_mutex
    void Written(guint32 serial);
    void Pump();                // under m_mutex
    bool WindowIsFull() const;  // under m_mutex
    void Gone(size_t size);     // under m_mutex
    void Drop();                // under m_mutex
    ObjectPtr<GDBusMessage> MessageOf(const Item& item) const;
    static ObjectPtr<GDBusMessage> NewSignal(const Event& event);

    const ObjectPtr<GDBusConnection> m_connection;
    const OutboxLimits m_limits;
    const std::shared_ptr<Allowance> m_allowance;
    const std::string m_sender;
    const OverflowHandler m_onOverflow;
    uintptr_t m_number = 0;  // names it to the filter; constant after Create
    guint m_filter = 0;      // host thread

    std::mutex
        m_mutex;  // held over g_dbus_connection_send_message, which only queues, to keep the order
    bool m_dead = false;         // these are guarded by m_mutex
    bool m_overflowing = false;  // messages are being dropped
    std::deque<Item> m_waiting;
    std::deque<InFlight> m_inFlight;
    size_t m_waitingBytes = 0;  // of the allowance: waiting and in flight
    size_t m_inFlightBytes = 0;
};

}  // namespace platform

#endif
