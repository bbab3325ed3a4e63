// The host plugin framework, as seen by a plugin: the application object that opens engines for
// clients, the engine that executes commands and sends events, and the process entry point.
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

// The arguments of ExecuteWithParamList, in the order in which the client passed them.
using ParamList = std::vector<std::string>;

// Which engines a name-based operation applies to.
struct PlivType {
    enum type {
        PLIV_TYPE_ENGINE = 0,  // close the engine opened under that name
        PLIV_TYPE_ALL = 1,     // close every engine of the application object
    };
};

// Base class of an engine, which represents one open client. Created by
// CPlivAppBase::CreatePlivEngine, owned by the application object that opened it, destroyed through
// Destroy().
class CPlivEngineBase {
public:
    CPlivEngineBase();
    virtual ~CPlivEngineBase();
    CPlivEngineBase(const CPlivEngineBase&) = delete;
    CPlivEngineBase& operator=(const CPlivEngineBase&) = delete;

    // Runs one command. Called on the command thread of this engine's handle, never by two threads
    // at once. `returnValue` is written through the setters below. Returns true if the command was
    // handled. An exception becomes an error reply to the client; the process continues.
    virtual bool Execute(std::string& returnValue, const std::string& command,
                         const std::string& arg1, const std::string& arg2, const std::string& arg3,
                         const std::string& arg4) = 0;
    virtual bool ExecuteWithParamList(std::string& returnValue, const std::string& command,
                                      const ParamList& params) = 0;

    // Deletes the engine. It must not be used afterwards.
    virtual void Destroy();

    // Tells the engine which handle it serves and who opened it. Called once by the application
    // object before the first command; events sent earlier are dropped.
    virtual void SetAppInfo(int handle, std::string client, std::string plugin,
                            std::string version);

    // Sends one event to the client that owns this engine, and to no other. May be called from any
    // thread; never waits for a client. Invalid UTF-8 is repaired before sending. Silently dropped
    // when the client is gone or no handle was set.
    void SendEvent(int kind, std::string name, std::string payload);

    // Counts what the engine keeps for its client beyond the current command: queued work and
    // registrations. Returns false, and counts nothing, when the client would exceed its limit: the
    // engine then refuses the command. Without a handle everything is granted. May be called from
    // any thread; never waits. Whatever is still counted when the engine is destroyed is released
    // automatically.
    bool Hold(size_t bytes);
    void LetGo(size_t bytes);  // bytes that were granted

    // Store a command's result in the return string: an integer as decimal text, a text unchanged.
    void SetReturnValueInteger(std::string& returnValue, int value);
    void SetReturnValueASCII(std::string& returnValue, std::string& text);

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
    friend struct platform::EngineAccess;
};

// Base class of the application object, of which there is one per process. It keeps the open
// engines by handle and passes commands to them. All operations may be called from any thread;
// commands of different handles run in parallel, and a handle that is being closed behaves like an
// unknown one.
class CPlivAppBase {
public:
    CPlivAppBase();
    virtual ~CPlivAppBase();
    CPlivAppBase(const CPlivAppBase&) = delete;
    CPlivAppBase& operator=(const CPlivAppBase&) = delete;

    // Name-based operations: the client's name takes the place of its handle. Open returns the new
    // handle, or -1 when no engine could be created. Close returns whether anything was open.
    virtual int Open(const std::string& client, const std::string& plugin,
                     const std::string& version, const std::string& credential);
    virtual bool Close(const std::string& client, PlivType::type what);
    virtual bool Execute(std::string& returnValue, const std::string& client,
                         const std::string& command, const std::string& arg1,
                         const std::string& arg2, const std::string& arg3, const std::string& arg4);
    virtual bool ExecuteWithParamList(std::string& returnValue, const std::string& client,
                                      const std::string& command, const ParamList& params);

    // Closes every engine. Does not delete the object itself.
    virtual void Destroy();

    // Handle-based operations, used by the process entry point. Open creates the engine with
    // CreatePlivEngine and stores it under `handle` (chosen by the caller, not in use); false when
    // the version or the credential is refused or no engine could be created. Close destroys the
    // engine and returns once it is gone. Execute returns false for an unknown handle.
    virtual bool Open(int handle, const std::string& client, const std::string& version,
                      const std::string& credential);
    virtual bool Close(int handle);
    virtual bool Execute(std::string& returnValue, int handle, const std::string& command,
                         const std::string& arg1, const std::string& arg2, const std::string& arg3,
                         const std::string& arg4);
    virtual bool ExecuteWithParamList(std::string& returnValue, int handle,
                                      const std::string& command, const ParamList& params);

    // Creates one engine; the caller owns it. Null when none can be created.
    virtual CPlivEngineBase* CreatePlivEngine() = 0;

    // Whether a client of that version, with that credential, may open the plugin. The base class
    // accepts an empty text and its own version; it accepts every credential, since the transport
    // admits only clients of the right user.
    virtual bool CheckVersion(std::string version);
    virtual bool CheckCredential(std::string credential);

protected:
    // The plugin's identity, set by the derived class's constructor and read by the host.
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

// Runs the plugin process: parses the command line, starts the platform's services, serves clients
// until SIGINT or SIGTERM, closes every engine and returns the exit status. The caller keeps
// ownership of `app`. Runs on the calling thread; never touches the default main context.
int PlivMain(int argc, char** argv, CPlivAppBase* app);

}  // namespace dorn

#endif
