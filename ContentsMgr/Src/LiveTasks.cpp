#include "LiveTasks.h"

#include <condition_variable>
#include <mutex>
#include <unordered_map>

namespace dorn {
namespace {

struct Entry {
    int callbacksInside = 0;
    bool leaving = false;  // being removed: no callback may enter
};

struct Registry {
    std::mutex mutex;
    std::condition_variable left;
    std::unordered_map<void*, Entry> entries;  // one per live task manager
};

Registry& TheRegistry() {
    static Registry* registry = new Registry;  // outlives every thread
    return *registry;
}

}  // namespace

void LiveTasks::Add(CPlivTaskContentsMgr* task) {
    Registry& registry = TheRegistry();
    std::lock_guard<std::mutex> lock(registry.mutex);
    registry.entries.emplace(task, Entry{});
}

void LiveTasks::Remove(CPlivTaskContentsMgr* task) {
    Registry& registry = TheRegistry();
    std::unique_lock<std::mutex> lock(registry.mutex);
    Entry& entry = registry.entries[task];
    entry.leaving = true;
    registry.left.wait(lock, [&] { return entry.callbacksInside == 0; });
    registry.entries.erase(task);
}

LiveTasks::Pin::Pin(void* userData) : m_task(nullptr) {
    Registry& registry = TheRegistry();
    std::lock_guard<std::mutex> lock(registry.mutex);
    const auto found = registry.entries.find(userData);
    if (found == registry.entries.end() || found->second.leaving) return;
    ++found->second.callbacksInside;
    m_task = static_cast<CPlivTaskContentsMgr*>(userData);
}

LiveTasks::Pin::~Pin() {
    if (!m_task) return;
    Registry& registry = TheRegistry();
    std::lock_guard<std::mutex> lock(registry.mutex);
    if (--registry.entries[m_task].callbacksInside == 0) registry.left.notify_all();
}

}  // namespace dorn
