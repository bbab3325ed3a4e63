// Where an engine's events go.
#ifndef PLATFORM_PLIV_HOST_EVENT_SINK_H
#define PLATFORM_PLIV_HOST_EVENT_SINK_H

#include <memory>
#include <string>

namespace dorn {
class CPlivAppBase;
}

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

// The host's way to what the seam does not show of engines.
struct EngineAccess {
    // Gives the engine of `handle` its way out. On the handle's command thread, before the first
    // command. Does nothing when there is no such engine.
    static void SetSink(dorn::CPlivAppBase& app, int handle,
                        const std::shared_ptr<EventSink>& sink);
};

// Positive; comes again after all others. Any thread.
int NewHandle();

}  // namespace platform

#endif
