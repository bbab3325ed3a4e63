#include "Platform/Host/TestApp.h"

#include <stdlib.h>

#include <stdexcept>

namespace test {
namespace {

struct ClearAtEnd {
    std::atomic<bool>& flag;
    ~ClearAtEnd() { flag = false; }
};

// Commands: "echo" answers arg1, "number" the integer arg1; "wait" waits at the gate; "throw"
// throws what arg1 names; "events" sends arg1 events named arg3, numbered in their payload, which
// is arg2 bytes long; "dirty" answers text that D-Bus cannot carry, and sends it.
class TestEngine : public dorn::CPlivEngineBase {
public:
    explicit TestEngine(TestApp& app) : m_app(app), m_maker(std::this_thread::get_id()) {
        ++m_app.live;
    }
    ~TestEngine() override {
        m_app.NoteDestruction(m_maker);
        --m_app.live;
    }

    bool Execute(std::string& returnValue, const std::string& command, const std::string& arg1,
                 const std::string& arg2, const std::string& arg3, const std::string&) override {
        if (m_running.exchange(true)) ++m_app.overlaps;
        ++m_app.executed;
        const ClearAtEnd clear{m_running};
        return Run(returnValue, command, arg1, arg2, arg3);
    }

    bool ExecuteWithParamList(std::string& returnValue, const std::string& command,
                              const dorn::ParamList& params) override {
        returnValue = command + ":";
        for (const auto& param : params) returnValue += "[" + param + "]";
        return !command.empty();
    }

private:
    bool Run(std::string& returnValue, const std::string& command, const std::string& arg1,
             const std::string& arg2, const std::string& arg3) {
        std::string text = arg1;
        if (command == "echo") {
            SetReturnValueASCII(returnValue, text);
        } else if (command == "number") {
            SetReturnValueInteger(returnValue, std::stoi(arg1));
        } else if (command == "wait") {
            m_app.gate.Wait();
        } else if (command == "throw") {
            Throw(arg1);
        } else if (command == "events") {
            SendEvents(std::stoi(arg1), strtoul(arg2.c_str(), nullptr, 10), arg3);
        } else if (command == "dirty") {
            const std::string dirty("caf\xe9 \xff\0end", 10);
            SendEvent(1, dirty, dirty);
            returnValue = dirty;
        } else {
            return false;
        }
        return true;
    }

    static void Throw(const std::string& what) {
        if (what == "standard") throw std::out_of_range("the reason");
        if (what == "string") throw std::string("the reason");
        if (what == "text") throw "the reason";
        throw 42;
    }

    void SendEvents(int count, size_t size, const std::string& name) {
        for (int i = 0; i < count; ++i) {
            std::string payload = std::to_string(i);
            if (payload.size() < size) payload.append(size - payload.size(), ' ');
            SendEvent(0, name, payload);
        }
    }

    TestApp& m_app;
    const std::thread::id m_maker;
    std::atomic<bool> m_running{false};
};

}  // namespace

TestApp::TestApp() {
    m_pluginName = "TestPlugin";
    m_pluginVersion = "1.5";
}

dorn::CPlivEngineBase* TestApp::CreatePlivEngine() {
    if (throws) throw std::runtime_error("no engine today");
    return refuse ? nullptr : new TestEngine(*this);
}

void TestApp::NoteDestruction(std::thread::id maker) {
    if (maker != std::this_thread::get_id()) ++foreignDestructions;
}

}  // namespace test
