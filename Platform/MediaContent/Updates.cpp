#include "MediaContent/Updates.h"

#include <glib.h>
#include <unistd.h>

#include <algorithm>

#include "Log/Log.h"

namespace platform {
namespace {

constexpr size_t MAX_BACKLOG = 10000;  // reports of items
constexpr int AT_A_TIME = 64;          // reports between two turns of the main context

gboolean DeliverSome(gpointer updates) {
    return static_cast<Updates*>(updates)->Deliver() ? G_SOURCE_CONTINUE : G_SOURCE_REMOVE;
}

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
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_receivers.empty()) return;
    ReplaceOrAppend(std::move(update));
    if (m_scheduled || m_backlog.empty()) return;
    m_scheduled = true;
    Schedule();
}

void Updates::ReplaceOrAppend(Update update) {
    if (update.item == MEDIA_CONTENT_ITEM_DIRECTORY) {
        const auto same = [&](const Update& other) {
            return other.item == update.item && other.id == update.id && other.path == update.path;
        };
        m_backlog.erase(std::remove_if(m_backlog.begin(), m_backlog.end(), same), m_backlog.end());
    } else if (m_backlog.size() >= MAX_BACKLOG) {
        if (m_dropped++ == 0)
            PLATFORM_LOG("MEDIA_CONTENT", LOG_WARNING,
                         "%zu reports of changes wait for the main loop; further ones are dropped",
                         m_backlog.size());
        return;
    }
    m_backlog.push_back(std::move(update));
}

// The source holds no data but this object, which lives as long as the process.
void Updates::Schedule() {
    GSource* source = g_idle_source_new();
    g_source_set_priority(source, G_PRIORITY_DEFAULT);
    g_source_set_callback(source, DeliverSome, this, nullptr);
    g_source_attach(source, nullptr);
    g_source_unref(source);
}

bool Updates::Deliver() {
    for (int count = 0; count < AT_A_TIME; ++count) {
        Update update;
        std::vector<Receiver> receivers;
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            if (m_backlog.empty()) {
                m_scheduled = false;
                if (m_dropped > 0)
                    PLATFORM_LOG("MEDIA_CONTENT", LOG_WARNING,
                                 "%llu reports of changes were dropped",
                                 static_cast<unsigned long long>(std::exchange(m_dropped, 0)));
                return false;
            }
            update = std::move(m_backlog.front());
            m_backlog.pop_front();
            receivers = m_receivers;
        }
        for (const auto& [callback, userData] : receivers)
            callback(update.error, getpid(), update.item, update.update, update.type,
                     Text(update.id), Text(update.path), Text(update.mime), userData);
    }
    return true;
}

}  // namespace platform
