#include <atomic>
#include <utility>

#include "PlivHost.h"
#include "PlivHost/EventRouter.h"

namespace dorn {

struct CPlivEngineBase::Impl {
    std::atomic<int> handle{0};  // 0: not told yet
};

CPlivEngineBase::CPlivEngineBase() : m_impl(std::make_unique<Impl>()) {}

CPlivEngineBase::~CPlivEngineBase() = default;

void CPlivEngineBase::Destroy() {
    delete this;
}

void CPlivEngineBase::SetAppInfo(int handle, std::string, std::string, std::string) {
    m_impl->handle = handle;
}

void CPlivEngineBase::SendEvent(int kind, std::string name, std::string payload) {
    const int handle = m_impl->handle;
    if (handle != 0) platform::RouteEvent(handle, kind, std::move(name), std::move(payload));
}

void CPlivEngineBase::SetReturnValueInteger(std::string& returnValue, int value) {
    returnValue = std::to_string(value);
}

void CPlivEngineBase::SetReturnValueASCII(std::string& returnValue, std::string& text) {
    returnValue = text;
}

}  // namespace dorn
