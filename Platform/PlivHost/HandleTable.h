// All open handles and their owners.
#ifndef PLATFORM_PLIV_HOST_HANDLE_TABLE_H
#define PLATFORM_PLIV_HOST_HANDLE_TABLE_H

#include <atomic>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "PlivHost/Everyone.h"
#include "PlivHost/Handle.h"
#include "PlivHost/HostLoop.h"
#include "PlivHost/Peer.h"

namespace platform {

struct HandleLimits {
    size_t inAll = 256;
    size_t perClient = 64;
    size_t lasting = 16;  // owned by no single client, so no disconnection closes them
};

// All operations: host thread, unless noted otherwise. Each answers its MethodCall, at once or
// later.
class HandleTable {
public:
    HandleTable(dorn::CPlivAppBase& app, HostLoop& loop, const HandleLimits& limits,
                const std::shared_ptr<Pool>& pool);
    ~HandleTable();  // like CloseAll

    void Open(MethodCall call, const std::shared_ptr<Peer>& owner, std::string client);
    // Opens a handle shared by all clients, open until somebody closes it.
    void OpenLasting(MethodCall call, std::string client);
    void Execute(Command command, const Peer& caller, int number);
    // Queues what `make` returns. False, without calling `make`, when the caller has no such handle
    // or it is being closed. Any thread; takes the table's lock, under which `make` runs.
    bool TryExecute(const Peer& caller, int number, const std::function<Command()>& make);
    void Close(MethodCall call, const Peer& caller, int number);

    // The client receives the events of lasting handles until CloseAllOf.
    void Join(const std::shared_ptr<Peer>& peer) { m_everyone->Join(peer); }

    // The client is gone: destroys its engines, each on its own thread. Returns at once.
    void CloseAllOf(const Peer& owner);

    // Destroys every engine and returns once all are gone. Nothing can be opened afterwards.
    void CloseAll();

private:
    struct Entry {
        std::shared_ptr<Owner> owner;
        std::unique_ptr<Handle> handle;
    };

    const char* WhyNotOpen(const Owner& owner, size_t limit) const;
    Handle* Find(const Peer& caller, int number);
    void Erase(int number);
    void Open(MethodCall call, const std::shared_ptr<Owner>& owner, size_t limit,
              std::string client);
    void Start(MethodCall call, const std::shared_ptr<Owner>& owner, std::string client);

    dorn::CPlivAppBase& m_app;
    HostLoop& m_loop;
    const HandleLimits m_limits;
    const std::shared_ptr<Everyone> m_everyone;
    bool m_closed = false;
    std::atomic<size_t> m_open{0};  // decremented by the handles' threads
    std::mutex m_mutex;  // held to change the entries, and to read them off the host thread
    std::map<int, Entry> m_entries;
};

}  // namespace platform

#endif
