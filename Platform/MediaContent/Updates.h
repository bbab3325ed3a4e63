// Reports of database changes, delivered to their receivers on the default main context.
#ifndef PLATFORM_MEDIA_CONTENT_UPDATES_H
#define PLATFORM_MEDIA_CONTENT_UPDATES_H

#include <cstdint>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "MediaContent.h"
#include "MediaContent/Writer.h"

namespace platform {

struct Update {
    media_content_error_e error = MEDIA_CONTENT_ERROR_NONE;
    media_content_db_update_item_type_e item = MEDIA_CONTENT_ITEM_FILE;
    media_content_db_update_type_e update = MEDIA_CONTENT_UPDATE;
    media_content_type_e type = MEDIA_CONTENT_TYPE_OTHERS;
    std::string id;    // empty: none
    std::string path;  // absolute
    std::string mime;  // empty: none
};

// The report for a change to item `id` of the storage mounted at `mountPath`.
Update UpdateOf(const Done& done, std::string id, const std::string& mountPath);

// Thread-safe. Never calls a receiver from Report, and never under a lock. The queue stays bounded
// even when nobody runs the default main context: further item reports are dropped with a log line;
// of the scan reports, the last one of each storage is kept. Lives as long as the process.
class Updates {
public:
    // Adding the same pair again has no effect.
    void AddReceiver(media_content_db_updated_cb callback, void* userData);
    void Report(Update update);

private:
    using Receiver = std::pair<media_content_db_updated_cb, void*>;
    bool HasRoom();
    void Deliver(Update& update);

    std::mutex m_mutex;
    std::vector<Receiver> m_receivers;  // guarded by m_mutex, as all below
    size_t m_waiting = 0;               // reports of items
    uint64_t m_dropped = 0;
};

}  // namespace platform

#endif
