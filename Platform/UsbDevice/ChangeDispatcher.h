// The receivers of device changes, and the changes queued for the default main context.
#ifndef PLATFORM_USB_DEVICE_CHANGE_DISPATCHER_H
#define PLATFORM_USB_DEVICE_CHANGE_DISPATCHER_H

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "UsbDevice/DeviceRecord.h"

namespace platform {

struct DeviceChange {
    DevicePtr device;
    const char* action;  // one of the four action words
};

// Every operation may be called from any thread; none waits for a running receiver, except Remove
// of that receiver. Receivers run one at a time, without any lock held, on whichever thread runs
// the default main context.
class ChangeDispatcher : public std::enable_shared_from_this<ChangeDispatcher> {
public:
    // Adding a receiver again has no effect.
    void Add(usb_connected_cb callback, void* userData);

    // False when there is no such receiver. Waits for a running call of it, unless called from
    // inside that call.
    bool Remove(usb_connected_cb callback, void* userData);

    // Queues changes, in order, for all who are receivers when a change is delivered.
    void Post(const std::vector<DeviceChange>& changes);

    // Drops everything that is queued.
    void Clear();

private:
    struct Receiver {
        usb_connected_cb callback;
        void* userData;
        bool operator==(const Receiver& other) const {
            return callback == other.callback && userData == other.userData;
        }
    };
    struct Running {
        Receiver receiver;
        std::thread::id thread;
    };

    void Tell(const DeviceChange& change, uint64_t era);
    void Deliver(const Receiver& receiver, const DeviceChange& change);
    bool Begin(const Receiver& receiver);
    void End();

    std::mutex m_mutex;                 // guards the members below
    std::condition_variable m_idle;     // a receiver's call has ended
    std::vector<Receiver> m_receivers;  // in the order in which they were added
    uint64_t m_era = 0;                 // changes posted in an earlier era are dropped
    std::unique_ptr<Running> m_running;
};

}  // namespace platform

#endif
