#include "PlivHost/EngineImpl.h"

#include <utility>

namespace dorn {

CPlivEngineBase::CPlivEngineBase() : m_impl(std::make_unique<Impl>()) {}

CPlivEngineBase::~CPlivEngineBase() {
    if (m_impl->allowance) m_impl->allowance->GiveBack(m_impl->held, platform::Use::Work);
}

void CPlivEngineBase::Destroy() {
    delete this;
}

void CPlivEngineBase::SetAppInfo(int handle, std::string, std::string, std::string) {
    m_impl->handle = handle;
}

void CPlivEngineBase::SendEvent(int kind, std::string name, std::string payload) {
    if (const auto sink = m_impl->sink.lock())
        sink->SendEvent(m_impl->handle, kind, std::move(name), std::move(payload));
}

bool CPlivEngineBase::Hold(size_t bytes) {
    if (!m_impl->allowance) return true;
    if (!m_impl->allowance->Take(bytes, platform::Use::Work)) return false;
    m_impl->held += bytes;
    return true;
}

void CPlivEngineBase::LetGo(size_t bytes) {
    if (!m_impl->allowance) return;
    m_impl->held -= bytes;
    m_impl->allowance->GiveBack(bytes, platform::Use::Work);
}

void CPlivEngineBase::SetReturnValueInteger(std::string& returnValue, int value) {
    returnValue = std::to_string(value);
}

void CPlivEngineBase::SetReturnValueASCII(std::string& returnValue, std::string& text) {
    returnValue = text;
}

}  // namespace dorn
