// The host plugin framework, as a plugin sees it: the application object that opens engines for
// clients, the engine that takes commands and sends events, and the process entry.
#ifndef PLATFORM_PLIV_HOST_H
#define PLATFORM_PLIV_HOST_H

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace platform {
struct EngineAccess;
}

namespace dorn {

// The arguments of ExecuteWithParamList, in the client's order.
using ParamList = std::vector<std::string>;

// How an application object's clients are told apart by the name-based operations.
struct PlivType {
    enum type {
        PLIV_TYPE_ENGINE = 0,  // close the engine opened under that name
        PLIV_TYPE_ALL = 1,     // close every engine of the application object
    };
};

// Base of the engine: one open client. Created by CPlivAppBase::CreatePlivEngine, owned by the
// application object that opened it, destroyed through Destroy().
class CPlivEngineBase {
public:
    CPlivEngineBase();
    virtual ~CPlivEngineBase();
    CPlivEngineBase(const CPlivEngineBase&) = delete;
    CPlivEngineBase& operator=(const CPlivEngineBase&) = delete;

    // Runs one command. Called on the command thread of this engine's handle, never by two
    // threads at once. `returnValue` is written through the setters below. True: handled.
    // What it throws is turned into an error answer for the client; the process lives on.
    virtual bool Execute(std::string& returnValue, const std::string& command,
                         const std::string& arg1, const std::string& arg2, const std::string& arg3,
                         const std::string& arg4) = 0;
    virtual bool ExecuteWithParamList(std::string& returnValue, const std::string& command,
                                      const ParamList& params) = 0;

    // Ends the engine's life: deletes it. Nobody may touch it afterwards.
    virtual void Destroy();

    // Tells the engine which handle it serves and who opened it. Called once by the application
    // object before the first command; events sent earlier are dropped.
    virtual void SetAppInfo(int handle, std::string client, std::string plugin,
                            std::string version);

    // Sends one event to the client that owns this engine, and to no other.
    // Any thread; never waits for a client. Text that is not UTF-8 is repaired on the way out.
    // Dropped without a word when the client is gone or no handle was set.
    void SendEvent(int kind, std::string name, std::string payload);

    // Counts what the engine keeps for its client beyond the command at hand: queued work, what was
    // registered. False, and nothing is counted, when the client makes the service hold as much as
    // it may: the engine then refuses the command. Without a handle everything is granted.
    // Any thread; never waits. What is still counted at the engine's end is given back by itself.
    bool Hold(size_t bytes);
    void LetGo(size_t bytes);  // of what was granted

    // Store a command's result in the return string: an integer as decimal text, a text as it is.
    void SetReturnValueInteger(std::string& returnValue, int value);
    void SetReturnValueASCII(std::string& returnValue, std::string& text);

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
    friend struct platform::EngineAccess;
};

// Base of the application object: one per process. It keeps the open engines by handle and hands
// commands to them. All of its operations may be called from any thread; commands of different
// handles run side by side, and a handle that is being closed answers as an unknown one.
class CPlivAppBase {
public:
    CPlivAppBase();
    virtual ~CPlivAppBase();
    CPlivAppBase(const CPlivAppBase&) = delete;
    CPlivAppBase& operator=(const CPlivAppBase&) = delete;

    // Name-based operations: the client's name stands for its handle. Open returns the new
    // handle, or -1 when no engine could be made. Close answers whether anything was open.
    virtual int Open(const std::string& client, const std::string& plugin,
                     const std::string& version, const std::string& credential);
    virtual bool Close(const std::string& client, PlivType::type what);
    virtual bool Execute(std::string& returnValue, const std::string& client,
                         const std::string& command, const std::string& arg1,
                         const std::string& arg2, const std::string& arg3, const std::string& arg4);
    virtual bool ExecuteWithParamList(std::string& returnValue, const std::string& client,
                                      const std::string& command, const ParamList& params);

    // Closes every engine. The object itself stays.
    virtual void Destroy();

    // Handle-based operations, the ones that the process entry uses. Open makes the engine with
    // CreatePlivEngine and files it under `handle` (chosen by the caller, not in use); false when
    // the version or the credential is refused or no engine could be made. Close destroys the
    // engine and returns when it is gone. Execute answers false for an unknown handle.
    virtual bool Open(int handle, const std::string& client, const std::string& version,
                      const std::string& credential);
    virtual bool Close(int handle);
    virtual bool Execute(std::string& returnValue, int handle, const std::string& command,
                         const std::string& arg1, const std::string& arg2, const std::string& arg3,
                         const std::string& arg4);
    virtual bool ExecuteWithParamList(std::string& returnValue, int handle,
                                      const std::string& command, const ParamList& params);

    // Makes one engine; the caller owns it. Null when none can be made.
    virtual CPlivEngineBase* CreatePlivEngine() = 0;

    // May a client of that version, with that credential, open the plugin? The base accepts an
    // empty text and its own version; every credential is accepted, since the transport admits
    // only clients of the right user.
    virtual bool CheckVersion(std::string version);
    virtual bool CheckCredential(std::string credential);

protected:
    // The plugin's identity, filled by the derived class's constructor and read by the host.
    std::string m_pluginName;
    std::string m_pluginId;
    std::string m_pluginVersion;
    std::string m_pluginVendor;
    std::string m_displayName;

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
    friend int PlivMain(int argc, char** argv, CPlivAppBase* app);
    friend struct platform::EngineAccess;
};

// Runs the plugin process: reads the command line, starts the platform's services, serves clients
// until SIGINT or SIGTERM, closes every engine and returns the exit status. `app` stays the
// caller's. Runs on the calling thread; never touches the default main context.
int PlivMain(int argc, char** argv, CPlivAppBase* app);

}  // namespace dorn

#endif
