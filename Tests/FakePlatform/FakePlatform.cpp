#include "FakePlatform.h"

#include <glib.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>

#include "Seam.h"

namespace fake {

void Die(const char* call, const std::string& what) {
    fprintf(stderr, "scripted platform: %s %s\n", call, what.c_str());
    fflush(stderr);
    abort();
}

// ---- what every seam function does -------------------------------------------------------------

int Seam::Enter(const char* call, Needs needs) {
    std::function<void()> hook;
    int error = 0;
    {
        const auto script = Lock();
        ++script->calls[call];
        for (Script::Fault& fault : script->faults) {
            if (fault.function != call) continue;
            const bool always = fault.countdown == 0;
            if (always || (fault.countdown > 0 && --fault.countdown == 0)) {
                error = fault.error;
                if (!always) fault.countdown = -1;
            }
        }
        const auto found = script->hooks.find(call);
        if (found != script->hooks.end()) hook = found->second;
        Announce();
    }
    if (hook) hook();
    if (error) return error;
    if (needs == Needs::Media && Lock()->connections == 0)
        return MEDIA_CONTENT_ERROR_INVALID_OPERATION;
    if (needs == Needs::Usb && Lock()->usbUsers == 0) return USB_DEVICE_ERROR_NOT_INITIALIZED;
    return 0;
}

Handle* Seam::FindLive(Script& script, const char* call, const void* pointer) {
    if (!pointer) return nullptr;
    const auto found = script.live.find(pointer);
    if (found == script.live.end()) Die(call, "was given what is no handle, or no longer");
    return found->second.get();
}

void Seam::End(const char* call, const void* pointer, bool byPlatform) {
    const auto script = Lock();
    if (FindLive(*script, call, pointer)->borrowed && !byPlatform)
        Die(call, "gives back what it has borrowed");
    script->live.erase(pointer);
}

// The source carries nothing: what it is to do is handed over under the lock.
void Seam::Post(std::function<void()> what) {
    Lock()->posted.push_back(std::move(what));
    const auto runOne = [](gpointer) -> gboolean {
        std::function<void()> next;
        {
            const auto script = Lock();
            if (script->posted.empty()) return G_SOURCE_REMOVE;
            next = std::move(script->posted.front());
            script->posted.erase(script->posted.begin());
        }
        next();
        return G_SOURCE_REMOVE;
    };
    g_idle_add(runOne, nullptr);
}

// ---- the script --------------------------------------------------------------------------------

FakePlatform& FakePlatform::Get() {
    static FakePlatform* platform = new FakePlatform;  // outlives every thread
    return *platform;
}

void FakePlatform::Reset() {
    CompleteFolderScans();
    *Lock() = Script();
}

void FakePlatform::Add(Item item) {
    const auto script = Lock();
    if (item.id.empty()) item.id = "item-" + std::to_string(script->nextId++);
    script->items.push_back(std::move(item));
}

void FakePlatform::SetScanStatus(const std::string& storageId, int status) {
    const auto script = Lock();
    for (Storage& storage : script->storages)
        if (storage.id == storageId) storage.scanStatus = status;
}

media_info_s* FakePlatform::MakeRecord(Item item) {
    return Seam::Keep(new media_info_s(std::move(item)));
}

int FakePlatform::LiveHandles() const {
    const auto script = Lock();
    return static_cast<int>(std::count_if(script->live.begin(), script->live.end(),
                                          [](auto& entry) { return !entry.second->borrowed; }));
}

// ---- the log and the events --------------------------------------------------------------------

int FakePlatform::CountLog(const std::string& message) const {
    const auto script = Lock();
    return static_cast<int>(std::count(script->log.begin(), script->log.end(), message));
}

bool FakePlatform::WaitForLog(const std::string& message, int times) {
    auto script = Lock();
    return script.Wait(
        [&] { return std::count(script->log.begin(), script->log.end(), message) >= times; });
}

int FakePlatform::CountEvents(const std::string& name) const {
    const std::vector<Event> events = Events();
    return static_cast<int>(std::count_if(events.begin(), events.end(),
                                          [&](const Event& event) { return event.name == name; }));
}

Event FakePlatform::WaitForEvent(const std::string& name, const dorn::CPlivEngineBase* engine) {
    auto script = Lock();
    Event* found = nullptr;
    const bool came = script.Wait([&] {
        for (Event& event : script->events)
            if (!found && !event.taken && event.name == name && (!engine || event.engine == engine))
                found = &event;
        return found != nullptr;
    });
    if (!came) {
        ADD_FAILURE() << "no " << name << " was sent in time";
        return {};
    }
    found->taken = true;
    return *found;
}

int FakePlatform::CompleteFolderScans() {
    decltype(Script::folderScans) waiting;
    waiting.swap(Lock()->folderScans);
    for (const auto& scan : waiting) scan.first(MEDIA_CONTENT_ERROR_CANCELLED, scan.second);
    return static_cast<int>(waiting.size());
}

}  // namespace fake
