// The owner of an open handle, which receives its events.
#ifndef PLATFORM_PLIV_HOST_OWNER_H
#define PLATFORM_PLIV_HOST_OWNER_H

#include <atomic>
#include <cstddef>
#include <memory>
#include <utility>

#include "PlivHost/Allowance.h"
#include "PlivHost/EventSink.h"

namespace platform {

class Owner : public EventSink {
public:
    explicit Owner(std::shared_ptr<Allowance> allowance) : m_allowance(std::move(allowance)) {}
    const std::shared_ptr<Allowance>& TheAllowance() const override { return m_allowance; }

    // The owner's open engines, including those being destroyed.
    std::atomic<size_t> openHandles{0};

private:
    const std::shared_ptr<Allowance> m_allowance;
};

}  // namespace platform

#endif
