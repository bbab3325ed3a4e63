// Whom an open handle belongs to, and who hears its events.
#ifndef PLATFORM_PLIV_HOST_OWNER_H
#define PLATFORM_PLIV_HOST_OWNER_H

#include <atomic>
#include <cstddef>

#include "PlivHost/EventRouter.h"

namespace platform {

class Owner : public EventSink {
public:
    // Engines that this owner has open, those being destroyed included.
    std::atomic<size_t> openHandles{0};
};

}  // namespace platform

#endif
