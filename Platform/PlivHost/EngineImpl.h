// The private state of an engine's base class.
#ifndef PLATFORM_PLIV_HOST_ENGINE_IMPL_H
#define PLATFORM_PLIV_HOST_ENGINE_IMPL_H

#include <atomic>
#include <memory>

#include "PlivHost.h"
#include "PlivHost/Allowance.h"
#include "PlivHost/EventSink.h"

struct dorn::CPlivEngineBase::Impl {
    int handle = 0;                           // set, like the next two, before the first command
    std::weak_ptr<platform::EventSink> sink;  // expires with the client
    std::shared_ptr<platform::Allowance> allowance;  // null without a client
    std::atomic<size_t> held{0};
};

#endif
