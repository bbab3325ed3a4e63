#include "FakePlatform.h"

#include <glib.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>

#include "Seam.h"

namespace fake {

using Lock = std::lock_guard<std::mutex>;
using Waiting = std::unique_lock<std::mutex>;

void Die(const char* call, const std::string& what) {
    fprintf(stderr, "scripted platform: %s %s\n", call, what.c_str());
    fflush(stderr);
    abort();
}

// ---- what every seam function does -------------------------------------------------------------

int Seam::Enter(const char* call) {
    State& state = Script();
    std::function<void()> hook;
    int error = 0;
    {
        Lock lock(state.mutex);
        state.calls.push_back(call);
        for (State::Fault& fault : state.faults) {
            if (fault.function != call) continue;
            const bool always = fault.countdown == 0;
            if (always || (fault.countdown > 0 && --fault.countdown == 0)) {
                error = fault.error;
                if (!always) fault.countdown = -1;
            }
        }
        const auto found = state.hooks.find(call);
        if (found != state.hooks.end()) hook = found->second;
        state.changed.notify_all();
    }
    if (hook) hook();
    return error;
}

int Seam::EnterConnected(const char* call) {
    const int error = Enter(call);
    if (error) return error;
    Lock lock(Script().mutex);
    return Script().connections > 0 ? 0 : MEDIA_CONTENT_ERROR_INVALID_OPERATION;
}

Handle* Seam::FindLive(const char* call, const void* pointer) {
    if (!pointer) return nullptr;
    const auto found = Script().live.find(pointer);
    if (found != Script().live.end()) return found->second.get();
    const auto gone = Script().dead.find(pointer);
    if (gone == Script().dead.end()) Die(call, "was given something that is no handle");
    Die(call, std::string("was given a ") + gone->second->kind + " that has been given back");
}

void Seam::End(const char* call, const void* pointer, bool byPlatform) {
    State& state = Script();
    Lock lock(state.mutex);
    const Handle* handle = FindLive(call, pointer);
    if (handle->borrowed && !byPlatform)
        Die(call, std::string("gives back a borrowed ") + handle->kind);
    auto node = state.live.find(pointer);
    state.dead[pointer] = std::move(node->second);
    state.live.erase(node);
}

namespace {

gboolean RunOnePosted(gpointer) {
    std::function<void()> what;
    {
        Lock lock(Seam::Script().mutex);
        auto& posted = Seam::Script().posted;
        if (posted.empty()) return G_SOURCE_REMOVE;
        what = std::move(posted.front());
        posted.erase(posted.begin());
    }
    what();
    return G_SOURCE_REMOVE;
}

}  // namespace

// The source carries nothing: what it is to do is handed over under the lock.
void Seam::Post(std::function<void()> what) {
    {
        Lock lock(Script().mutex);
        Script().posted.push_back(std::move(what));
    }
    g_idle_add(RunOnePosted, nullptr);
}

// ---- the script --------------------------------------------------------------------------------

FakePlatform::FakePlatform() : m_state(new State) {}

FakePlatform& FakePlatform::Get() {
    static FakePlatform* platform = new FakePlatform;  // outlives every thread
    return *platform;
}

void FakePlatform::Reset() {
    CompleteFolderScans(MEDIA_CONTENT_ERROR_CANCELLED);
    std::vector<std::thread> threads;
    {
        Lock lock(m_state->mutex);
        threads.swap(m_state->scanThreads);
    }
    for (std::thread& thread : threads) thread.join();
    Lock lock(m_state->mutex);
    State& state = *m_state;
    state.storages.clear();
    state.folders.clear();
    state.items.clear();
    state.files.clear();
    state.devices.clear();
    state.nextId = 1;
    state.storageListings = state.connections = state.usbUsers = 0;
    state.faults.clear();
    state.hooks.clear();
    state.calls.clear();
    state.uses.clear();
    state.live.clear();
    state.dead.clear();
    state.log.clear();
    state.events.clear();
    state.taken.clear();
    state.observer = nullptr;
    state.usbReceivers.clear();
    state.dbReceivers.clear();
    state.posted.clear();
    state.folderScan = FolderScan::AtOnce;
    state.folderScanResult = MEDIA_CONTENT_ERROR_NONE;
    state.plivMainStatus = 0;
    state.plivMainMakesEngine = false;
    state.madeEngines = 0;
    state.app = nullptr;
}

void FakePlatform::Add(Storage storage) {
    Lock lock(m_state->mutex);
    m_state->storages.push_back(std::move(storage));
}

void FakePlatform::Add(Folder folder) {
    Lock lock(m_state->mutex);
    m_state->folders.push_back(std::move(folder));
}

void FakePlatform::Add(Device device) {
    Lock lock(m_state->mutex);
    m_state->devices.push_back(std::move(device));
}

void FakePlatform::Add(Item item) {
    Lock lock(m_state->mutex);
    if (item.id.empty()) item.id = "item-" + std::to_string(m_state->nextId++);
    m_state->items.push_back(std::move(item));
}

void FakePlatform::AddFile(Item item) {
    Lock lock(m_state->mutex);
    if (item.id.empty()) item.id = "item-" + std::to_string(m_state->nextId++);
    m_state->files.push_back(std::move(item));
}

void FakePlatform::RemoveDevices() {
    Lock lock(m_state->mutex);
    m_state->devices.clear();
}

void FakePlatform::SetScanStatus(const std::string& storageId, int status) {
    Lock lock(m_state->mutex);
    for (Storage& storage : m_state->storages)
        if (storage.id == storageId) storage.scanStatus = status;
}

media_info_s* FakePlatform::MakeRecord(Item item) {
    return Seam::Keep(new media_info_s(std::move(item)));
}

media_folder_s* FakePlatform::MakeRecord(Folder folder) {
    return Seam::Keep(new media_folder_s(std::move(folder)));
}

void FakePlatform::Fail(const std::string& function, int nth, int error) {
    Lock lock(m_state->mutex);
    m_state->faults.push_back({function, nth, error});
}

void FakePlatform::FailNoMore() {
    Lock lock(m_state->mutex);
    m_state->faults.clear();
}

void FakePlatform::OnCall(const std::string& function, std::function<void()> hook) {
    Lock lock(m_state->mutex);
    m_state->hooks[function] = std::move(hook);
}

std::vector<std::string> FakePlatform::Calls() const {
    Lock lock(m_state->mutex);
    return m_state->calls;
}

int FakePlatform::CallCount(const std::string& function) const {
    Lock lock(m_state->mutex);
    const auto& calls = m_state->calls;
    return static_cast<int>(std::count(calls.begin(), calls.end(), function));
}

void FakePlatform::ForgetCalls() {
    Lock lock(m_state->mutex);
    m_state->calls.clear();
    m_state->uses.clear();
}

std::vector<Use> FakePlatform::Uses(const std::string& function) const {
    Lock lock(m_state->mutex);
    std::vector<Use> uses;
    for (const Use& use : m_state->uses)
        if (use.call == function) uses.push_back(use);
    return uses;
}

int FakePlatform::Connections() const {
    Lock lock(m_state->mutex);
    return m_state->connections;
}

int FakePlatform::UsbUsers() const {
    Lock lock(m_state->mutex);
    return m_state->usbUsers;
}

int FakePlatform::UsbReceivers() const {
    Lock lock(m_state->mutex);
    return static_cast<int>(m_state->usbReceivers.size());
}

int FakePlatform::DbReceivers() const {
    Lock lock(m_state->mutex);
    return static_cast<int>(m_state->dbReceivers.size());
}

std::map<std::string, int> FakePlatform::LiveHandles() const {
    Lock lock(m_state->mutex);
    std::map<std::string, int> kinds;
    for (const auto& entry : m_state->live)
        if (!entry.second->borrowed) ++kinds[entry.second->kind];
    return kinds;
}

// ---- the log and the events --------------------------------------------------------------------

std::vector<LogLine> FakePlatform::Log() const {
    Lock lock(m_state->mutex);
    return m_state->log;
}

std::vector<std::string> FakePlatform::Messages(int priority) const {
    Lock lock(m_state->mutex);
    std::vector<std::string> messages;
    for (const LogLine& line : m_state->log)
        if (priority == 0 || line.priority == priority) messages.push_back(line.message);
    return messages;
}

bool FakePlatform::HasLog(const std::string& message) const {
    return CountLog(message) > 0;
}

bool FakePlatform::HasLog(int priority, const std::string& message) const {
    const std::vector<std::string> messages = Messages(priority);
    return std::find(messages.begin(), messages.end(), message) != messages.end();
}

int FakePlatform::CountLog(const std::string& message) const {
    const std::vector<std::string> messages = Messages();
    return static_cast<int>(std::count(messages.begin(), messages.end(), message));
}

bool FakePlatform::WaitForLog(const std::string& message, int times) {
    Waiting lock(m_state->mutex);
    return m_state->changed.wait_for(lock, kDeadline, [&] {
        return std::count_if(m_state->log.begin(), m_state->log.end(),
                             [&](const LogLine& line) { return line.message == message; }) >= times;
    });
}

void FakePlatform::ForgetLog() {
    Lock lock(m_state->mutex);
    m_state->log.clear();
}

std::vector<Event> FakePlatform::Events() const {
    Lock lock(m_state->mutex);
    return m_state->events;
}

int FakePlatform::CountEvents(const std::string& name) const {
    Lock lock(m_state->mutex);
    return static_cast<int>(std::count_if(m_state->events.begin(), m_state->events.end(),
                                          [&](const Event& event) { return event.name == name; }));
}

Event FakePlatform::WaitForEvent(const std::string& name, const dorn::CPlivEngineBase* engine,
                                 std::chrono::milliseconds deadline) {
    Waiting lock(m_state->mutex);
    Event found;
    const bool came = m_state->changed.wait_for(lock, deadline, [&] {
        for (size_t i = 0; i < m_state->events.size(); ++i) {
            const Event& event = m_state->events[i];
            if (m_state->taken[i] || event.name != name || (engine && event.engine != engine))
                continue;
            m_state->taken[i] = true;
            found = event;
            return true;
        }
        return false;
    });
    if (!came) ADD_FAILURE() << "no " << name << " was sent in time";
    return found;
}

void FakePlatform::OnEvent(std::function<void(const Event&)> observer) {
    Lock lock(m_state->mutex);
    m_state->observer = std::move(observer);
}

void FakePlatform::SetFolderScan(FolderScan when, media_content_error_e result) {
    Lock lock(m_state->mutex);
    m_state->folderScan = when;
    m_state->folderScanResult = result;
}

int FakePlatform::CompleteFolderScans(media_content_error_e result) {
    decltype(m_state->folderScans) waiting;
    {
        Lock lock(m_state->mutex);
        waiting.swap(m_state->folderScans);
    }
    for (const auto& scan : waiting) scan.first(result, scan.second);
    return static_cast<int>(waiting.size());
}

void FakePlatform::SetPlivMain(int status, bool makesEngine) {
    Lock lock(m_state->mutex);
    m_state->plivMainStatus = status;
    m_state->plivMainMakesEngine = makesEngine;
}

dorn::CPlivAppBase* FakePlatform::LastApp() const {
    Lock lock(m_state->mutex);
    return m_state->app;
}

int FakePlatform::MadeEngines() const {
    Lock lock(m_state->mutex);
    return m_state->madeEngines;
}

// ---- gates -------------------------------------------------------------------------------------

void Gate::Open() {
    Lock lock(m_mutex);
    m_open = true;
    m_changed.notify_all();
}

void Gate::Wait() {
    Waiting lock(m_mutex);
    m_arrived = true;
    m_changed.notify_all();
    m_changed.wait_for(lock, kDeadline, [this] { return m_open; });
}

bool Gate::WaitForArrival() {
    Waiting lock(m_mutex);
    return m_changed.wait_for(lock, kDeadline, [this] { return m_arrived; });
}

}  // namespace fake
