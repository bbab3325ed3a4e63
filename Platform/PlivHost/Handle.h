// One open handle: runs its engine's commands, in order, on a dedicated thread.
#ifndef PLATFORM_PLIV_HOST_HANDLE_H
#define PLATFORM_PLIV_HOST_HANDLE_H

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "PlivHost.h"
#include "PlivHost/Allowance.h"
#include "PlivHost/EventSink.h"
#include "PlivHost/MethodCall.h"
#include "Process/ThreadCrew.h"

namespace platform {

struct Command {
    MethodCall call;
    std::string name;
    bool isParamList;
    std::vector<std::string> arguments;  // four unless isParamList
    Charge charge;                       // for the whole command, from queueing until it has run

    size_t Size() const;  // bytes that it takes up while it waits
};

// The thread creates the engine, runs its commands and destroys it, so that a slow engine holds up
// nobody else. All operations: host thread, unless noted otherwise.
class Handle {
public:
    struct Hooks {
        std::function<void()> released;  // the engine is destroyed, its Close not yet answered
        std::function<void()> ended;     // the thread is about to exit; Join will not wait long
    };

    // Starts the thread; it answers `open` once the engine exists. Throws std::system_error when no
    // thread can be started. `hooks` are called on the thread. `owner` receives the engine's
    // events; queued and running commands are counted against its allowance.
    Handle(dorn::CPlivAppBase& app, int number, std::shared_ptr<EventSink> owner,
           std::string client, MethodCall open, Hooks hooks);
    ~Handle();
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;

    // Queues a command. Answers with an error when it is too large, too many are queued, or the
    // handle is being closed. Any thread.
    void Post(Command command);

    // Destroys the engine once the commands queued before have run, then answers `close`.
    void CloseInOrder(MethodCall close);

    // Destroys the engine once the running command has finished; queued commands are answered with
    // an error. May follow CloseInOrder.
    void CloseNow();

    bool IsClosing() const { return m_closing; }  // any thread
    void Join();

private:
    bool Queue(Command& command);
    void Main(MethodCall open, std::string client);
    std::string OpenEngine(const std::string& client);  // empty, or the reason for the failure
    std::optional<Command> Next();
    void Run(Command command);
    void CloseEngine();
    void AnswerClose();

    dorn::CPlivAppBase& m_app;
    const int m_number;
    const std::shared_ptr<EventSink> m_owner;
    const Hooks m_hooks;
    std::atomic<bool> m_closing{false};

    std::mutex m_mutex;  // held for one step, and while the closing call is answered
    std::condition_variable m_changed;
    std::deque<Command> m_commands;  // guarded by m_mutex, as is m_stop
    bool m_stop = false;
    std::optional<MethodCall> m_close;

    std::thread m_thread;  // last: the thread uses everything above
};

}  // namespace platform

#endif
