// The destination of an engine's events.
#ifndef PLATFORM_PLIV_HOST_EVENT_SINK_H
#define PLATFORM_PLIV_HOST_EVENT_SINK_H

#include <memory>
#include <string>

namespace dorn {
class CPlivAppBase;
}

namespace platform {

class Allowance;

// Receives the events of one client's engines. Thread-safe; must never wait for the client.
class EventSink {
public:
    virtual ~EventSink() = default;
    virtual void SendEvent(int handle, int kind, std::string name, std::string payload) = 0;
    // Counts what the client's engines hold.
    virtual const std::shared_ptr<Allowance>& TheAllowance() const = 0;
};

// Gives the host access to engine state that the seam hides.
struct EngineAccess {
    // Sets the event sink of the engine of `handle`. On the handle's command thread, before the
    // first command. Does nothing when there is no such engine.
    static void SetSink(dorn::CPlivAppBase& app, int handle,
                        const std::shared_ptr<EventSink>& sink);
};

// Positive; a number is reused only after all others. Thread-safe.
int NewHandle();

}  // namespace platform

#endif
