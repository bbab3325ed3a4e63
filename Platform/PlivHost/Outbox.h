// The messages waiting to be read by the other end of one D-Bus connection.
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
    // The number of waiting messages handed to GDBus. GDBus needs ten times an event's size for
    // each, and returns none, so it gets few at a time.
    size_t windowMessages = 64;
    size_t windowBytes = size_t{1} << 20;
    // When the allowance is exceeded: disconnect the other end, or else drop single messages until
    // there is room.
    bool endsAtLimit = true;
};

// The answer to one method call while it waits: a complete message would take ten times as much.
struct Reply {
    guint32 serial = 0;           // of the call
    std::string caller;           // empty on a private connection
    const char* error = nullptr;  // the error's name, a constant; null: no error
    VariantPtr body;              // a tuple, or null for the empty one
};

// Events and replies in the order in which they were posted, counted to an allowance with the
// overhead of each. Posting never waits for the reader: past the allowance the outbox either drops
// everything, now and later, and reports that once, or drops what does not fit and reports that
// once each time that it runs out of room.
//
// A filter on GDBus's own thread sees when GDBus takes a message off its queue to write it; that
// advances the window. Waiting for a flush instead would hold a pool thread for every reader that
// has stopped.
class Outbox {
public:
    using OverflowHandler = std::function<void()>;  // runs on the posting thread, without a lock

    // `sender` is the sender name in messages; empty when a bus fills it in.
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

    // Drops what is waiting and everything posted later, and releases the connection. Host thread.
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
    uintptr_t m_number = 0;  // identifies it to the filter; constant after Create
    guint m_filter = 0;      // host thread

    std::mutex
        m_mutex;  // held over g_dbus_connection_send_message, which only queues, to keep the order
    bool m_dead = false;         // guarded by m_mutex, as is everything below
    bool m_overflowing = false;  // messages are being dropped
    std::deque<Item> m_waiting;
    std::deque<InFlight> m_inFlight;
    size_t m_waitingBytes = 0;  // counted to the allowance: waiting and in flight
    size_t m_inFlightBytes = 0;
};

}  // namespace platform

#endif
