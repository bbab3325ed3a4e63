// Finds the client of an engine's events.
#ifndef PLATFORM_PLIV_HOST_EVENT_ROUTER_H
#define PLATFORM_PLIV_HOST_EVENT_ROUTER_H

#include <memory>
#include <string>

namespace platform {

class Allowance;

// Where the events of one client's engines go. Any thread; must never wait for the client.
class EventSink {
public:
    virtual ~EventSink() = default;
    virtual void SendEvent(int handle, int kind, std::string name, std::string payload) = 0;
    // What the client's engines hold is counted here.
    virtual const std::shared_ptr<Allowance>& TheAllowance() const = 0;
};

// One table for the process, because an engine knows no more of its client than its handle.
// All functions: any thread; a private lock is held for the look-up alone.
int NewHandle();  // positive and not in use; long unused ones come round again
void AddEventRoute(int handle, std::weak_ptr<EventSink> sink);
void RemoveEventRoute(int handle);
// Dropped when the handle has no route or its client is gone.
void RouteEvent(int handle, int kind, std::string name, std::string payload);
// Null when there is no route.
std::shared_ptr<Allowance> AllowanceOf(int handle);

}  // namespace platform

#endif
