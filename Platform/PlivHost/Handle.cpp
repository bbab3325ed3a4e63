#include "PlivHost/Handle.h"

#include <cxxabi.h>
#include <stdlib.h>

#include <exception>
#include <typeinfo>
#include <utility>

#include "Log/Log.h"
#include "PlivHost/Names.h"
#include "PlivHost/Utf8.h"

namespace platform {
namespace {

constexpr size_t kMaxQueuedCommands = 1024;
constexpr size_t kOverhead = 128;  // per text: its object and its heap block

// To be called in a catch block: the type name of the exception.
std::string ThrownType() {
    const std::type_info* type = abi::__cxa_current_exception_type();
    if (!type) return "unknown";
    int status = 0;
    const std::unique_ptr<char, ReleaseWith<free>> name(
        abi::__cxa_demangle(type->name(), nullptr, nullptr, &status));
    return status == 0 ? name.get() : type->name();
}

// Runs `body`; returns the text of its exception, or an empty text.
template <typename Body>
std::string Guarded(Body body) {
    try {
        body();
        return {};
    } catch (const std::exception& thrown) {
        return ThrownType() + ": " + thrown.what();
    } catch (const std::string& thrown) {
        return "std::string: " + thrown;
    } catch (const char* thrown) {
        return std::string("text: ") + (thrown ? thrown : "(null)");
    } catch (...) {
        return ThrownType();
    }
}

}  // namespace

size_t Command::Size() const {
    size_t size = sizeof(Command) + kOverhead + name.size();
    for (const auto& argument : arguments) size += kOverhead + argument.size();
    return size;
}

Handle::Handle(dorn::CPlivAppBase& app, int number, std::shared_ptr<EventSink> owner,
               std::string client, MethodCall open, Hooks hooks)
    : m_app(app),
      m_number(number),
      m_owner(std::move(owner)),
      m_hooks(std::move(hooks)),
      m_thread(StartThread("pliv-" + std::to_string(number),
                           [this, call = std::make_shared<MethodCall>(std::move(open)),
                            name = std::move(client)] { Main(std::move(*call), name); })) {}

Handle::~Handle() {
    CloseNow();
    Join();
}

void Handle::Join() {
    if (m_thread.joinable()) m_thread.join();
}

void Handle::Post(Command command) {
    const size_t size = command.Size();
    const char* refusal = kMaxCallBytes < size ? "the command is too large" : nullptr;
    if (!refusal && !(command.charge = Charge(m_owner->TheAllowance(), size)))
        refusal = "the service holds as much for this client as it may";
    if (!refusal && !Queue(command))
        refusal = "too many commands of this handle wait; read their answers first";
    if (refusal) command.call.Fail(kErrorLimitReached, refusal);
}

// False: too many are queued. True also when the handle is being closed: the command is then
// answered by its destruction.
bool Handle::Queue(Command& command) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_commands.size() >= kMaxQueuedCommands) return false;
    if (m_stop) return true;
    m_commands.push_back(std::move(command));
    m_changed.notify_one();
    return true;
}

void Handle::CloseInOrder(MethodCall close) {
    m_closing = true;
    std::lock_guard<std::mutex> lock(m_mutex);
    m_close.emplace(std::move(close));
    m_stop = true;
    m_changed.notify_one();
}

void Handle::CloseNow() {
    m_closing = true;
    std::deque<Command> dropped;  // answered by their destruction, after the lock is released
    std::lock_guard<std::mutex> lock(m_mutex);
    dropped.swap(m_commands);
    m_stop = true;
    m_changed.notify_one();
}

void Handle::Main(MethodCall open, std::string client) {
    const std::string failure = OpenEngine(client);
    if (failure.empty()) {
        open.Return(g_variant_new("(i)", m_number));
        while (auto command = Next()) Run(std::move(*command));
        CloseEngine();
    }
    m_hooks.released();
    if (!failure.empty()) open.Fail(kErrorOpenFailed, failure);
    AnswerClose();
    m_hooks.ended();
}

std::string Handle::OpenEngine(const std::string& client) {
    bool opened = false;
    std::string failure = Guarded([&] { opened = m_app.Open(m_number, client, "", ""); });
    if (opened) {
        EngineAccess::SetSink(m_app, m_number, m_owner);
        return {};
    }
    if (failure.empty()) failure = "the plugin made no engine";
    PLATFORM_LOG(kLogTag, LOG_ERROR, "opening for \"%s\" failed: %s", client.c_str(),
                 failure.c_str());
    return failure;
}

void Handle::AnswerClose() {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_close) m_close->Return(nullptr);
}

std::optional<Command> Handle::Next() {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait(lock, [this] { return m_stop || !m_commands.empty(); });
    if (m_commands.empty()) return std::nullopt;
    Command command = std::move(m_commands.front());
    m_commands.pop_front();
    return command;
}

void Handle::Run(Command command) {
    bool handled = false;
    std::string value;
    const auto& arguments = command.arguments;
    const std::string thrown = Guarded([&] {
        handled = command.isParamList
                      ? m_app.ExecuteWithParamList(value, m_number, command.name, arguments)
                      : m_app.Execute(value, m_number, command.name, arguments[0], arguments[1],
                                      arguments[2], arguments[3]);
    });
    if (thrown.empty()) {
        command.call.Return(g_variant_new("(bs)", handled, ToUtf8(std::move(value)).c_str()));
        return;
    }
    PLATFORM_LOG(kLogTag, LOG_ERROR, "command \"%s\" of handle %d threw %s", command.name.c_str(),
                 m_number, thrown.c_str());
    command.call.Fail(kErrorCommandFailed, "\"" + command.name + "\" threw " + thrown);
}

void Handle::CloseEngine() {
    const std::string thrown = Guarded([&] { m_app.Close(m_number); });
    if (!thrown.empty())
        PLATFORM_LOG(kLogTag, LOG_ERROR, "closing handle %d threw %s", m_number, thrown.c_str());
}

}  // namespace platform
