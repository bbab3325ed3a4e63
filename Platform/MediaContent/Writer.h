// All changes to the media database go through here, one batch per transaction.
#ifndef PLATFORM_MEDIA_CONTENT_WRITER_H
#define PLATFORM_MEDIA_CONTENT_WRITER_H

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "MediaContent.h"
#include "MediaContent/Database.h"
#include "MediaContent/Extract/Metadata.h"

namespace platform {

constexpr int kMediaTypes = 5;

// The outcome of opening a file.
enum class ItemState {
    Unread = 0,  // not opened yet: retried at the next scan
    Read = 1,
    Failed = 2,      // not readable as media; retried only when the file changes
    PassedOver = 3,  // not opened: others took too long; retried when the storage has changed
};

// What stat returns for a file, and what changes are detected by.
struct FileFacts {
    int64_t size = -1;       // bytes; negative: nothing is known of the file yet
    int64_t modified = 0;    // seconds, UTC
    int64_t modifiedNs = 0;  // nanoseconds, added to `modified`
    int64_t inode = 0;
};

inline bool SameContent(const FileFacts& a, const FileFacts& b) {
    return a.size == b.size && a.modified == b.modified && a.modifiedNs == b.modifiedNs;
}

struct Change {
    enum Kind {
        PUT,     // the file has this content: insert or update its item
        MOVE,    // the item is now at another place, with the same content
        REMOVE,  // the item is gone, if it is still at `folder` and `name`
        INODE,   // the same file has another inode number
    };
    Kind kind = PUT;
    int64_t number = 0;  // the item; PUT: 0 for "the one at this place, if any"
    std::string folder;  // relative to the storage's root
    std::string name;
    media_content_type_e type = MEDIA_CONTENT_TYPE_OTHERS;
    std::string mime;
    FileFacts facts;
    ItemState state = ItemState::Unread;
    bool pinned = false;
    bool retry = false;  // the database has everything but the metadata
    bool isNew = false;  // the scan found no item for it in the database
    Metadata metadata;
};

// What a batch did, for change reports.
struct Done {
    media_content_db_update_type_e update;
    media_content_type_e type;
    int64_t number;
    std::string path;  // relative to the storage's root
    std::string mime;
};

// How much space is left for the items of one storage.
enum class SpaceLeft {
    Some,
    ShareTaken,  // the storage has used up its share
    None,        // the disk is full, or the file has reached its limit
};

// Every call takes the writer's lock for one transaction. Throws DatabaseError; the database is
// then as before the call. On a full disk, absent storages are forgotten, as in FindSpace, before a
// call fails.
class Writer {
public:
    explicit Writer(std::unique_ptr<Connection> connection);

    const std::string& Salt() const { return m_salt; }

    // Records that a storage is mounted at `mountPath` and returns its number.
    int64_t RecordStorage(const std::string& id, const std::string& identity,
                          const std::string& mountPath, int64_t now);
    // The storage has been removed: it was there until now and may be forgotten to make space.
    // Storages recorded with RecordStorage are not forgotten until then.
    void StorageWent(int64_t storage, int64_t now);

    // Checks how much disk space is left; see Room.h. When the file approaches its limit, forgets
    // absent storages, the longest unseen first, as far as needed.
    SpaceLeft FindSpace(int64_t storage);

    std::vector<Done> Apply(int64_t storage, const std::vector<Change>& changes, int64_t now);
    // Removes one item of any storage; false when there is none.
    bool Remove(int64_t number, int64_t& storage, Done& done);

    // Sets whether a scan is to read the PASSED_OVER files of this storage.
    void SetToBeReadAgain(int64_t storage, bool again);

    // Deletes the records of folders that have become empty.
    void DropEmptyFolders(int64_t storage);
    // Forgets up to `limit` items of a storage that is absent and was last seen before `before`,
    // and with the last of them the storage itself. True when there is nothing more to do.
    bool Purge(int64_t storage, int64_t before, int limit);
    // Moves the content of the write-ahead log into the database and shortens the log. Waits for
    // readers for 0.1 s at most, under the writer's lock; what is left then stays until the next
    // time.
    void Checkpoint();

private:
    struct Counts {
        std::array<int64_t, kMediaTypes> direct{};
        int64_t here = 0;   // the items directly in the folder
        int64_t below = 0;  // the items in the folders below
    };
    struct Row {
        int64_t number = 0;
        int64_t storage = 0;
        int64_t folder = 0;
        std::string name;
        std::string title;
        std::string mime;
        media_content_type_e type = MEDIA_CONTENT_TYPE_OTHERS;
        FileFacts facts;
        bool pinned = false;
    };
    // The totals of one batch.
    struct Batch {
        int64_t storage;
        int64_t now;
        std::map<std::string, Counts> folders;
        std::array<int64_t, kMediaTypes> items{};
        std::vector<Done> done;
    };

    void ApplyOne(Batch& batch, const Change& change);
    void Put(Batch& batch, const Change& change);
    void Move(Batch& batch, const Change& change);
    void RemoveRow(Batch& batch, const Row& row);
    bool Insert(const Batch& batch, int64_t folder, const Change& change, int64_t& number);
    void Update(const Row& row, int64_t folder, const Change& change);
    void Count(Batch& batch, const std::string& folder, media_content_type_e type, int by);
    static void SumUp(Batch& batch);
    void StoreCounts(Batch& batch);
    bool FindByPlace(int64_t folder, const std::string& name, Row& row);
    bool FindByNumber(int64_t number, Row& row);
    bool ReadRow(Query& query, Row& row);
    std::string FolderPath(int64_t number);
    int64_t FolderNumber(int64_t storage, const std::string& path);
    bool PurgeSome(int64_t storage, int limit);
    bool PurgeOldest();
    bool MoveLog(int waitMs);
    int64_t Ask(const char* sql);
    int64_t UsedBytes();
    int64_t& TakenBy(int64_t storage);
    template <typename Body>
    void InTransaction(Body body);
    template <typename Body>
    void InOneTransaction(Body body);

    std::mutex m_mutex;
    std::unique_ptr<Connection> m_connection;  // guarded by m_mutex
    std::string m_salt;                        // constant
    // Guarded; a cache, by storage and path.
    std::unordered_map<int64_t, std::unordered_map<std::string, int64_t>> m_folders;
    std::set<int64_t> m_present;                   // guarded: storages that are not absent
    std::unordered_map<int64_t, int64_t> m_taken;  // guarded: bytes, for storages measured so far
};

}  // namespace platform

#endif
