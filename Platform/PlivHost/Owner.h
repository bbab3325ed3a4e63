// Whom an open handle belongs to, and who hears its events.
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

    // Engines that this owner has open, those being destroyed included.
    std::atomic<size_t> openHandles{0};

private:
    const std::shared_ptr<Allowance> m_allowance;
};

}  // namespace platform

#endif
