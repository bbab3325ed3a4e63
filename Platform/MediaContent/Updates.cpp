#include "MediaContent/Updates.h"

#include <unistd.h>

#include <algorithm>

#include "Log/Log.h"
#include "Process/ContextQueue.h"

namespace platform {
namespace {

constexpr size_t kMaxWaiting = 10000;  // reports of items

char* Text(std::string& text) {
    return text.empty() ? nullptr : text.data();
}

}  // namespace

Update UpdateOf(const Done& done, std::string id, const std::string& mountPath) {
    Update update;
    update.update = done.update;
    update.type = done.type;
    update.id = std::move(id);
    update.path = mountPath + '/' + done.path;
    update.mime = done.mime;
    return update;
}

void Updates::AddReceiver(media_content_db_updated_cb callback, void* userData) {
    const Receiver receiver(callback, userData);
    std::lock_guard<std::mutex> lock(m_mutex);
    if (std::find(m_receivers.begin(), m_receivers.end(), receiver) == m_receivers.end())
        m_receivers.push_back(receiver);
}

void Updates::Report(Update update) {
    const bool isScanEnd = update.item == MEDIA_CONTENT_ITEM_DIRECTORY;
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_receivers.empty() || !(isScanEnd || HasRoom())) return;
    const std::string key = isScanEnd ? update.id + update.path : "";
    ContextQueue::Default().Post([this, update = std::move(update)]() mutable { Deliver(update); },
                                 key);
}

// Adds the report of an item to the count, or removes it.
bool Updates::HasRoom() {
    if (m_waiting < kMaxWaiting) {
        ++m_waiting;
        return true;
    }
    if (m_dropped++ == 0)
        PLATFORM_LOG("MEDIA_CONTENT", LOG_WARNING,
                     "%zu reports of changes wait for the main loop; further ones are dropped",
                     m_waiting);
    return false;
}

void Updates::Deliver(Update& update) {
    std::vector<Receiver> receivers;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        receivers = m_receivers;
        if (update.item != MEDIA_CONTENT_ITEM_DIRECTORY && --m_waiting == 0 && m_dropped > 0)
            PLATFORM_LOG("MEDIA_CONTENT", LOG_WARNING, "%llu reports of changes were dropped",
                         static_cast<unsigned long long>(std::exchange(m_dropped, 0)));
    }
    for (const auto& [callback, userData] : receivers)
        callback(update.error, getpid(), update.item, update.update, update.type, Text(update.id),
                 Text(update.path), Text(update.mime), userData);
}

}  // namespace platform
