// One open handle: its engine's commands, in order, on a thread of their own.
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
    std::vector<std::string> arguments;  // four of them unless isParamList
    Charge charge;                       // for all of it, from the queueing until it has run

    size_t Size() const;  // bytes that it takes while it waits
};

// The thread makes the engine, runs its commands and destroys it, so that nothing slow in an
// engine holds up anyone else. All operations: host thread, unless told otherwise.
class Handle {
public:
    struct Hooks {
        std::function<void()> released;  // the engine is gone, its Close not yet answered
        std::function<void()> ended;     // the thread is about to end; Join will not wait long
    };

    // Starts the thread; it answers `open` when the engine is there. Throws std::system_error
    // when no thread can be had. `hooks` are called on the thread.
    // `owner` hears the engine's events; the commands that wait and the one that runs are counted
    // to its allowance.
    Handle(dorn::CPlivAppBase& app, int number, std::shared_ptr<EventSink> owner,
           std::string client, MethodCall open, Hooks hooks);
    ~Handle();
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;

    // Queues a command. Answers an error when it is too large, too many wait, or the handle is
    // being closed. Any thread.
    void Post(Command command);

    // Destroys the engine when the commands queued before are done, then answers `close`.
    void CloseInOrder(MethodCall close);

    // Destroys the engine when the running command is done; the queued ones are answered with an
    // error. May follow CloseInOrder.
    void CloseNow();

    bool IsClosing() const { return m_closing; }  // any thread
    void Join();

private:
    bool Queue(Command& command);
    void Main(MethodCall open, std::string client);
    std::string OpenEngine(const std::string& client);  // empty, or why it failed
    std::optional<Command> Next();
    void Run(Command command);
    void CloseEngine();
    void AnswerClose();

    dorn::CPlivAppBase& m_app;
    const int m_number;
    const std::shared_ptr<EventSink> m_owner;
    const Hooks m_hooks;
    std::atomic<bool> m_closing{false};

    std::mutex m_mutex;  // held for a step, and while the closing call is answered
    std::condition_variable m_changed;
    std::deque<Command> m_commands;  // these are guarded by m_mutex
    bool m_stop = false;
    std::optional<MethodCall> m_close;

    std::thread m_thread;  // last: it uses all of the above
};

}  // namespace platform

#endif
