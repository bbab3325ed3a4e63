// The log and the plugin host of the scripted platform.
#include <cstdarg>
#include <cstdio>

#include "PlatformLog.h"
#include "Seam.h"

namespace fake {
namespace {

std::string Format(const char* format, va_list arguments) {
    va_list again;
    va_copy(again, arguments);
    const int length = vsnprintf(nullptr, 0, format, again);
    va_end(again);
    if (length < 0) return "";
    std::string text(static_cast<size_t>(length) + 1, '\0');
    vsnprintf(&text[0], text.size(), format, arguments);
    text.pop_back();
    return text;
}

// "file: function(line) > message"; a text of another form is all message.
void TakeApart(LogLine& line) {
    line.message = line.text;
    const size_t colon = line.text.find(": ");
    if (colon == std::string::npos) return;
    const size_t open = line.text.find('(', colon);
    const size_t close = line.text.find(") > ", colon);
    if (open == std::string::npos || close == std::string::npos || close < open) return;
    line.file = line.text.substr(0, colon);
    line.function = line.text.substr(colon + 2, open - colon - 2);
    line.line = atoi(line.text.c_str() + open + 1);
    line.message = line.text.substr(close + 4);
}

}  // namespace
}  // namespace fake

extern "C" int __dlog_print(int logId, int priority, const char* tag, const char* format, ...) {
    if (logId != 0) fake::Die("__dlog_print", "was given a log id other than 0");
    fake::LogLine line;
    line.priority = priority;
    line.tag = tag;
    line.format = format;
    va_list arguments;
    va_start(arguments, format);
    line.text = fake::Format(format, arguments);
    va_end(arguments);
    fake::TakeApart(line);
    const int length = static_cast<int>(line.text.size());
    auto& state = fake::Seam::Script();
    std::lock_guard<std::mutex> lock(state.mutex);
    state.log.push_back(std::move(line));
    state.changed.notify_all();
    return length;
}

namespace dorn {

struct CPlivEngineBase::Impl {};
struct CPlivAppBase::Impl {};

CPlivEngineBase::CPlivEngineBase() = default;
CPlivEngineBase::~CPlivEngineBase() = default;

void CPlivEngineBase::Destroy() {
    delete this;
}

void CPlivEngineBase::SetAppInfo(int, std::string, std::string, std::string) {}

void CPlivEngineBase::SendEvent(int kind, std::string name, std::string payload) {
    auto& state = fake::Seam::Script();
    fake::Event event;
    event.engine = this;
    event.kind = kind;
    event.name = std::move(name);
    event.payload = std::move(payload);
    std::function<void(const fake::Event&)> observer;
    {
        std::lock_guard<std::mutex> lock(state.mutex);
        state.events.push_back(event);
        state.taken.push_back(false);
        observer = state.observer;
        state.changed.notify_all();
    }
    if (observer) observer(event);
}

void CPlivEngineBase::SetReturnValueInteger(std::string& returnValue, int value) {
    returnValue = std::to_string(value);
}

void CPlivEngineBase::SetReturnValueASCII(std::string& returnValue, std::string& text) {
    returnValue = text;
}

// Opening, closing and dispatching by name or handle are the real host's; nothing here is asked
// for them.
CPlivAppBase::CPlivAppBase() = default;
CPlivAppBase::~CPlivAppBase() = default;
int CPlivAppBase::Open(const std::string&, const std::string&, const std::string&,
                       const std::string&) {
    return -1;
}
bool CPlivAppBase::Close(const std::string&, PlivType::type) {
    return false;
}
bool CPlivAppBase::Execute(std::string&, const std::string&, const std::string&, const std::string&,
                           const std::string&, const std::string&, const std::string&) {
    return false;
}
bool CPlivAppBase::ExecuteWithParamList(std::string&, const std::string&, const std::string&,
                                        const ParamList&) {
    return false;
}
void CPlivAppBase::Destroy() {}
bool CPlivAppBase::Open(int, const std::string&, const std::string&, const std::string&) {
    return false;
}
bool CPlivAppBase::Close(int) {
    return false;
}
bool CPlivAppBase::Execute(std::string&, int, const std::string&, const std::string&,
                           const std::string&, const std::string&, const std::string&) {
    return false;
}
bool CPlivAppBase::ExecuteWithParamList(std::string&, int, const std::string&, const ParamList&) {
    return false;
}
bool CPlivAppBase::CheckVersion(std::string) {
    return true;
}
bool CPlivAppBase::CheckCredential(std::string) {
    return true;
}

int PlivMain(int, char**, CPlivAppBase* app) {
    auto& state = fake::Seam::Script();
    bool makesEngine = false;
    {
        std::lock_guard<std::mutex> lock(state.mutex);
        state.app = app;
        makesEngine = state.plivMainMakesEngine;
    }
    CPlivEngineBase* engine = makesEngine ? app->CreatePlivEngine() : nullptr;
    if (engine) engine->Destroy();
    std::lock_guard<std::mutex> lock(state.mutex);
    if (engine) ++state.madeEngines;
    return state.plivMainStatus;
}

}  // namespace dorn
