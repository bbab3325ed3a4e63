// The records behind the handles of the C interface: immutable, counted, shared by all clones.
#ifndef PLATFORM_MEDIA_CONTENT_RECORDS_H
#define PLATFORM_MEDIA_CONTENT_RECORDS_H

#include <array>
#include <atomic>
#include <boost/container/small_vector.hpp>
#include <boost/intrusive/set_hook.hpp>
#include <boost/intrusive_ptr.hpp>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "MediaContent.h"

// Metadata handles are views into their item's record and share its reference count.
struct audio_meta_s {
    media_info_s* item;
};
struct image_meta_s {
    media_info_s* item;
};
struct video_meta_s {
    media_info_s* item;
};

namespace platform {

// In the order in which they are added.
enum class ItemText {
    Id,
    Folder,  // absolute, with a trailing slash
    Name,
    Mime,
    Title,
    Description,
    Album,
    Artist,
    Genre,
    Composer,
    Copyright,
    Track,
    Count
};

// All texts of an item in one buffer, which for most items is inside this object. Some users of the
// C interface keep their clones until the process ends, so the size of each clone matters.
class ItemTexts {
public:
    // Adds the next text. Not thread-safe.
    void Add(std::string_view text);
    // Valid as long as this object; empty for a text that was not added.
    std::string_view operator[](ItemText text) const { return Between(text, text); }
    std::string_view Path() const { return Between(ItemText::Folder, ItemText::Name); }
    bool operator==(const ItemTexts& other) const {
        return m_letters == other.m_letters && m_ends == other.m_ends;
    }

private:
    std::string_view Between(ItemText first, ItemText last) const;

    boost::container::small_vector<char, 144> m_letters;
    std::array<uint32_t, static_cast<size_t>(ItemText::Count)> m_ends{};
    uint32_t m_count = 0;
};

}  // namespace platform

// Filled in by its creator; never changed once it is shared. The hook links it into the record
// table.
struct media_info_s : boost::intrusive::set_base_hook<> {
    media_info_s(int64_t itemNumber, int64_t itemRevision);
    ~media_info_s();
    media_info_s(const media_info_s&) = delete;
    media_info_s& operator=(const media_info_s&) = delete;

    const int64_t number;
    int64_t revision;  // the last row revision seen with this content; guarded by the table's lock
    platform::ItemTexts texts;
    media_content_type_e type = MEDIA_CONTENT_TYPE_OTHERS;
    int32_t width = 0;
    int32_t height = 0;
    int32_t orientation = 0;
    int32_t bitRate = 0;
    int32_t duration = 0;
    int64_t size = 0;
    int64_t added = 0;
    int64_t modified = 0;
    double latitude = 0.0;
    double longitude = 0.0;

    audio_meta_s audio{this};
    image_meta_s image{this};
    video_meta_s video{this};

    std::atomic<int64_t> holders{0};
};

struct media_folder_s {
    std::string id;
    std::string path;  // absolute
    std::atomic<int64_t> holders{0};
};

namespace platform {

// What media_storage_h points to.
struct StorageRecord {
    std::string id;
    std::string path;  // mount path
    std::atomic<int64_t> holders{0};
};

using MediaRecord = boost::intrusive_ptr<media_info_s>;
using FolderRecord = boost::intrusive_ptr<media_folder_s>;
using StorageRecordPtr = boost::intrusive_ptr<StorageRecord>;

// Returns the record of one version of one item: the existing one if it is still referenced, else a
// new one that `fill` completes, with the texts starting from the name. The same content is
// therefore one object however often its row is reread or rewritten, and a client that keeps its
// clones for ever keeps one object for each content that an item has had. `id` and `folderPath`
// (absolute, with a trailing slash) distinguish databases and mount points. Thread-safe; `fill`, if
// it runs, runs under the table's lock.
MediaRecord ShareRecord(int64_t number, int64_t revision, const std::string& id,
                        const std::string& folderPath,
                        const std::function<void(media_info_s&)>& fill);

// The number of item records in the process.
int64_t LiveRecords();

}  // namespace platform

void intrusive_ptr_add_ref(media_info_s* record);
void intrusive_ptr_release(media_info_s* record);
void intrusive_ptr_add_ref(media_folder_s* record);
void intrusive_ptr_release(media_folder_s* record);
namespace platform {
void intrusive_ptr_add_ref(StorageRecord* record);
void intrusive_ptr_release(StorageRecord* record);
}  // namespace platform

#endif
