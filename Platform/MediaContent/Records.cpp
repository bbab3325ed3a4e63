#include "MediaContent/Records.h"

#include <boost/intrusive/set.hpp>
#include <memory>
#include <mutex>
#include <tuple>

namespace platform {
namespace {

std::atomic<int64_t> liveRecords{0};

struct NumberOf {
    using type = int64_t;
    const type& operator()(const media_info_s& record) const { return record.number; }
};

// Weak references: a record leaves the table when its last holder releases it.
struct RecordTable {
    std::mutex mutex;
    boost::intrusive::set<media_info_s, boost::intrusive::key_of_value<NumberOf>> byNumber;
};

// Never destroyed: handles may be released until the process ends.
RecordTable& Table() {
    static RecordTable* table = new RecordTable;
    return *table;
}

// A record whose count has reached 0 is being destroyed by another thread.
bool TryHold(media_info_s& record) {
    int64_t holders = record.holders.load(std::memory_order_relaxed);
    while (holders > 0)
        if (record.holders.compare_exchange_weak(holders, holders + 1)) return true;
    return false;
}

bool IsOfRow(const media_info_s& record, int64_t revision, const std::string& id,
             const std::string& folderPath) {
    return record.revision == revision && record.texts[ItemText::Id] == id &&
           record.texts[ItemText::Folder] == folderPath;
}

auto NumbersOf(const media_info_s& record) {
    return std::tie(record.type, record.width, record.height, record.orientation, record.bitRate,
                    record.duration, record.size, record.added, record.modified, record.latitude,
                    record.longitude);
}

// A row is often rewritten unchanged, by a scan after a pull-out or by adding a file twice.
bool HaveSameContent(const media_info_s& a, const media_info_s& b) {
    return a.texts == b.texts && NumbersOf(a) == NumbersOf(b);
}

// Only for records whose count is 0.
void Forget(media_info_s* record) {
    {
        RecordTable& table = Table();
        std::lock_guard<std::mutex> lock(table.mutex);
        if (record->is_linked()) table.byNumber.erase(table.byNumber.iterator_to(*record));
    }
    delete record;
}

}  // namespace

void ItemTexts::Add(std::string_view text) {
    m_letters.insert(m_letters.end(), text.begin(), text.end());
    m_ends.at(m_count++) = static_cast<uint32_t>(m_letters.size());
}

std::string_view ItemTexts::Between(ItemText first, ItemText last) const {
    const auto from = static_cast<uint32_t>(first);
    const auto to = static_cast<uint32_t>(last);
    if (to >= m_count) return {};
    const uint32_t begin = from == 0 ? 0 : m_ends[from - 1];
    return std::string_view(m_letters.data(), m_letters.size()).substr(begin, m_ends[to] - begin);
}

MediaRecord ShareRecord(int64_t number, int64_t revision, const std::string& id,
                        const std::string& folderPath,
                        const std::function<void(media_info_s&)>& fill) {
    RecordTable& table = Table();
    MediaRecord held;  // released after the lock
    std::lock_guard<std::mutex> lock(table.mutex);
    const auto known = table.byNumber.find(number);
    if (known != table.byNumber.end() && TryHold(*known)) held = MediaRecord(&*known, false);
    if (held && IsOfRow(*held, revision, id, folderPath)) return held;
    auto made = std::make_unique<media_info_s>(number, revision);
    made->texts.Add(id);
    made->texts.Add(folderPath);
    fill(*made);
    if (held && HaveSameContent(*held, *made)) {
        held->revision = revision;
        return held;
    }
    if (known != table.byNumber.end()) table.byNumber.erase(known);
    table.byNumber.insert(*made);
    return MediaRecord(made.release());
}

int64_t LiveRecords() {
    return liveRecords;
}

void intrusive_ptr_add_ref(StorageRecord* record) {
    record->holders.fetch_add(1, std::memory_order_relaxed);
}

void intrusive_ptr_release(StorageRecord* record) {
    if (record->holders.fetch_sub(1, std::memory_order_acq_rel) == 1) delete record;
}

}  // namespace platform

media_info_s::media_info_s(int64_t itemNumber, int64_t itemRevision)
    : number(itemNumber), revision(itemRevision) {
    platform::liveRecords.fetch_add(1, std::memory_order_relaxed);
}

media_info_s::~media_info_s() {
    platform::liveRecords.fetch_sub(1, std::memory_order_relaxed);
}

void intrusive_ptr_add_ref(media_info_s* record) {
    record->holders.fetch_add(1, std::memory_order_relaxed);
}

void intrusive_ptr_release(media_info_s* record) {
    if (record->holders.fetch_sub(1, std::memory_order_acq_rel) == 1) platform::Forget(record);
}

void intrusive_ptr_add_ref(media_folder_s* record) {
    record->holders.fetch_add(1, std::memory_order_relaxed);
}

void intrusive_ptr_release(media_folder_s* record) {
    if (record->holders.fetch_sub(1, std::memory_order_acq_rel) == 1) delete record;
}
