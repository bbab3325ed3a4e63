// The log and the plugin host of the scripted platform; of the host only what an engine needs. The
// application object is not there: it and the process are tested with the real host.
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

}  // namespace
}  // namespace fake

extern "C" int __dlog_print(int logId, int, const char*, const char* format, ...) {
    if (logId != 0) fake::Die("__dlog_print", "was given a log id other than 0");
    va_list arguments;
    va_start(arguments, format);
    const std::string text = fake::Format(format, arguments);
    va_end(arguments);
    const std::string endOfPlace = ") > ";
    fake::Seam::Lock()->log.push_back(text.substr(text.find(endOfPlace) + endOfPlace.size()));
    fake::Seam::Announce();
    return static_cast<int>(text.size());
}

namespace dorn {

struct CPlivEngineBase::Impl {};

CPlivEngineBase::CPlivEngineBase() = default;
CPlivEngineBase::~CPlivEngineBase() = default;

void CPlivEngineBase::Destroy() {
    delete this;
}

void CPlivEngineBase::SetAppInfo(int, std::string, std::string, std::string) {}

void CPlivEngineBase::SendEvent(int kind, std::string name, std::string payload) {
    const fake::Event event{this, kind, std::move(name), std::move(payload), false};
    auto script = fake::Seam::Lock();
    script->events.push_back(event);
    const auto observer = script->observer;
    fake::Seam::Announce();
    script.lock.unlock();
    if (observer) observer(event);
}

bool CPlivEngineBase::Hold(size_t bytes) {
    auto script = fake::Seam::Lock();
    if (script->held + bytes > script->mayHold) return false;
    script->held += bytes;
    return true;
}

void CPlivEngineBase::LetGo(size_t bytes) {
    auto script = fake::Seam::Lock();
    if (bytes > script->held) fake::Die("LetGo", "gives back more than was held");
    script->held -= bytes;
}

void CPlivEngineBase::SetReturnValueInteger(std::string& returnValue, int value) {
    returnValue = std::to_string(value);
}

void CPlivEngineBase::SetReturnValueASCII(std::string& returnValue, std::string& text) {
    returnValue = text;
}

}  // namespace dorn
