#include <atomic>
#include <limits>
#include <map>
#include <mutex>
#include <utility>

#include "PlivHost/EngineImpl.h"

namespace dorn {
namespace {

struct DestroyEngine {
    void operator()(CPlivEngineBase* engine) const { engine->Destroy(); }
};

// One open engine. Whoever removes it from the table destroys it, under `running`, so a command
// that has started finishes first; later commands find `instance` empty.
struct OpenEngine {
    std::string client;
    std::mutex running;                                        // held while a command runs
    std::unique_ptr<CPlivEngineBase, DestroyEngine> instance;  // guarded by running
};

}  // namespace

struct CPlivAppBase::Impl {
    using EnginePtr = std::shared_ptr<OpenEngine>;

    std::mutex mutex;  // never held while an engine runs, is created or is destroyed
    std::map<int, EnginePtr> engines;  // guarded by mutex

    EnginePtr Find(int handle) {
        std::lock_guard<std::mutex> lock(mutex);
        const auto found = engines.find(handle);
        return found == engines.end() ? nullptr : found->second;
    }

    int HandleOf(const std::string& client) {
        std::lock_guard<std::mutex> lock(mutex);
        for (const auto& [handle, engine] : engines)
            if (engine->client == client) return handle;
        return -1;
    }

    EnginePtr Take(int handle) {
        std::lock_guard<std::mutex> lock(mutex);
        const auto found = engines.find(handle);
        if (found == engines.end()) return nullptr;
        EnginePtr engine = std::move(found->second);
        engines.erase(found);
        return engine;
    }

    std::map<int, EnginePtr> TakeAll() {
        std::lock_guard<std::mutex> lock(mutex);
        return std::exchange(engines, {});
    }

    static void End(OpenEngine& engine) {
        std::lock_guard<std::mutex> lock(engine.running);
        engine.instance.reset();
    }

    template <typename Command>
    bool Run(int handle, Command command) {
        const EnginePtr engine = Find(handle);
        if (!engine) return false;
        std::lock_guard<std::mutex> lock(engine->running);
        return engine->instance && command(*engine->instance);
    }
};

CPlivAppBase::CPlivAppBase() : m_impl(std::make_unique<Impl>()) {}

CPlivAppBase::~CPlivAppBase() {
    CPlivAppBase::Destroy();
}

int CPlivAppBase::Open(const std::string& client, const std::string& plugin,
                       const std::string& version, const std::string& credential) {
    if (!plugin.empty() && plugin != m_pluginName) return -1;
    const int handle = platform::NewHandle();
    return Open(handle, client, version, credential) ? handle : -1;
}

bool CPlivAppBase::Close(const std::string& client, PlivType::type what) {
    if (what == PlivType::PLIV_TYPE_ALL) {
        const auto engines = m_impl->TakeAll();
        for (const auto& entry : engines) Impl::End(*entry.second);
        return !engines.empty();
    }
    return Close(m_impl->HandleOf(client));
}

bool CPlivAppBase::Execute(std::string& returnValue, const std::string& client,
                           const std::string& command, const std::string& arg1,
                           const std::string& arg2, const std::string& arg3,
                           const std::string& arg4) {
    return Execute(returnValue, m_impl->HandleOf(client), command, arg1, arg2, arg3, arg4);
}

bool CPlivAppBase::ExecuteWithParamList(std::string& returnValue, const std::string& client,
                                        const std::string& command, const ParamList& params) {
    return ExecuteWithParamList(returnValue, m_impl->HandleOf(client), command, params);
}

void CPlivAppBase::Destroy() {
    for (const auto& entry : m_impl->TakeAll()) Impl::End(*entry.second);
}

bool CPlivAppBase::Open(int handle, const std::string& client, const std::string& version,
                        const std::string& credential) {
    if (!CheckVersion(version) || !CheckCredential(credential)) return false;
    auto engine = std::make_shared<OpenEngine>();
    engine->client = client;
    engine->instance.reset(CreatePlivEngine());
    if (!engine->instance) return false;
    engine->instance->SetAppInfo(handle, client, m_pluginName, m_pluginVersion);
    std::lock_guard<std::mutex> lock(m_impl->mutex);
    return m_impl->engines.emplace(handle, engine).second;
}

bool CPlivAppBase::Close(int handle) {
    const auto engine = m_impl->Take(handle);
    if (!engine) return false;
    Impl::End(*engine);
    return true;
}

bool CPlivAppBase::Execute(std::string& returnValue, int handle, const std::string& command,
                           const std::string& arg1, const std::string& arg2,
                           const std::string& arg3, const std::string& arg4) {
    return m_impl->Run(handle, [&](CPlivEngineBase& engine) {
        return engine.Execute(returnValue, command, arg1, arg2, arg3, arg4);
    });
}

bool CPlivAppBase::ExecuteWithParamList(std::string& returnValue, int handle,
                                        const std::string& command, const ParamList& params) {
    return m_impl->Run(handle, [&](CPlivEngineBase& engine) {
        return engine.ExecuteWithParamList(returnValue, command, params);
    });
}

bool CPlivAppBase::CheckVersion(std::string version) {
    return version.empty() || version == m_pluginVersion;
}

bool CPlivAppBase::CheckCredential(std::string) {
    return true;
}

}  // namespace dorn

namespace platform {

void EngineAccess::SetSink(dorn::CPlivAppBase& app, int handle,
                           const std::shared_ptr<EventSink>& sink) {
    const auto engine = app.m_impl->Find(handle);
    if (!engine) return;
    std::lock_guard<std::mutex> lock(engine->running);
    if (!engine->instance) return;
    engine->instance->m_impl->sink = sink;
    engine->instance->m_impl->allowance = sink->TheAllowance();
}

int NewHandle() {
    static std::atomic<int> last{0};
    int before = last, next = 0;
    do next = before == std::numeric_limits<int>::max() ? 1 : before + 1;
    while (!last.compare_exchange_weak(before, next));
    return next;
}

}  // namespace platform
