#include "PlivHost/HandleTable.h"

#include <system_error>
#include <utility>

#include "Log/Log.h"
#include "PlivHost/Names.h"
#include "Process/Heap.h"

namespace platform {

HandleTable::HandleTable(dorn::CPlivAppBase& app, HostLoop& loop, const HandleLimits& limits,
                         const std::shared_ptr<Pool>& pool)
    : m_app(app),
      m_loop(loop),
      m_limits(limits),
      m_everyone(std::make_shared<Everyone>(std::make_shared<Allowance>(pool))) {}

HandleTable::~HandleTable() {
    CloseAll();
}

const char* HandleTable::WhyNotOpen(const Owner& owner, size_t limit) const {
    if (owner.openHandles >= limit)
        return "as many handles of this kind are open as may be; close some first";
    if (m_open >= m_limits.inAll) return "the service has as many handles open as it may";
    return nullptr;
}

void HandleTable::Open(MethodCall call, const std::shared_ptr<Peer>& owner, std::string client) {
    Open(std::move(call), owner, m_limits.perClient, std::move(client));
}

void HandleTable::OpenLasting(MethodCall call, std::string client) {
    Open(std::move(call), m_everyone, m_limits.lasting, std::move(client));
}

void HandleTable::Open(MethodCall call, const std::shared_ptr<Owner>& owner, size_t limit,
                       std::string client) {
    if (m_closed) return;  // the call answers itself when destroyed
    if (const char* why = WhyNotOpen(*owner, limit)) {
        call.Fail(kErrorLimitReached, why);
        return;
    }
    Start(std::move(call), owner, std::move(client));
}

void HandleTable::Start(MethodCall call, const std::shared_ptr<Owner>& owner, std::string client) {
    int number = NewHandle();
    while (m_entries.count(number) != 0) number = NewHandle();
    ++m_open;
    ++owner->openHandles;
    const auto release = [this, owner] {
        --owner->openHandles;
        // The last handle is closed: the memory that pages have used is returned to the system.
        if (--m_open == 0) TrimHeap();
    };
    const auto reap = [this, number] { m_loop.Post([this, number] { Erase(number); }); };
    try {
        auto handle = std::make_unique<Handle>(m_app, number, owner, std::move(client),
                                               std::move(call), Handle::Hooks{release, reap});
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_entries.emplace(number, Entry{owner, std::move(handle)});
    } catch (const std::system_error& error) {
        PLATFORM_LOG(kLogTag, LOG_ERROR, "no thread for a new handle: %s", error.what());
        release();
    }
}

Handle* HandleTable::Find(const Peer& caller, int number) {
    const auto found = m_entries.find(number);
    if (found == m_entries.end()) return nullptr;
    const Owner* owner = found->second.owner.get();
    if (owner != &caller && owner != m_everyone.get()) return nullptr;
    Handle* handle = found->second.handle.get();
    return handle->IsClosing() ? nullptr : handle;
}

void HandleTable::Execute(Command command, const Peer& caller, int number) {
    if (Handle* handle = Find(caller, number))
        handle->Post(std::move(command));
    else
        command.call.Fail(kErrorUnknownHandle, "no such handle of this client");
}

bool HandleTable::TryExecute(const Peer& caller, int number, const std::function<Command()>& make) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    Handle* handle = Find(caller, number);
    if (handle) handle->Post(make());
    return handle;
}

// The handle is destroyed after the lock is released.
void HandleTable::Erase(int number) {
    std::map<int, Entry>::node_type ending;
    const std::lock_guard<std::mutex> lock(m_mutex);
    ending = m_entries.extract(number);
}

void HandleTable::Close(MethodCall call, const Peer& caller, int number) {
    if (Handle* handle = Find(caller, number))
        handle->CloseInOrder(std::move(call));
    else
        call.Fail(kErrorUnknownHandle, "no such handle of this client");
}

void HandleTable::CloseAllOf(const Peer& owner) {
    m_everyone->Leave(owner);
    for (auto& [number, entry] : m_entries)
        if (entry.owner.get() == &owner) entry.handle->CloseNow();
}

void HandleTable::CloseAll() {
    m_closed = true;
    for (auto& [number, entry] : m_entries) entry.handle->CloseNow();
    std::map<int, Entry> ending;  // joined after the lock is released
    const std::lock_guard<std::mutex> lock(m_mutex);
    ending.swap(m_entries);
}

}  // namespace platform
