#include "PlivHost/EventRouter.h"

#include <limits>
#include <mutex>
#include <unordered_map>
#include <utility>

namespace platform {
namespace {

struct Routes {
    std::mutex mutex;
    int lastHandle = 0;
    std::unordered_map<int, std::weak_ptr<EventSink>> sinks;
};

// Never destroyed: an engine may send from a thread that outlives main.
Routes& TheRoutes() {
    static Routes* routes = new Routes;
    return *routes;
}

std::shared_ptr<EventSink> FindSink(int handle) {
    Routes& routes = TheRoutes();
    std::lock_guard<std::mutex> lock(routes.mutex);
    const auto found = routes.sinks.find(handle);
    return found == routes.sinks.end() ? nullptr : found->second.lock();
}

}  // namespace

int NewHandle() {
    Routes& routes = TheRoutes();
    std::lock_guard<std::mutex> lock(routes.mutex);
    do {
        routes.lastHandle =
            routes.lastHandle == std::numeric_limits<int>::max() ? 1 : routes.lastHandle + 1;
    } while (routes.sinks.count(routes.lastHandle) != 0);
    return routes.lastHandle;
}

void AddEventRoute(int handle, std::weak_ptr<EventSink> sink) {
    Routes& routes = TheRoutes();
    std::lock_guard<std::mutex> lock(routes.mutex);
    routes.sinks[handle] = std::move(sink);
}

void RemoveEventRoute(int handle) {
    Routes& routes = TheRoutes();
    std::lock_guard<std::mutex> lock(routes.mutex);
    routes.sinks.erase(handle);
}

void RouteEvent(int handle, int kind, std::string name, std::string payload) {
    if (const auto sink = FindSink(handle))
        sink->SendEvent(handle, kind, std::move(name), std::move(payload));
}

std::shared_ptr<Allowance> AllowanceOf(int handle) {
    const auto sink = FindSink(handle);
    return sink ? sink->TheAllowance() : nullptr;
}

}  // namespace platform
